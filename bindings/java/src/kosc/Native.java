package kosc;

import java.nio.ByteBuffer;

/** The library. It knows its objects by number; a number that was closed throws IllegalStateException, and never returns. */
final class Native {
    static {
        System.loadLibrary("kosc_jni");
    }

    private Native() {}

    static native String version();

    /** Name, use, and first subcarrier, lowest and highest frequency as doubles; null behind the last band. */
    static native Object[] band(int index);

    static native Object[] findBand(String text);

    static native int defaultSubcarrier();

    static native long openModem(int firstSubcarrier);

    // `owner` is who closes the number: it is not collected while the call runs.

    static native short[] encode(Object owner, long modem, byte[] message);

    static native void encode(Object owner, long modem, byte[] message, ByteBuffer frame, int offset);

    static native long openReceiver(int[] firstSubcarriers, boolean secondLook, boolean recording, int combining, boolean crowd);

    /** Hears `frames` samples of each of `channels` channels, interleaved; the messages' records, or null. */
    static native byte[] hear(Object owner, long receiver, short[] samples, int frames, int first, int channels);

    static native byte[] hear(Object owner, long receiver, ByteBuffer samples, int offset, int frames, int first, int channels);

    static native byte[] finish(Object owner, long receiver);

    static native void close(long any);
}
