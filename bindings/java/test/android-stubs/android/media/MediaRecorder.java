// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media;

public class MediaRecorder {
    public static final class AudioSource {
        public static final int VOICE_RECOGNITION = 6;
        public static final int UNPROCESSED = 9;
    }
}
