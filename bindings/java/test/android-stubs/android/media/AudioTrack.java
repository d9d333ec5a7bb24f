// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media;

public class AudioTrack {
    public static final int MODE_STATIC = 0;

    private short[] sound = {};
    private int played;

    public AudioTrack(AudioAttributes attributes, AudioFormat format, int bytes, int mode, int session) {}

    public int write(short[] samples, int offset, int count) {
        sound = java.util.Arrays.copyOfRange(samples, offset, offset + count);
        return count;
    }

    public void play() {
        for (short sample : sound) {
            Air.SOUND.add(sample);
        }
        played = sound.length;
    }

    public int getPlaybackHeadPosition() {
        return played;
    }

    public void release() {}
}
