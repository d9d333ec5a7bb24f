package kosc;

import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.List;

/** A message that was heard, with figures that tell how well. Cannot be changed. */
public final class Message {
    static final int RECORD_BYTES = 120;

    private final double time;
    private final double correlation;
    private final double snrDb;
    private final double driftPpm;
    private final double coherence;
    private final double evm;
    private final int channel;
    private final Band band;
    private final int failedCrcs;
    private final boolean secondLookNeeded;
    private final Combined combined;
    private final byte[] data = new byte[Modem.MESSAGE_BYTES];

    /** Reads a record of the library; its fields are in this order. */
    Message(ByteBuffer record, List<Band> bands) {
        time = (double) record.getLong() / Modem.SAMPLE_RATE;
        correlation = record.getDouble();
        snrDb = record.getDouble();
        driftPpm = record.getDouble();
        coherence = record.getDouble();
        evm = record.getDouble();
        double newestSnrDb = record.getDouble();
        double seconds = record.getDouble();
        channel = record.getInt();
        band = bands.get(record.getInt());
        failedCrcs = record.getInt();
        secondLookNeeded = record.getInt() != 0;
        int frames = record.getInt();
        int hearings = record.getInt();
        int microphones = record.getInt();
        combined = frames == 0 ? null : new Combined(frames, hearings, microphones, snrDb, newestSnrDb, driftPpm, seconds);
        record.get(data);
    }

    /**
     * When it began; of a message that was put together, when its newest frame did.
     *
     * @return seconds from the first sample pushed on its channel; below 0 when a recording lacks its first samples
     */
    public double getTime() {
        return time;
    }

    /**
     * Where it was heard.
     *
     * @return the channel's number, from 0 on
     */
    public int getChannel() {
        return channel;
    }

    /**
     * The band that it came on.
     *
     * @return one of those that the receiver listens to
     */
    public Band getBand() {
        return band;
    }

    /**
     * What was sent.
     *
     * @return a copy of the {@link Modem#MESSAGE_BYTES} bytes
     */
    public byte[] getData() {
        return data.clone();
    }

    /**
     * The message without the zeros at its end, where that is text: UTF-8 without control characters.
     *
     * @return null when it is no text, or empty
     */
    public String getText() {
        int end = data.length;
        while (end > 0 && data[end - 1] == 0) {
            --end;
        }
        String text;
        try {
            text = StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(data, 0, end)).toString();
        } catch (CharacterCodingException notText) {
            return null;
        }
        for (int i = 0; i < text.length(); ++i) {
            if (Character.isISOControl(text.charAt(i))) {
                return null;
            }
        }
        return text.isEmpty() ? null : text;
    }

    /**
     * Power of a subcarrier over what channel and message do not explain; of a message that was put together, of all of it.
     *
     * @return dB; NaN without second look
     */
    public double getSnrDb() {
        return snrDb;
    }

    /**
     * By how much the sender's clock, or its motion, raised the frequencies.
     *
     * @return millionths; NaN without second look
     */
    public double getDriftPpm() {
        return driftPpm;
    }

    /**
     * Height of the synchronisation peak.
     *
     * @return up to 1; 0 of a message that was put together
     */
    public double getCorrelation() {
        return correlation;
    }

    /**
     * Share of the pilots' energy that adds up.
     *
     * @return 0 to 1; NaN without second look
     */
    public double getCoherence() {
        return coherence;
    }

    /**
     * Error vector magnitude of the data symbols.
     *
     * @return a ratio; NaN without second look
     */
    public double getEvm() {
        return evm;
    }

    /**
     * Whether it did not decode at first.
     *
     * @return true when it took the second look
     */
    public boolean isSecondLookNeeded() {
        return secondLookNeeded;
    }

    /**
     * What did not match at first.
     *
     * @return bit i: CRC i
     */
    public int getFailedCrcs() {
        return failedCrcs;
    }

    /**
     * What the message was put together from.
     *
     * @return null when it was not
     */
    public Combined getCombined() {
        return combined;
    }

    @Override
    public String toString() {
        String text = getText();
        return "Message at " + time + " s, channel " + channel + ", " + band + ": " + (text != null ? text : Arrays.toString(data));
    }
}
