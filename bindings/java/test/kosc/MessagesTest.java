package kosc;

import static org.junit.Assert.assertArrayEquals;
import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.google.gson.JsonArray;
import com.google.gson.JsonElement;
import com.google.gson.JsonObject;
import com.google.gson.JsonParser;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.ShortBuffer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Random;
import org.junit.Test;
import org.junit.function.ThrowingRunnable;

/** Messages to sound and back, known answers, and what is refused. */
public class MessagesTest {
    private static final Path VECTORS = Paths.get(System.getProperty("kosc.vectors"));

    private static JsonElement json(String name) throws IOException {
        return JsonParser.parseString(new String(Files.readAllBytes(VECTORS.resolve(name)), StandardCharsets.UTF_8));
    }

    private static short[] samples(String name) throws IOException {
        ShortBuffer file = ByteBuffer.wrap(Files.readAllBytes(VECTORS.resolve(name))).order(ByteOrder.LITTLE_ENDIAN).asShortBuffer();
        short[] samples = new short[file.remaining()];
        file.get(samples);
        return samples;
    }

    private static byte[] bytes(String hex) {
        byte[] bytes = new byte[hex.length() / 2];
        for (int i = 0; i < bytes.length; ++i) {
            bytes[i] = (byte) Integer.parseInt(hex.substring(2 * i, 2 * i + 2), 16);
        }
        return bytes;
    }

    private static ByteBuffer direct(short[] samples) {
        ByteBuffer buffer = ByteBuffer.allocateDirect(2 * samples.length).order(ByteOrder.nativeOrder());
        buffer.asShortBuffer().put(samples);
        return buffer;
    }

    @Test
    public void framesAreTheKnownOnes() throws IOException {
        for (String name : new String[] {"frame_count", "frame_random1"}) {
            byte[] message = bytes(json(name + ".json").getAsJsonObject().get("message").getAsString());
            try (Modem modem = new Modem()) {
                assertArrayEquals(name, samples(name + ".s16"), modem.encode(message));
                ByteBuffer frame = ByteBuffer.allocateDirect(2 * Modem.FRAME_SAMPLES + 4).order(ByteOrder.nativeOrder());
                frame.position(2);
                modem.encode(message, frame);
                assertEquals(2, frame.remaining());
                frame.position(2);
                assertEquals(ShortBuffer.wrap(samples(name + ".s16")), frame.slice().order(ByteOrder.nativeOrder()).asShortBuffer().limit(Modem.FRAME_SAMPLES));
            }
        }
    }

    @Test
    public void recordingsGiveTheKnownMessagesHoweverTheyAreCut() throws IOException {
        for (Map.Entry<String, JsonElement> each : json("recordings.json").getAsJsonObject().entrySet()) {
            if (!each.getValue().isJsonObject()) {
                continue;
            }
            JsonObject recording = each.getValue().getAsJsonObject();
            short[] sound = samples(recording.get("file").getAsString());
            for (int block : new int[] {480, 4096, 11520}) {
                JsonArray expected = recording.getAsJsonObject("results").getAsJsonObject("" + block).getAsJsonArray("messages");
                try (Receiver arrays = new Receiver(new Receiver.Options().secondLook(false));
                        Receiver buffers = new Receiver(new Receiver.Options().secondLook(false))) {
                    List<Message> heard = new ArrayList<>();
                    List<Message> heardDirect = new ArrayList<>();
                    ByteBuffer whole = direct(sound);
                    for (int start = 0; start < sound.length; start += block) {
                        int end = Math.min(start + block, sound.length);
                        heard.addAll(arrays.push(Arrays.copyOfRange(sound, start, end), end - start, 7));
                        whole.limit(2 * end);
                        heardDirect.addAll(buffers.push(whole, 0));
                        assertEquals(2 * end, whole.position());
                    }
                    String what = each.getKey() + " in blocks of " + block;
                    assertEquals(what, expected.size(), heard.size());
                    assertEquals(what, expected.size(), heardDirect.size());
                    for (int i = 0; i < expected.size(); ++i) {
                        assertArrayEquals(what, bytes(expected.get(i).getAsString()), heard.get(i).getData());
                        assertArrayEquals(what, heard.get(i).getData(), heardDirect.get(i).getData());
                        assertEquals(7, heard.get(i).getChannel());
                        assertTrue(Double.isNaN(heard.get(i).getSnrDb()));
                    }
                }
            }
        }
    }

    @Test
    public void textIsWhatOtherHostsCallText() throws IOException {
        try (Modem modem = new Modem(); Receiver receiver = new Receiver()) {
            for (JsonElement each : json("texts.json").getAsJsonArray()) {
                JsonElement text = each.getAsJsonArray().get(1);
                byte[] message = bytes(each.getAsJsonArray().get(0).getAsString());
                List<Message> heard = new ArrayList<>(receiver.push(modem.encode(message), Modem.FRAME_SAMPLES, 0));
                heard.addAll(receiver.finish());
                assertEquals(1, heard.size());
                assertEquals(each.toString(), text.isJsonNull() ? null : text.getAsString(), heard.get(0).getText());
                if (!text.isJsonNull()) {
                    assertArrayEquals(modem.encode(message), modem.encode(text.getAsString()));
                }
            }
        }
    }

    @Test
    public void noisyMessagesOnSeveralBandsAndChannelsComeWithTheirFigures() {
        Random random = new Random(18);
        int start = 30000;
        List<Band> bands = new ArrayList<>(Band.all());
        bands.add(Band.find(9000)); // without a name
        short[] sound = new short[2 * (start + 3 * Modem.FRAME_SAMPLES)];
        for (int i = 0; i < sound.length; ++i) {
            sound[i] = (short) (300 * random.nextGaussian());
        }
        for (int i = 0; i < bands.size(); ++i) {
            try (Modem modem = new Modem(new Modem.Options().band(bands.get(i)))) {
                short[] frame = modem.encode("in " + bands.get(i));
                for (int at = 0; at < frame.length; ++at) {
                    sound[2 * (start + at) + i % 2] += frame[at] / 12;
                }
            }
        }
        List<Message> told = new ArrayList<>();
        Receiver.Options options = new Receiver.Options().bands(bands).listener(told::add);
        try (Receiver receiver = new Receiver(options); Receiver copying = new Receiver(options)) {
            List<Message> heard = new ArrayList<>(receiver.pushInterleaved(direct(sound), 2));
            heard.addAll(receiver.finish());
            assertEquals(told, heard);
            List<Message> again = new ArrayList<>(copying.pushInterleaved(sound, sound.length / 2, 2));
            again.addAll(copying.finish());
            assertEquals(again.toString(), heard.toString());
            assertEquals(bands.size(), heard.size());
            for (Message message : heard) {
                assertEquals("in " + message.getBand(), message.getText());
                assertEquals(bands.indexOf(message.getBand()) % 2, message.getChannel());
                assertEquals((double) start / Modem.SAMPLE_RATE, message.getTime(), 2e-4);
                assertEquals(0, message.getDriftPpm(), 20);
                assertTrue(message.toString(), message.getSnrDb() > 5 && message.getSnrDb() < 40 && message.getCorrelation() > 0.5);
                assertTrue(message.getEvm() < 0.5 && message.getCoherence() > 0.5);
                assertFalse(message.isSecondLookNeeded() || message.getFailedCrcs() != 0);
            }
        }
    }

    @Test
    public void repeatsTooWeakAloneArePutTogetherOfOneMicrophoneAndOfTwo() {
        Random random = new Random(15);
        int[] starts = {20000, 36000, 52000};
        short[] sound = new short[2 * (starts[2] + Modem.FRAME_SAMPLES + 11)];
        try (Modem modem = new Modem()) {
            short[] frame = modem.encode("again");
            double power = 0;
            for (short sample : frame) {
                power += Math.pow(sample / 10, 2) / frame.length;
            }
            double noise = Math.sqrt(power * 8 / Math.pow(10, -0.4)); // in band -4 dB
            for (int i = 0; i < sound.length; ++i) {
                sound[i] = (short) (noise * random.nextGaussian());
            }
            for (int start : starts) {
                for (int at = 0; at < 2 * frame.length; ++at) {
                    sound[2 * (start + at / 2 + 11 * (at % 2)) + at % 2] += frame[at / 2] / 10;
                }
            }
        }
        for (Receiver.Combine how : Receiver.Combine.values()) {
            try (Receiver receiver = new Receiver(new Receiver.Options().recording(true).combine(how))) {
                List<Message> heard = new ArrayList<>(receiver.pushInterleaved(sound, sound.length / 2, 2));
                heard.addAll(receiver.finish());
                int microphones = how.ordinal();
                assertEquals(how.toString(), microphones == 0 ? 0 : 2 / microphones, heard.size());
                for (Message message : heard) {
                    Combined combined = message.getCombined();
                    assertEquals("again", message.getText());
                    assertEquals(microphones, combined.getMicrophones());
                    assertTrue(combined.toString(), combined.getFrames() <= 3 && combined.getHearings() >= combined.getFrames());
                    assertEquals(-4, combined.getNewestSnrDb(), 2.5);
                    assertEquals(combined.getSnrDb(), message.getSnrDb(), 0);
                    assertEquals(20000 + 16000 * (combined.getFrames() - 1), message.getTime() * Modem.SAMPLE_RATE, 16020);
                }
            }
        }
    }

    @Test
    public void framesThatOverlapAreBothHeardWhereACrowdIsExpected() {
        short[] sound = new short[80000];
        Random random = new Random(16);
        try (Modem modem = new Modem()) {
            short[] loud = modem.encode("loud");
            short[] faint = modem.encode("faint");
            for (int i = 0; i < sound.length; ++i) {
                sound[i] = (short) (100 * random.nextGaussian());
            }
            for (int i = 0; i < loud.length; ++i) {
                sound[24000 + i] += 0.3 * loud[i];
                sound[27840 + i] += 0.12 * faint[i];
            }
        }
        for (boolean crowd : new boolean[] {false, true}) {
            try (Receiver receiver = new Receiver(new Receiver.Options().crowd(crowd))) {
                StringBuilder heard = new StringBuilder();
                for (Message message : receiver.push(sound, sound.length, 0)) {
                    heard.append(Math.round(message.getTime() * 1000)).append(' ').append(message.getText()).append(' ');
                }
                assertEquals(crowd ? "500 loud 580 faint " : "500 loud ", heard.toString());
            }
        }
    }

    @Test
    public void aRecordingThatLacksAFramesBeginningYieldsIt() {
        int cut = 60;
        try (Modem modem = new Modem(); Receiver receiver = new Receiver(new Receiver.Options().recording(true))) {
            short[] frame = modem.encode("cut");
            short[] rest = Arrays.copyOfRange(frame, cut, frame.length);
            List<Message> heard = new ArrayList<>(receiver.push(rest, rest.length, 0));
            heard.addAll(receiver.finish());
            assertEquals("cut", heard.get(0).getText());
            assertEquals((double) -cut / Modem.SAMPLE_RATE, heard.get(0).getTime(), 1e-4);
        }
    }

    private static void refused(String sentence, ThrowingRunnable call) {
        Exception refusal = assertThrows(RuntimeException.class, call);
        assertTrue(refusal.toString(), refusal.getMessage().contains(sentence));
        assertTrue(refusal instanceof IllegalArgumentException || refusal instanceof NullPointerException);
    }

    @Test
    public void badInputIsRefusedInASentence() {
        try (Modem modem = new Modem(); Receiver receiver = new Receiver()) {
            short[] block = new short[480];
            ByteBuffer good = ByteBuffer.allocateDirect(962).order(ByteOrder.nativeOrder());
            refused("29 bytes long, the limit is 28", () -> modem.encode(new byte[29]));
            refused("where the message should be", () -> modem.encode((byte[]) null));
            refused("half of a surrogate pair", () -> modem.encode("\ud83d"));
            refused("takes 23040 bytes, the buffer has 962", () -> modem.encode(new byte[28], good));
            refused("may only be read", () -> modem.encode(new byte[28], good.asReadOnlyBuffer().order(ByteOrder.nativeOrder())));
            refused("is not direct", () -> receiver.push(ByteBuffer.allocate(960), 0));
            refused("byte order is not", () -> receiver.push(good.duplicate().order(
                good.order() == ByteOrder.BIG_ENDIAN ? ByteOrder.LITTLE_ENDIAN : ByteOrder.BIG_ENDIAN), 0));
            refused("no multiple of 4", () -> receiver.pushInterleaved(good, 2));
            refused("not at an even address", () -> {
                ByteBuffer odd = good.duplicate().order(ByteOrder.nativeOrder());
                odd.position(1).limit(961);
                receiver.push(odd, 0);
            });
            refused("where the buffer should be", () -> receiver.push(null, 0));
            refused("where the samples should be", () -> receiver.push(null, 0, 0));
            refused("The count is 481, the array has samples for 0 to 480", () -> receiver.push(block, 481, 0));
            refused("The count is -1", () -> receiver.push(block, -1, 0));
            refused("samples for 0 to 160", () -> receiver.pushInterleaved(block, 161, 3));
            refused("from 0 to 7, not 8", () -> receiver.push(block, 480, 8));
            refused("from 0 to 7, not -1", () -> receiver.push(good, -1));
            refused("1 to 8 channels, not 0", () -> receiver.pushInterleaved(block, 1, 0));
            refused("no band is called loud; a band is telephone", () -> Band.find("loud"));
            refused("no band is called ????", () -> new Modem.Options().band("🔊\0"));
            refused("250 and 23500 Hz", () -> Band.find(23000));
            refused("1 to 16 bands, not 0", () -> new Receiver.Options().band(new Band[0]));
            refused("where a band should be", () -> new Receiver.Options().band((Band) null));
            refused("where the way to combine should be", () -> new Receiver.Options().combine(null));
            refused("crowd needs the second look", () -> new Receiver(new Receiver.Options().secondLook(false).crowd(true)));
            refused("where the options should be", () -> new Receiver(null));
            good.limit(960);
            assertEquals(0, receiver.push(good, 0).size()); // and goes on
        }
    }
}
