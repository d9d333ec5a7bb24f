import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Locale;
import kosc.Message;
import kosc.Modem;
import kosc.Receiver;

/** A message becomes sound in the voice band, and a stereo recording of it the message again. */
public final class Hello {
    private Hello() {}

    /**
     * Prints "0.100 s, channel 1, voice: hello from Java".
     *
     * @param arguments none
     */
    public static void main(String[] arguments) {
        int silence = Modem.SAMPLE_RATE / 10;
        ByteBuffer recording = ByteBuffer.allocateDirect(4 * Modem.SAMPLE_RATE).order(ByteOrder.nativeOrder());
        try (Modem modem = new Modem(new Modem.Options().band("voice"));
                Receiver receiver = new Receiver(new Receiver.Options().band("all").listener(Hello::print))) {
            short[] sound = modem.encode("hello from Java"); // a real host plays it
            for (int i = 0; i < sound.length; ++i) {
                recording.putShort(4 * (silence + i) + 2, sound[i]); // and records: here channel 1 of two hears it
            }
            receiver.pushInterleaved(recording, 2);
            receiver.finish();
        }
    }

    private static void print(Message message) {
        System.out.printf(Locale.ROOT, "%.3f s, channel %d, %s: %s%n",
            message.getTime(), message.getChannel(), message.getBand(), message.getText());
    }
}
