// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media;

import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;

/** What is played here is recorded here; and what a test sets and sees. */
public final class Air {
    public static final BlockingQueue<Short> SOUND = new LinkedBlockingQueue<>();
    public static volatile String unprocessed = "true";
    public static volatile boolean stereo = true;
    public static volatile int error;
    public static volatile int source;
    public static volatile int disabledEffects;
    public static volatile int open;

    private Air() {}
}
