// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media.audiofx;

public class AcousticEchoCanceler extends AudioEffect {
    public static boolean isAvailable() {
        return true;
    }

    public static AcousticEchoCanceler create(int session) {
        return new AcousticEchoCanceler();
    }
}
