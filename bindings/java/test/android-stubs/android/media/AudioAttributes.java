// A stand-in for tests, not Android's: only what the helper and the example call.
package android.media;

public final class AudioAttributes {
    public static final int USAGE_MEDIA = 1;

    public static class Builder {
        public Builder setUsage(int usage) {
            return this;
        }

        public AudioAttributes build() {
            return new AudioAttributes();
        }
    }
}
