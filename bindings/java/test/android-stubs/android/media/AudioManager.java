// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media;

public class AudioManager {
    public static final String PROPERTY_SUPPORT_AUDIO_SOURCE_UNPROCESSED = "android.media.property.SUPPORT_AUDIO_SOURCE_UNPROCESSED";
    public static final int AUDIO_SESSION_ID_GENERATE = 0;

    public String getProperty(String key) {
        return Air.unprocessed;
    }
}
