package kosc;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import android.content.Context;
import android.media.Air;
import android.media.MediaRecorder;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import kosc.android.Loudspeaker;
import kosc.android.Microphone;
import org.junit.Test;

/** The helper for Android over stand-ins for its classes, whose microphone hears its loudspeaker. */
public class AndroidHelperTest {
    private final BlockingQueue<Message> heard = new LinkedBlockingQueue<>();
    private final BlockingQueue<String> ends = new LinkedBlockingQueue<>();

    private void awaitClosedMicrophones() throws InterruptedException {
        for (int i = 0; i < 1000 && Air.open > 0; ++i) {
            Thread.sleep(10);
        }
        assertEquals(0, Air.open);
    }

    @Test
    public void theMicrophoneHearsTheLoudspeakerOnWhateverTheDeviceHas() throws InterruptedException {
        for (boolean good : new boolean[] {true, false}) {
            Air.stereo = good;
            Air.unprocessed = good ? "true" : null;
            Air.disabledEffects = 0;
            try (Modem modem = new Modem(); Receiver receiver = new Receiver(new Receiver.Options().listener(heard::add));
                    Microphone microphone = new Microphone(new Context(), receiver, ends::add)) {
                assertEquals(good ? MediaRecorder.AudioSource.UNPROCESSED : MediaRecorder.AudioSource.VOICE_RECOGNITION, Air.source);
                assertEquals(2, Air.disabledEffects);
                Loudspeaker.play(modem.encode("through the air"));
                Message message = heard.poll(10, TimeUnit.SECONDS);
                assertEquals("through the air", message.getText());
                assertEquals(good ? 1 : 0, message.getChannel());
            }
            awaitClosedMicrophones();
        }
        assertTrue(ends.isEmpty());
    }

    @Test
    public void aMicrophoneThatFailsAndAReceiverThatIsClosedAreToldOnce() throws InterruptedException {
        Receiver receiver = new Receiver();
        Microphone closedBelow = new Microphone(new Context(), receiver, ends::add);
        receiver.close();
        assertEquals("The receiver is closed.", ends.poll(10, TimeUnit.SECONDS));
        closedBelow.close();
        try (Receiver other = new Receiver(); Microphone gone = new Microphone(new Context(), other, ends::add)) {
            Air.error = -6;
            assertEquals("The microphone stopped with error -6.", ends.poll(10, TimeUnit.SECONDS));
            awaitClosedMicrophones();
        } finally {
            Air.error = 0;
        }
        assertTrue(ends.isEmpty());
    }
}
