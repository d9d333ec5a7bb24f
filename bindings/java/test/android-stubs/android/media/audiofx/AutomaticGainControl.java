// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media.audiofx;

public class AutomaticGainControl extends AudioEffect {
    public static boolean isAvailable() {
        return false;
    }

    public static AutomaticGainControl create(int session) {
        return new AutomaticGainControl();
    }
}
