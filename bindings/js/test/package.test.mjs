// The package in node, held against the known answers and the native encoder.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { gzipSync } from "node:zlib";
import { kosc, nativeFrame, nativeMessages, noisyRecording, writeWav } from "../../../web/test/sounds.mjs";

const { bands, encode, inspect, KoscError, Receiver } = kosc;
const vectors = new URL("../../../tests/vectors/", import.meta.url);
const read = (name) => readFileSync(new URL(name, vectors));
const readJson = (name) => JSON.parse(read(name));
const readSound = (name) => new Int16Array(Uint8Array.from(read(name)).buffer);
const fromHex = (hex) => Uint8Array.from(Buffer.from(hex, "hex"));
const toHex = (data) => Buffer.from(data).toString("hex");

function assertWithinOneStep(frame, expected) {
    assert.equal(frame.length, expected.length);
    const step = frame.reduce((most, sample, i) => Math.max(most, Math.abs(sample - expected[i])), 0);
    assert.ok(step <= 1, `the sample that differs most does by ${step}`);
}

test("frames are those of the known answers and of the native encoder, to one step of the last bit", () => {
    for (const name of ["frame_count", "frame_random1"]) {
        assertWithinOneStep(encode(fromHex(readJson(`${name}.json`).message)), readSound(`${name}.s16`));
    }
    for (const text of ["", "hello", "äöü ⌘ is 28 bytes 😀."]) {
        const message = Buffer.from(text);
        assertWithinOneStep(encode(text), nativeFrame(message.toString("hex")));
        assertWithinOneStep(encode(text, { format: "float32" }).map((s) => s * 32768), encode(Uint8Array.from(message)));
    }
});

test("a message is text here just when it is text to the command", () => {
    const frames = readJson("texts.json").map(([hex]) => encode(fromHex(hex)));
    const sound = Int16Array.from(frames.flatMap((frame) => [...frame, ...new Int16Array(2000)]));
    const expected = readJson("texts.json").map(([, text]) => text);
    assert.deepEqual(inspect(sound).map(({ text }) => text), expected);
    assert.deepEqual(nativeMessages(writeWav("texts.wav", sound, 48000)), expected);
});

test("recordings give the messages of the known answers, in the same calls, however they are cut", () => {
    const { cycle, ...recordings } = readJson("recordings.json");
    for (const [name, { file, results }] of Object.entries(recordings)) {
        const sound = readSound(file);
        for (const [cutting, { messages, calls }] of Object.entries(results)) {
            const sizes = { whole: [sound.length], cycle }[cutting] ?? [Number(cutting)];
            const receiver = new Receiver({ secondLook: false });
            const heard = [];
            for (let at = 0, call = 0; at < sound.length; at += sizes[call++ % sizes.length]) {
                const block = sound.subarray(at, at + sizes[call % sizes.length]);
                receiver.push(block).forEach((message) => heard.push([toHex(message.data), call]));
            }
            assert.deepEqual(heard, messages.map((message, i) => [message, calls[i]]), `${name} cut ${cutting}`);
        }
    }
});

test("the second look hears what is lost without, and its figures tell the noise", () => {
    const levels = [0.03, 0.003, 0.0015];
    const sound = Int16Array.from(noisyRecording(4, levels.map((gain, i) => ({ text: `gain ${gain}`, at: 0.5 + i, gain })), 60));
    const frames = inspect(sound);
    const readable = frames.filter(({ decoded }) => decoded);
    assert.deepEqual(readable.map(({ text, secondLookNeeded }) => [text, secondLookNeeded]),
        [["gain 0.03", false], ["gain 0.003", true]]);
    assert.deepEqual(readable.map(({ time }) => Math.round(time * 1000)), [500, 1500]);
    const [loud, faint] = readable;
    // 20 dB apart, each estimated from one frame.
    assert.ok(Math.abs(loud.snrDb - faint.snrDb - 20) < 2, `${loud.snrDb} dB, ${faint.snrDb} dB`);
    assert.ok(Math.abs(loud.driftPpm) < 5 && loud.evm < faint.evm && loud.coherence > faint.coherence);

    const plain = new Receiver({ secondLook: false });
    assert.deepEqual(plain.push(sound).map(({ text, snrDb }) => [text, snrDb]), [["gain 0.03", null]]);
});

test("repeats too weak alone are put together, of one microphone and of two", () => {
    const repeats = (seed) => Int16Array.from(noisyRecording(2, [0.5, 0.85, 1.2].map((at) => ({ text: "again", at, gain: 0.1 })), 2776, seed)); // -4 dB
    const microphones = [repeats(2026), repeats(15)];
    for (const [combine, expected] of [[false, []], ["each", [[0, 1], [1, 1]]], ["together", [[1, 2]]]]) {
        const heard = [];
        const receiver = new Receiver({ combine, recording: true, onMessage: (message) => heard.push(message) });
        for (let at = 0; at < microphones[0].length; at += 4096) {
            microphones.forEach((sound, channel) => receiver.push(sound.subarray(at, at + 4096), channel));
        }
        [0, 1].forEach((channel) => receiver.finish(channel));
        assert.deepEqual(heard.map(({ combined }) => combined.microphones), expected.map(([, count]) => count), combine);
        for (const { text, time, snrDb, evm, combined } of heard) {
            assert.ok(text === "again" && combined.frames <= 3 && combined.hearings >= combined.frames, JSON.stringify(combined));
            assert.ok([0.5, 0.85, 1.2].some((at) => Math.abs(time - at) < 1e-3) && Math.abs(combined.newestSnrDb + 4) < 2.5);
            assert.ok(snrDb === combined.snrDb && evm === null && Math.abs(combined.driftPpm) < 200);
        }
    }
    assert.ok(inspect(microphones[0], { combine: "each" }).some(({ text, combined }) => text === "again" && combined));
});

test("frames that overlap are both heard where a crowd is expected", () => {
    const loudAndFaint = [{ text: "loud", at: 0.5, gain: 0.3 }, { text: "faint", at: 0.58, gain: 0.12 }];
    const sound = Int16Array.from(noisyRecording(2, loudAndFaint, 100));
    const heard = (crowd) => inspect(sound, { crowd }).filter(({ decoded }) => decoded).map(({ text, time }) => [text, time.toFixed(3)]);
    assert.deepEqual(heard(true), [["loud", "0.500"], ["faint", "0.580"]]);
    assert.deepEqual(heard(false), [["loud", "0.500"]]);
});

test("all bands carry their messages at the same moment, and each says which it was", () => {
    const unnamed = kosc.findBand(9500);
    const places = [...bands, unnamed];
    const sound = new Int16Array(30000);
    for (const band of places) {
        encode(`at ${band.lowHz}`, { band }).forEach((sample, i) => (sound[9000 + i] += sample / (2 * places.length)));
    }
    const named = bands.map(({ name }) => name);
    for (const [options, expected] of [
        [{}, [kosc.defaultBand]], [{ band: "all" }, bands], ...places.map((band) => [{ band: band.lowHz }, [band]]),
        [{ band: ["9500", ...named, places[0]] }, [unnamed, ...bands]],
    ]) {
        const heard = inspect(sound, options).map(({ text, band, sample }) => [text, band, sample]);
        assert.deepEqual(heard, expected.map((band) => [`at ${band.lowHz}`, band, 9000]), JSON.stringify(options));
    }
});

test("a frame is found whose first samples a recording lacks", () => {
    const receiver = new Receiver({ recording: true });
    const heard = [...receiver.push(encode("cut").subarray(1), 3), ...receiver.finish(3), ...inspect(encode("cut").subarray(100))];
    assert.deepEqual(heard.map(({ text, sample }) => [text, sample]), [["cut", -1], ["cut", -100]]);
});

test("receivers and channels are independent, and callbacks may call the receiver", () => {
    const [left, right] = ["left", "right"].map((text) => encode(text, { format: "float32" }));
    const heard = [];
    const receiver = new Receiver({
        onMessage: ({ text, channel }) => {
            heard.push([text, channel]);
            if (text === "left") {
                receiver.push(right.subarray(6000), 7);
                receiver.finish(7);
                receiver.close();
            }
        },
    });
    receiver.push(right.subarray(0, 6000), 7);
    assert.deepEqual(new Receiver().push(left).map(({ text }) => text), ["left"]);
    receiver.push(left);
    assert.deepEqual(heard, [["left", 0], ["right", 7]]);
    assert.throws(() => receiver.push(left), KoscError);
});

test("log lines go to the callback alone, from the level asked for on", () => {
    for (const [logLevel, levels] of [["debug", ["DEBUG", "INFO"]], ["info", ["INFO"]], ["error", []], ["off", []]]) {
        const lines = [];
        new Receiver({ onLog: (line) => lines.push(line), logLevel }).push(encode("x"));
        assert.deepEqual([...new Set(lines.map((line) => line.split(/[[\]]+/)[1]))].sort(), levels);
    }
});

test("what cannot be is refused in a sentence, and nothing is lost", () => {
    const receiver = new Receiver();
    receiver.push(encode("still here").subarray(0, 5000));
    const closed = new Receiver();
    closed.close();
    const cases = [
        [() => encode("a".repeat(29)), RangeError, /29 bytes long, the limit is 28/],
        [() => encode("\ud800"), TypeError, /surrogate/],
        [() => encode(28), TypeError, /a string or a Uint8Array/],
        [() => encode("x", { format: "mp3" }), RangeError, /int16 or float32/],
        [() => encode("x", { band: "radio" }), RangeError, /^no band is called radio; a band is .*in Hz$/],
        [() => encode("x", { band: "all" }), RangeError, /^no band is called all/],
        [() => encode("x", { band: bands.map(({ name }) => name) }), TypeError, /a name, where it begins/],
        [() => inspect(new Int16Array(1), { band: 23000 }), RangeError, /does not lie between 250 and 23500 Hz/],
        [() => new Receiver({ band: [] }), RangeError, /1 to 16 bands, not 0/],
        [() => new Receiver({ combine: true }), RangeError, /each, together or false/],
        [() => new Receiver({ crowd: true, secondLook: false }), RangeError, /needs the second look/],
        [() => receiver.push([1, 2, 3]), TypeError, /Int16Array or a Float32Array/],
        [() => receiver.push(new Int16Array(1), 8), RangeError, /from 0 to 7/],
        [() => receiver.push(new Int16Array(1), 0.5), RangeError, /from 0 to 7/],
        [() => inspect("x"), TypeError, /Int16Array or a Float32Array/],
        [() => new Receiver({ onMessage: 1 }), TypeError, /onMessage is a function/],
        [() => new Receiver({ logLevel: "loud" }), RangeError, /logLevel is one of/],
        [() => closed.push(new Int16Array(1)), KoscError, /closed/],
    ];
    for (const [call, type, sentence] of cases) {
        assert.throws(call, (error) => error.constructor === type && sentence.test(error.message), String(call));
    }
    assert.deepEqual(receiver.push(new Int16Array(0)), []);
    assert.deepEqual(receiver.push(encode("still here").subarray(5000)).map(({ text }) => text), ["still here"]);
});

test("samples beyond full scale are clipped, and those that are no numbers are silence", () => {
    const frame = encode("too loud");
    const loud = Int16Array.from(frame, (sample) => Math.min(Math.max(2 * sample, -32768), 32767));
    const samples = Float32Array.from(frame, (sample) => sample / 16384);
    [[1000, NaN, 0], [2000, Infinity, 32767], [3000, -Infinity, -32768]].forEach(([i, given, taken]) => {
        samples[i] = given;
        loud[i] = taken;
    });
    assert.deepEqual(inspect(samples), inspect(loud));
});

test("the package states the library's version, and its module stays under 100 kB compressed", () => {
    const { version } = JSON.parse(readFileSync(new URL("../package.json", import.meta.url)));
    assert.equal(kosc.version, version);
    const module = readFileSync(new URL("../../../build/web/kosc/kosc.wasm", import.meta.url));
    assert.ok(gzipSync(module, { level: 9 }).length < 100_000);
});
