package kosc;

/** The modem cannot go on: memory is short. */
public class KoscException extends RuntimeException {
    private static final long serialVersionUID = 1;

    /**
     * Made by the library.
     *
     * @param sentence what cannot be done
     */
    public KoscException(String sentence) {
        super(sentence);
    }
}
