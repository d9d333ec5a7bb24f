package kosc;

/** What a message was put together from. Cannot be changed. */
public final class Combined {
    private final int frames;
    private final int hearings;
    private final int microphones;
    private final double snrDb;
    private final double newestSnrDb;
    private final double driftPpm;
    private final double seconds;

    Combined(int frames, int hearings, int microphones, double snrDb, double newestSnrDb, double driftPpm, double seconds) {
        this.frames = frames;
        this.hearings = hearings;
        this.microphones = microphones;
        this.snrDb = snrDb;
        this.newestSnrDb = newestSnrDb;
        this.driftPpm = driftPpm;
        this.seconds = seconds;
    }

    /**
     * Sent frames that were summed.
     *
     * @return 1 or more; 1: one frame, found by the search for weak frames
     */
    public int getFrames() {
        return frames;
    }

    /**
     * The same, each counted as often as microphones heard it.
     *
     * @return 1 or more
     */
    public int getHearings() {
        return hearings;
    }

    /**
     * Microphones that heard some of them.
     *
     * @return 1 or 2
     */
    public int getMicrophones() {
        return microphones;
    }

    /**
     * Signal-to-noise ratio of all of it together: what a single frame would need to have for as much to be heard of it.
     *
     * @return dB
     */
    public double getSnrDb() {
        return snrDb;
    }

    /**
     * That of the newest frame alone, by the microphone that heard it better.
     *
     * @return dB
     */
    public double getNewestSnrDb() {
        return newestSnrDb;
    }

    /**
     * By how much the sender's clock, or its motion, raised the newest frame's frequencies.
     *
     * @return millionths
     */
    public double getDriftPpm() {
        return driftPpm;
    }

    /**
     * From the first frame's start to the newest one's.
     *
     * @return seconds
     */
    public double getSeconds() {
        return seconds;
    }

    @Override
    public String toString() {
        return "put together from " + frames + (frames == 1 ? " frame, " : " frames, ")
            + microphones + (microphones == 1 ? " microphone" : " microphones");
    }
}
