// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media;

import java.nio.ByteBuffer;

public class AudioRecord {
    public static final int STATE_INITIALIZED = 1;

    private final int channels;

    public AudioRecord(int source, int rate, int mask, int encoding, int bytes) {
        channels = mask == AudioFormat.CHANNEL_IN_STEREO ? 2 : 1;
        Air.source = source;
        ++Air.open;
    }

    public int getState() {
        return channels == 1 || Air.stereo ? STATE_INITIALIZED : 0;
    }

    public int getAudioSessionId() {
        return 1;
    }

    public void startRecording() {}

    /** As Android's: from the buffer's beginning on, and its position stays. */
    public int read(ByteBuffer buffer, int bytes) {
        if (Air.error != 0) {
            return Air.error;
        }
        for (int at = 0; at < bytes; at += 2 * channels) {
            Short sample = Air.SOUND.poll();
            for (int channel = 0; channel < channels; ++channel) {
                buffer.putShort(at + 2 * channel, channel == channels - 1 && sample != null ? sample : 0);
            }
        }
        Thread.yield();
        return bytes;
    }

    public void stop() {}

    public void release() {
        --Air.open;
    }
}
