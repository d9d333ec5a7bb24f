// No device was tried: this is compiled, and run in a test, against stand-ins for Android's classes.
package kosc.android;

import android.media.AudioAttributes;
import android.media.AudioFormat;
import android.media.AudioManager;
import android.media.AudioTrack;
import kosc.Modem;

/** The device's loudspeaker, as media at the modem's rate. */
public final class Loudspeaker {
    private static final int SAMPLE_BYTES = 2;
    private static final int SILENCE = Modem.SAMPLE_RATE / 10; // on both sides: amplifiers wake up slowly, and fade in
    private static final int POLL_MS = 10;
    private static final int LATE_MS = 2000; // a device that plays nothing is not waited for longer

    private Loudspeaker() {}

    /**
     * Plays one frame, and returns when it was played: not for the app's main thread.
     *
     * @param frame of {@link Modem#encode(byte[])}
     * @throws IllegalStateException when it cannot be played
     * @throws InterruptedException when the thread is interrupted; playing then ends
     */
    public static void play(short[] frame) throws InterruptedException {
        short[] sound = new short[frame.length + 2 * SILENCE];
        System.arraycopy(frame, 0, sound, SILENCE, frame.length);
        AudioTrack track = new AudioTrack(
            new AudioAttributes.Builder().setUsage(AudioAttributes.USAGE_MEDIA).build(),
            new AudioFormat.Builder().setSampleRate(Modem.SAMPLE_RATE).setEncoding(AudioFormat.ENCODING_PCM_16BIT)
                .setChannelMask(AudioFormat.CHANNEL_OUT_MONO).build(),
            SAMPLE_BYTES * sound.length, AudioTrack.MODE_STATIC, AudioManager.AUDIO_SESSION_ID_GENERATE);
        try {
            if (track.write(sound, 0, sound.length) != sound.length) {
                throw new IllegalStateException("The loudspeaker does not take the sound.");
            }
            track.play();
            int waits = (1000 * sound.length / Modem.SAMPLE_RATE + LATE_MS) / POLL_MS;
            while (track.getPlaybackHeadPosition() < sound.length && --waits > 0) {
                Thread.sleep(POLL_MS);
            }
        } finally {
            track.release();
        }
    }
}
