// A stand-in for tests, not Android's: only what the helper and the example call.
package android.content.pm;

public class PackageManager {
    public static final int PERMISSION_GRANTED = 0;
}
