package kosc;

import java.io.Closeable;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collection;
import java.util.Collections;
import java.util.LinkedHashSet;
import java.util.List;

/**
 * Listens to blocks of samples, 16 bit at 48000 Hz, and gives the messages in them; a frame may straddle any number of
 * blocks. Up to {@link #CHANNELS} channels are independent: a message heard by two comes twice, unless it was put together
 * ({@link Options#combine}).
 *
 * <pre>{@code
 * try (Receiver receiver = new Receiver()) {
 *     for (Message message : receiver.push(samples, samples.length, 0)) {
 *         System.out.println(message.getTime() + " s: " + message.getText());
 *     }
 * }
 * }</pre>
 *
 * <p>A message is certain once the search window behind its frame is full, so it comes up to half a second late, and with
 * the last ones {@link #finish} is needed.
 *
 * <p>May be used by several threads: different channels run at the same time, the same one in turns. After {@link #close}
 * every call throws IllegalStateException; a call that is under way on another thread ends well. An audio callback should
 * only copy its samples for another thread that calls push(): decoding a frame takes milliseconds.
 */
public final class Receiver implements Closeable {
    /** The most that it listens to. */
    public static final int CHANNELS = 8;

    private static final int MOST_BANDS = 16;
    private static final int SAMPLE_BYTES = 2;
    private static final String ALL = "all";

    private final Handle handle;
    private final List<Band> bands;
    private final Listener listener;

    /** Hears of messages as they come. */
    public interface Listener {
        /**
         * Called by push() and finish(), on their thread, before they return; may call the receiver, also to close it.
         * What it throws, they throw, without telling of the messages behind.
         *
         * @param message one message
         */
        void onMessage(Message message);
    }

    /** How repeats of a message that are too weak alone are added up. */
    public enum Combine {
        /** They are not. */
        OFF,
        /** Each channel by itself. */
        EACH,
        /** Channels 0 and 1 as two microphones of one receiver; others by themselves. */
        TOGETHER
    }

    /** How a receiver is made; each call returns the options, so that calls follow one another. */
    public static final class Options {
        private List<Band> bands = Collections.singletonList(Band.DEFAULT);
        private boolean secondLook = true;
        private boolean recording;
        private Combine combine = Combine.OFF;
        private boolean crowd;
        private Listener listener;

        /** The usual options. */
        public Options() {}

        /**
         * Where to listen, on all at once.
         *
         * @param bands 1 to 16 different ones; {@link Band#DEFAULT} unless given
         * @return these options
         * @throws IllegalArgumentException for none, or too many
         */
        public Options bands(Collection<Band> bands) {
            List<Band> each = new ArrayList<>(new LinkedHashSet<>(Check.given(bands, "the bands")));
            for (Band band : each) {
                Check.given(band, "a band");
            }
            Check.that(!each.isEmpty() && each.size() <= MOST_BANDS,
                "A receiver listens to 1 to " + MOST_BANDS + " bands, not " + each.size() + ".");
            this.bands = Collections.unmodifiableList(each);
            return this;
        }

        /**
         * Where to listen, on all at once.
         *
         * @param bands as in {@link Band#all} or found
         * @return these options
         */
        public Options band(Band... bands) {
            return bands(Arrays.asList(Check.given(bands, "the bands")));
        }

        /**
         * Where to listen, by name, on all at once.
         *
         * @param bands as for {@link Band#find(String)}, or "all" for all that have a name
         * @return these options
         * @throws IllegalArgumentException with a sentence that lists the names
         */
        public Options band(String... bands) {
            List<Band> found = new ArrayList<>();
            for (String band : Check.given(bands, "the bands")) {
                if (ALL.equals(band)) {
                    found.addAll(Band.all());
                } else {
                    found.add(Band.find(band));
                }
            }
            return bands(found);
        }

        /**
         * Whether to look again, deeper, at frames that do not decode, and to measure those that do.
         *
         * @param on true unless given
         * @return these options
         */
        public Options secondLook(boolean on) {
            secondLook = on;
            return this;
        }

        /**
         * Whether what is pushed is a recording from its start on, which finish() ends: a frame is found, too, whose first
         * samples the recording lacks.
         *
         * @param on false unless given
         * @return these options
         */
        public Options recording(boolean on) {
            recording = on;
            return this;
        }

        /**
         * Whether repeats of a message that are too weak alone are added up, over 12 seconds; {@link Message#getCombined}
         * tells. With {@link Combine#TOGETHER}, push blocks of channels 0 and 1 in turns, of equal lengths up to 12000,
         * or interleaved; their calls do not run at the same time then. Messages that differ in little, as counters do,
         * may be mixed (docs/trust.md).
         *
         * @param how {@link Combine#OFF} unless given
         * @return these options
         */
        public Options combine(Combine how) {
            combine = Check.given(how, "the way to combine");
            return this;
        }

        /**
         * Whether frames of many senders that overlap are heard: each that was decoded is taken out of the sound, and what
         * it covered is searched. Needs the second look.
         *
         * @param on false unless given
         * @return these options
         */
        public Options crowd(boolean on) {
            crowd = on;
            return this;
        }

        /**
         * Who hears of messages, beside who calls push().
         *
         * @param listener null, unless given, for nobody
         * @return these options
         */
        public Options listener(Listener listener) {
            this.listener = listener;
            return this;
        }
    }

    /** A receiver of the usual options. */
    public Receiver() {
        this(new Options());
    }

    /**
     * A receiver.
     *
     * @param options read now
     * @throws IllegalArgumentException for a crowd without the second look
     */
    public Receiver(Options options) {
        bands = Check.given(options, "the options").bands;
        listener = options.listener;
        Check.that(options.secondLook || !options.crowd, "A crowd needs the second look.");
        int[] firstSubcarriers = new int[bands.size()];
        for (int i = 0; i < firstSubcarriers.length; ++i) {
            firstSubcarriers[i] = bands.get(i).getFirstSubcarrier();
        }
        handle = new Handle(this, Native.openReceiver(firstSubcarriers, options.secondLook, options.recording, options.combine.ordinal(), options.crowd));
    }

    /**
     * Where it listens.
     *
     * @return the bands, each once; cannot be changed
     */
    public List<Band> getBands() {
        return bands;
    }

    /**
     * Listens to a block of one channel.
     *
     * @param samples holds the block at its beginning
     * @param count how many they are; 0 or more
     * @param channel 0 to 7
     * @return the messages that the block completed, in the order of time; often none
     * @throws IllegalArgumentException for a count or channel out of range
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short; messages that were found come with the next call
     */
    public List<Message> push(short[] samples, int count, int channel) {
        checkChannel(channel);
        return push(samples, count, channel, 1);
    }

    /**
     * Listens to a block of several channels, interleaved: channels 0, 1, ... of the first moment, then of the next.
     *
     * @param samples holds the block at its beginning
     * @param count moments: samples of each channel
     * @param channels 1 to 8
     * @return as push() does
     * @throws IllegalArgumentException for a count or number of channels out of range
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short; messages that were found come with the next call
     */
    public List<Message> pushInterleaved(short[] samples, int count, int channels) {
        checkChannels(channels);
        return push(samples, count, 0, channels);
    }

    /**
     * Listens to a block of one channel in the buffer's own memory.
     *
     * @param samples direct, in the machine's byte order; read from its position to its limit, where the position then is
     * @param channel 0 to 7
     * @return as push() of an array does
     * @throws IllegalArgumentException for a buffer of another kind, at an odd address or with half a sample, or a channel
     *     out of range
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short; messages that were found come with the next call
     */
    public List<Message> push(ByteBuffer samples, int channel) {
        checkChannel(channel);
        return push(samples, channel, 1);
    }

    /**
     * Listens to a block of several channels in the buffer's own memory, interleaved.
     *
     * @param samples direct, in the machine's byte order; read from its position to its limit, where the position then is
     * @param channels 1 to 8
     * @return as push() does
     * @throws IllegalArgumentException for a buffer of another kind, at an odd address or with a part of a moment, or a
     *     number of channels out of range
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short; messages that were found come with the next call
     */
    public List<Message> pushInterleaved(ByteBuffer samples, int channels) {
        checkChannels(channels);
        return push(samples, 0, channels);
    }

    /**
     * Ends a recording: listens to silence on all channels, so that frames at its very end are found.
     *
     * @return as push() does
     * @throws IllegalStateException after close()
     * @throws KoscException when memory is short; messages that were found come with the next call
     */
    public List<Message> finish() {
        return told(Native.finish(this, handle.number));
    }

    /** Gives the memory back; may be called again. */
    @Override
    public void close() {
        handle.close();
    }

    private List<Message> push(short[] samples, int count, int first, int channels) {
        Check.given(samples, "the samples");
        Check.that(count >= 0 && count <= samples.length / channels,
            "The count is " + count + ", the array has samples for 0 to " + samples.length / channels + ".");
        return told(Native.hear(this, handle.number, samples, count, first, channels));
    }

    private List<Message> push(ByteBuffer samples, int first, int channels) {
        Check.direct(samples);
        int bytes = samples.remaining();
        Check.that(bytes % (SAMPLE_BYTES * channels) == 0,
            "The buffer has " + bytes + " bytes, which is no multiple of " + SAMPLE_BYTES * channels + ".");
        int count = bytes / (SAMPLE_BYTES * channels);
        byte[] records = Native.hear(this, handle.number, samples, samples.position(), count, first, channels);
        samples.position(samples.position() + bytes);
        return told(records);
    }

    private List<Message> told(byte[] records) {
        if (records == null) {
            return Collections.emptyList();
        }
        List<Message> messages = new ArrayList<>(records.length / Message.RECORD_BYTES);
        for (ByteBuffer each = ByteBuffer.wrap(records).order(ByteOrder.nativeOrder()); each.hasRemaining();) {
            messages.add(new Message(each, bands));
        }
        if (listener != null) {
            for (Message message : messages) {
                listener.onMessage(message);
            }
        }
        return messages;
    }

    private static void checkChannel(int channel) {
        Check.that(channel >= 0 && channel < CHANNELS, "The channel is a number from 0 to " + (CHANNELS - 1) + ", not " + channel + ".");
    }

    private static void checkChannels(int channels) {
        Check.that(channels >= 1 && channels <= CHANNELS, "There are 1 to " + CHANNELS + " channels, not " + channels + ".");
    }
}
