// No device was tried: this is compiled, and run in a test, against stand-ins for Android's classes.
package kosc.android;

import android.content.Context;
import android.media.AudioFormat;
import android.media.AudioManager;
import android.media.AudioRecord;
import android.media.MediaRecorder;
import android.media.audiofx.AcousticEchoCanceler;
import android.media.audiofx.AudioEffect;
import android.media.audiofx.AutomaticGainControl;
import android.media.audiofx.NoiseSuppressor;
import java.io.Closeable;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import kosc.Modem;
import kosc.Receiver;

/**
 * The device's microphone, unprocessed as far as the device lets it be, led to a {@link Receiver} on a thread of its own
 * until it is closed. The app needs the permission RECORD_AUDIO before.
 */
public final class Microphone implements Closeable {
    private static final int SAMPLE_BYTES = 2;
    private static final int BLOCK_SAMPLES = Modem.SAMPLE_RATE / 50; // 20 ms
    private static final int BUFFER_SAMPLES = Modem.SAMPLE_RATE; // a second: time enough to decode in between

    private final AudioRecord record;
    private final int channels;
    private final AudioEffect[] effects;
    private final Receiver receiver;
    private final EndListener onEnd;
    private volatile boolean closed;

    /** Hears that the microphone is gone. */
    public interface EndListener {
        /**
         * Called once, on the microphone's thread, unless it was closed.
         *
         * @param reason a sentence
         */
        void onEnd(String reason);
    }

    /**
     * Starts listening.
     *
     * @param context any of the app's
     * @param receiver hears two channels, or one where the device has but one; stays the caller's. Its listener is called on
     *     the microphone's thread
     * @param onEnd hears when the microphone fails
     * @throws IllegalStateException when it cannot be opened
     */
    public Microphone(Context context, Receiver receiver, EndListener onEnd) {
        this.receiver = receiver;
        this.onEnd = onEnd;
        int source = sourceOf(context);
        AudioRecord stereo = open(source, AudioFormat.CHANNEL_IN_STEREO, 2);
        record = stereo != null ? stereo : open(source, AudioFormat.CHANNEL_IN_MONO, 1);
        channels = stereo != null ? 2 : 1;
        if (record == null) {
            throw new IllegalStateException("The microphone cannot be opened; the app needs the permission RECORD_AUDIO.");
        }
        int session = record.getAudioSessionId();
        effects = new AudioEffect[] {
            AcousticEchoCanceler.isAvailable() ? AcousticEchoCanceler.create(session) : null,
            NoiseSuppressor.isAvailable() ? NoiseSuppressor.create(session) : null,
            AutomaticGainControl.isAvailable() ? AutomaticGainControl.create(session) : null,
        };
        for (AudioEffect effect : effects) {
            if (effect != null) {
                effect.setEnabled(false); // each takes the band for noise or echo
            }
        }
        record.startRecording();
        new Thread(this::listen, "kosc microphone").start();
    }

    // Speech recognition gets less processing than calls, where there is no unprocessed source.
    private static int sourceOf(Context context) {
        AudioManager manager = (AudioManager) context.getSystemService(Context.AUDIO_SERVICE);
        boolean unprocessed = "true".equals(manager.getProperty(AudioManager.PROPERTY_SUPPORT_AUDIO_SOURCE_UNPROCESSED));
        return unprocessed ? MediaRecorder.AudioSource.UNPROCESSED : MediaRecorder.AudioSource.VOICE_RECOGNITION;
    }

    private static AudioRecord open(int source, int mask, int channels) {
        int bytes = SAMPLE_BYTES * channels * BUFFER_SAMPLES;
        try {
            AudioRecord opened = new AudioRecord(source, Modem.SAMPLE_RATE, mask, AudioFormat.ENCODING_PCM_16BIT, bytes);
            if (opened.getState() == AudioRecord.STATE_INITIALIZED) {
                return opened;
            }
            opened.release();
        } catch (IllegalArgumentException refused) {
            // not with so many channels
        }
        return null;
    }

    private void listen() {
        ByteBuffer block = ByteBuffer.allocateDirect(SAMPLE_BYTES * channels * BLOCK_SAMPLES).order(ByteOrder.nativeOrder());
        String reason = "";
        try {
            while (!closed) {
                block.clear();
                int bytes = record.read(block, block.capacity()); // waits
                if (bytes < 0) {
                    reason = "The microphone stopped with error " + bytes + ".";
                    break;
                }
                block.limit(bytes);
                receiver.pushInterleaved(block, channels);
            }
        } catch (RuntimeException failed) { // the receiver is closed, or memory is short
            reason = failed.getMessage();
        }
        for (AudioEffect effect : effects) {
            if (effect != null) {
                effect.release();
            }
        }
        record.stop();
        record.release();
        if (!closed) {
            onEnd.onEnd(reason);
        }
    }

    /** Stops listening, after the block that is under way; may be called again, and by the receiver's listener. */
    @Override
    public void close() {
        closed = true;
    }
}
