package kosc;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import org.junit.Test;

/** Closing, threads, and memory over a long time. */
public class LifetimesTest {
    private static final int BLOCK = 128;
    private static final int PUSHES = 1_000_000;
    private static final long PAGE_KIB = 4;
    private static final long GROWTH_KIB = 6144; // a leak of any block a push is five times more, the virtual machine's own less

    private static long residentKib() throws IOException {
        String[] pages = new String(Files.readAllBytes(Paths.get("/proc/self/statm"))).split(" ");
        return PAGE_KIB * Long.parseLong(pages[1]);
    }

    @Test
    public void whatIsClosedSaysSoAndMayBeClosedAgain() {
        Modem modem = new Modem();
        Receiver receiver = new Receiver();
        ByteBuffer buffer = ByteBuffer.allocateDirect(2 * Modem.FRAME_SAMPLES).order(ByteOrder.nativeOrder());
        receiver.push(buffer, 3);
        buffer.clear();
        for (int i = 0; i < 2; ++i) {
            modem.close();
            receiver.close();
        }
        List<Runnable> calls = new ArrayList<>();
        calls.add(() -> modem.encode("late"));
        calls.add(() -> modem.encode(new byte[28], buffer));
        calls.add(() -> receiver.push(new short[1], 1, 0));
        calls.add(() -> receiver.push(buffer, 0));
        calls.add(() -> receiver.pushInterleaved(buffer, 2));
        calls.add(receiver::finish);
        for (Runnable call : calls) {
            assertTrue(assertThrows(IllegalStateException.class, call::run).getMessage().endsWith(" is closed."));
            assertEquals(0, buffer.position());
        }
    }

    @Test
    public void aListenerMayCloseItsReceiver() {
        Receiver[] receiver = new Receiver[1];
        receiver[0] = new Receiver(new Receiver.Options().listener((message) -> receiver[0].close()));
        try (Modem modem = new Modem()) {
            List<Message> heard = receiver[0].push(modem.encode("last"), Modem.FRAME_SAMPLES, 0);
            assertEquals("last", heard.get(0).getText());
            assertThrows(IllegalStateException.class, receiver[0]::finish);
        }
    }

    @Test
    public void threadsShareWhatAnotherThreadCloses() throws InterruptedException, ExecutionException {
        ExecutorService threads = Executors.newFixedThreadPool(4);
        for (int round = 0; round < 30; ++round) {
            Modem modem = new Modem();
            Receiver receiver = new Receiver();
            List<Future<Integer>> results = new ArrayList<>();
            for (int channel = 0; channel < 3; ++channel) {
                int number = channel % 2; // two on one channel
                Callable<Integer> work = () -> {
                    int heard = 0;
                    try {
                        while (true) {
                            heard += receiver.push(modem.encode("together"), Modem.FRAME_SAMPLES, number).size();
                        }
                    } catch (IllegalStateException closed) {
                        return heard;
                    }
                };
                results.add(threads.submit(work));
            }
            Thread.sleep(20);
            Runnable first = round % 2 == 0 ? modem::close : receiver::close;
            first.run();
            for (Future<Integer> result : results) {
                result.get();
            }
            modem.close();
            receiver.close();
        }
        threads.shutdown();
    }

    @Test
    public void aMillionPushesAndManyForgottenReceiversLeaveNothing() throws IOException {
        Random random = new Random(1);
        short[] sound;
        try (Modem modem = new Modem()) {
            sound = modem.encode("again");
        }
        ByteBuffer noise = ByteBuffer.allocateDirect(2 * BLOCK).order(ByteOrder.nativeOrder());
        for (int i = 0; i < BLOCK; ++i) {
            noise.putShort((short) (100 * random.nextGaussian()));
        }
        int framesEvery = 10_000;
        int messages = 0;
        long before = 0;
        try (Receiver receiver = new Receiver()) {
            for (int push = 0; push < PUSHES + PUSHES / 10; ++push) {
                if (push == PUSHES / 10) { // what the virtual machine compiles and keeps, it has by now
                    messages = 0;
                    before = residentKib();
                }
                noise.clear();
                messages += receiver.push(noise, 0).size();
                if (push % framesEvery == framesEvery / 2) {
                    messages += receiver.push(sound, sound.length, 0).size();
                    new Receiver().push(sound, BLOCK, 0); // forgotten
                    System.gc();
                }
            }
        }
        assertEquals(PUSHES / framesEvery, messages);
        long grown = residentKib() - before;
        assertTrue("grew by " + grown + " KiB", grown < GROWTH_KIB);
    }
}
