package kosc;

import java.io.Closeable;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;

/**
 * Turns messages into sound: up to 28 bytes become one frame of a quarter of a second, 16-bit mono at 48000 Hz, peaking at
 * 0.8 of full scale.
 *
 * <pre>{@code
 * try (Modem modem = new Modem()) {
 *     short[] sound = modem.encode("hello over sound");
 * }
 * }</pre>
 *
 * <p>May be used by any number of threads at once. After {@link #close} every call throws IllegalStateException; a call
 * that is under way on another thread ends well.
 */
public final class Modem implements Closeable {
    /** Samples a second of all sound. */
    public static final int SAMPLE_RATE = 48000;
    /** Bytes of a message; shorter ones are padded with zeros. */
    public static final int MESSAGE_BYTES = 28;
    /** Samples of a frame. */
    public static final int FRAME_SAMPLES = 11520;

    private static final int SAMPLE_BYTES = 2;

    private final Handle handle;

    /** How a modem is made; each call returns the options, so that calls follow one another. */
    public static final class Options {
        private Band band = Band.DEFAULT;

        /** The usual options. */
        public Options() {}

        /**
         * Where to speak.
         *
         * @param band {@link Band#DEFAULT} unless given
         * @return these options
         */
        public Options band(Band band) {
            this.band = Check.given(band, "the band");
            return this;
        }

        /**
         * Where to speak, by name.
         *
         * @param band as for {@link Band#find(String)}
         * @return these options
         */
        public Options band(String band) {
            return band(Band.find(band));
        }
    }

    /** A modem of the usual options. */
    public Modem() {
        this(new Options());
    }

    /**
     * A modem.
     *
     * @param options read now
     * @throws KoscException when memory is short
     */
    public Modem(Options options) {
        handle = new Handle(this, Native.openModem(Check.given(options, "the options").band.getFirstSubcarrier()));
    }

    /**
     * The library's version.
     *
     * @return such as "1.1.0"
     */
    public static String version() {
        return Native.version();
    }

    /**
     * One frame of sound.
     *
     * @param message up to {@link #MESSAGE_BYTES} bytes
     * @return {@link #FRAME_SAMPLES} samples
     * @throws IllegalArgumentException when it is longer
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short
     */
    public short[] encode(byte[] message) {
        return Native.encode(this, handle.number, checked(message));
    }

    /**
     * One frame of sound.
     *
     * @param text up to {@link #MESSAGE_BYTES} bytes in UTF-8
     * @return {@link #FRAME_SAMPLES} samples
     * @throws IllegalArgumentException when it is longer, or has half of a surrogate pair
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short
     */
    public short[] encode(String text) {
        Check.given(text, "the text");
        Check.that(StandardCharsets.UTF_8.newEncoder().canEncode(text), "The text has half of a surrogate pair and is no UTF-8.");
        return encode(text.getBytes(StandardCharsets.UTF_8));
    }

    /**
     * One frame of sound into a buffer, without a copy.
     *
     * @param message up to {@link #MESSAGE_BYTES} bytes
     * @param frame direct, in the machine's byte order; from its position on it receives {@link #FRAME_SAMPLES} samples of
     *     2 bytes, and its position moves behind them
     * @throws IllegalArgumentException when the message is too long, or the buffer too short or of another kind
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short
     */
    public void encode(byte[] message, ByteBuffer frame) {
        checked(message);
        Check.direct(frame);
        Check.that(!frame.isReadOnly(), "The buffer may only be read.");
        int bytes = SAMPLE_BYTES * FRAME_SAMPLES;
        Check.that(frame.remaining() >= bytes, "A frame takes " + bytes + " bytes, the buffer has " + frame.remaining() + " left.");
        Native.encode(this, handle.number, message, frame, frame.position());
        frame.position(frame.position() + bytes);
    }

    private static byte[] checked(byte[] message) {
        Check.given(message, "the message");
        Check.that(message.length <= MESSAGE_BYTES,
            "The message is " + message.length + " bytes long, the limit is " + MESSAGE_BYTES + ".");
        return message;
    }

    /** Gives the memory back; may be called again. */
    @Override
    public void close() {
        handle.close();
    }
}
