// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media.audiofx;

public class AudioEffect {
    public int setEnabled(boolean enabled) {
        android.media.Air.disabledEffects += enabled ? 0 : 1;
        return 0;
    }

    public void release() {}
}
