package kosc;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/**
 * Where in the spectrum a modem works: 64 subcarriers side by side, so a band is known by its first one. Sender and
 * receiver use the same.
 */
public final class Band {
    private static final List<Band> NAMED = named();

    /** The band unless another is asked for: near-ultrasonic, 18000 to 20953 Hz. */
    public static final Band DEFAULT = withFirstSubcarrier(Native.defaultSubcarrier());

    private final String name;
    private final String use;
    private final int firstSubcarrier;
    private final double lowHz;
    private final double highHz;

    private Band(Object[] record) {
        double[] figures = (double[]) record[2];
        name = (String) record[0];
        use = (String) record[1];
        firstSubcarrier = (int) figures[0];
        lowHz = figures[1];
        highHz = figures[2];
    }

    private static List<Band> named() {
        List<Band> bands = new ArrayList<>();
        for (Object[] record = Native.band(0); record != null; record = Native.band(bands.size())) {
            bands.add(new Band(record));
        }
        return Collections.unmodifiableList(bands);
    }

    private static Band withFirstSubcarrier(int first) {
        for (Band band : NAMED) {
            if (band.firstSubcarrier == first) {
                return band;
            }
        }
        throw new AssertionError("the default band has a name");
    }

    /**
     * The bands that have a name, from the lowest up.
     *
     * @return telephone, voice, audible, high, near-ultrasonic; cannot be changed
     */
    public static List<Band> all() {
        return NAMED;
    }

    /**
     * Finds the band that a person asks for.
     *
     * @param text a band's name, or where it begins in Hz, as in "2000"; moved to the nearest subcarrier
     * @return the band
     * @throws IllegalArgumentException with a sentence that lists the names
     */
    public static Band find(String text) {
        return new Band(Native.findBand(Check.given(text, "the band's name")));
    }

    /**
     * Finds the band that begins at a frequency.
     *
     * @param hz 250 to 20550 or so, moved to the nearest subcarrier
     * @return the band
     * @throws IllegalArgumentException when it would not lie between 250 and 23500 Hz
     */
    public static Band find(double hz) {
        return find(Double.toString(hz));
    }

    /**
     * The name that people use.
     *
     * @return such as "voice"; empty for a band that has none
     */
    public String getName() {
        return name;
    }

    /**
     * What it is for.
     *
     * @return a line of English; empty for a band without a name
     */
    public String getUse() {
        return use;
    }

    /**
     * What makes it this band.
     *
     * @return 6 to 438
     */
    public int getFirstSubcarrier() {
        return firstSubcarrier;
    }

    /**
     * Frequency of the first subcarrier.
     *
     * @return Hz
     */
    public double getLowHz() {
        return lowHz;
    }

    /**
     * Frequency of the last subcarrier.
     *
     * @return Hz
     */
    public double getHighHz() {
        return highHz;
    }

    @Override
    public boolean equals(Object other) {
        return other instanceof Band && ((Band) other).firstSubcarrier == firstSubcarrier;
    }

    @Override
    public int hashCode() {
        return firstSubcarrier;
    }

    @Override
    public String toString() {
        return name.isEmpty() ? Math.round(lowHz) + " Hz" : name;
    }
}
