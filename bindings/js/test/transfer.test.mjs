// Files and long text in node: payloads into sound, through loss and strangers, and back; held against the known answers.
import assert from "node:assert/strict";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { test } from "node:test";
import { xsalsa20poly1305 } from "../../../web/node_modules/@noble/ciphers/salsa.js";
import { scryptAsync } from "../../../web/node_modules/@noble/hashes/scrypt.js";
import { sealing } from "../../../build/web/kosc/sealing.js";
import { kosc, makeNoise, readWav, runPython, runTool, temporary, writeWav } from "../../../web/test/sounds.mjs";

const { encode, encodeTogether, KoscError, Receiver, safeName, TransferCollector, TransferSender, wideBands } = kosc;
const { keyFromFile, keyFromPassphrase, Opener, sealer } = sealing({ xsalsa20poly1305, scryptAsync });
const readJson = (path) => JSON.parse(readFileSync(new URL(path, import.meta.url)));
const vectors = readJson("../../../tests/vectors/transfer.json");
const fromHex = (hex) => Uint8Array.from(Buffer.from(hex, "hex"));
const toHex = (data) => Buffer.from(data).toString("hex");
const KEY = Uint8Array.from({ length: 32 }, (_, i) => i);

const messagesOf = (sender, start = 0, count = sender.round) => Array.from({ length: count }, (_, i) => sender.message(start + i));
const collect = (messages, collector = new TransferCollector()) =>
    messages.map((message) => collector.take(message)).filter(({ state }) => state !== "progress" && state !== "repeated");

test("sends and takes the messages of the known answers", () => {
    for (const { name, length, kind, nonce, id, needed, messages } of vectors.transfers) {
        const data = Uint8Array.from({ length }, (_, i) => i * i + 7 * i);
        if (kind === 0) {
            const sender = new TransferSender(data, { nonce });
            assert.deepEqual(messages.map(({ index }) => toHex(sender.message(index))), messages.map(({ hex }) => hex), name);
            assert.deepEqual([sender.needed, sender.round], [needed, needed + Math.ceil(needed / 2) + 4]);
        }
        const collector = new TransferCollector();
        const events = messages.map(({ hex }) => collector.take(fromHex(hex)));
        assert.ok(events.every((event) => event.id === id && event.needed === needed), name);
        const finished = events.filter(({ payload }) => payload !== null);
        assert.equal(finished.length, needed < 4 ? 1 : 0, name);
        finished.forEach(({ payload }) => assert.deepEqual(payload,
            { kind: ["bytes", "text"][kind], data, text: null, name: null, sealedAt: null }));
    }
});

test("seals and opens the payloads of the known answers", async () => {
    for (const { name, passphrase, key: keyHex, nonce, time, kind, content, payload } of vectors.sealed) {
        const key = fromHex(keyHex);
        if (passphrase) {
            assert.equal(toHex(await keyFromPassphrase(passphrase)), keyHex);
        }
        const fixed = { now: () => time + 0.5, nonce: () => fromHex(nonce) };
        assert.equal(toHex(sealer(key, fixed)(fromHex(content), kind)), payload, name);
        const early = { now: () => time - 60 };
        const opener = new Opener(key, { window: 60, ...early });
        const opened = opener.open(fromHex(payload), kind + 128);
        assert.deepEqual([toHex(opened.content), opened.sealedAt], [content, time]);
        for (const [by, bytes, as, reason] of [
            [opener, payload, kind + 128, /taken before/], [new Opener(key, { window: 59, ...early }), payload, kind + 128, /60 s from now/],
            [new Opener(key, { window: null }), payload, kind + 129, /something else/],
            [new Opener(key), payload.replace(/.$/, (digit) => (digit === "0" ? "1" : "0")), kind + 128, /forged/],
            [new Opener(KEY.map((byte) => byte ^ 1)), payload, kind + 128, /another key/], [opener, payload.slice(0, 96), kind + 128, /short/],
        ]) {
            assert.throws(() => by.open(fromHex(bytes), as), (error) => error instanceof KoscError && reason.test(error.message));
        }
    }
    for (const file of [KEY, Buffer.from(toHex(KEY)), Buffer.from(`${toHex(KEY).toUpperCase()}\r\n`)]) {
        assert.equal(toHex(keyFromFile(Uint8Array.from(file))), toHex(KEY));
    }
    assert.throws(() => keyFromFile(Buffer.from(`${toHex(KEY)}\n\n`)), /32 bytes or 64 hexadecimal/);
});

test("a file and a text come through sound with losses, a late start and each other", () => {
    const normal = makeNoise(17);
    const data = Uint8Array.from({ length: 1500 }, () => 100 * normal());
    const file = new TransferSender(data, { name: "Bild 1.png" });
    const text = new TransferSender("Grüße, länger als eine Nachricht.\n".repeat(20));
    for (const band of ["near-ultrasonic", "wide"]) {
        const collector = new TransferCollector();
        const states = new Map();
        const payloads = [];
        const receiver = new Receiver({
            band, onMessage: (message) => {
                const event = collector.take(message);
                states.set(event.state, (states.get(event.state) ?? 0) + 1);
                payloads.push(...(event.payload ? [event.payload] : []));
            },
        });
        const others = text.sound({ rounds: 2, start: 70, band, gap: 0.02 });
        let slot = 0;
        for (const block of file.sound({ rounds: 2, start: 1000, band, gap: 0.02 })) {
            const other = slot % 4 > 1 ? others.next().value : undefined; // every other one of them collides
            const both = block.map((sample, i) => (slot % 4 === 3 ? 0 : sample / 2) + (other?.[i] ?? 0) / 2);
            receiver.push(slot++ % 7 === 0 ? new Int16Array(block.length) : slot === 2 ? both.subarray(5000) : both);
        }
        receiver.push(encode("plain", { band: wideBands.at(-1) }));
        for (const block of others) {
            receiver.push(block);
        }
        receiver.finish();
        assert.deepEqual([...states.keys()].sort(), ["finished", "plain", "progress", "repeated"]);
        assert.deepEqual([states.get("plain"), states.get("finished")], [1, 2]);
        const [ofFile, ofText] = ["file", "text"].map((kind) => payloads.find((payload) => payload.kind === kind));
        assert.deepEqual(ofFile, { kind: "file", data, text: null, name: "Bild 1.png", sealedAt: null });
        assert.equal(ofText.text, "Grüße, länger als eine Nachricht.\n".repeat(20));
    }
});

test("six bands carry six messages in a frame that reaches full scale", () => {
    const texts = wideBands.map(({ lowHz }) => `at ${lowHz}`);
    const frame = encodeTogether(texts);
    assert.equal(frame.reduce((most, sample) => Math.max(most, Math.abs(sample)), 0), 32767);
    assert.deepEqual(kosc.inspect(frame, { band: "wide" }).map(({ text }) => text), texts);
    assert.deepEqual(encodeTogether(texts, { format: "float32" }), Float32Array.from(frame, (sample) => sample / 32768));
    assert.deepEqual(encodeTogether(["one"], { band: "voice" }), encode("one", { band: "voice" }));
});

test("with a key nothing else is given out", () => {
    const sealed = new TransferSender(fromHex("0102"), { name: "s.txt", seal: sealer(KEY) });
    const plain = new TransferSender("long ".repeat(20));
    const [finished] = collect(messagesOf(sealed), new TransferCollector({ opener: new Opener(KEY) }));
    assert.deepEqual([finished.payload.kind, toHex(finished.payload.data), finished.payload.name], ["file", "0102", "s.txt"]);
    assert.ok(Math.abs(finished.payload.sealedAt - Date.now() / 1000) < 60);
    for (const [options, sender, reason] of [
        [{}, sealed, "it is sealed, and there is no key"], [{ mostBytes: 50 }, sealed, "it is longer than is allowed"],
        [{ opener: new Opener(KEY.map(() => 1)) }, sealed, "another key sealed it, or it was forged"],
        [{ opener: new Opener(KEY) }, plain, "it is not sealed"], [{ mostBytes: 20 }, plain, "it is longer than is allowed"],
    ]) {
        const events = collect(messagesOf(sender), new TransferCollector(options));
        assert.ok(events.length > 0 && events.every((event) => event.state === "refused" && event.reason === reason), reason);
    }
    assert.equal(new TransferCollector({ opener: new Opener(KEY) }).take(new Uint8Array(28)).state, "refused");
});

test("what the command, Python or this package seals, each of the others opens", async () => {
    const data = Uint8Array.from({ length: 60 }, (_, i) => 7 * i * i);
    const [file, phrase] = ["Bild 1.png", "phrase"].map(temporary);
    writeFileSync(file, data);
    writeFileSync(phrase, "sechs Wörter\r\n");
    const key = await keyFromPassphrase("sechs Wörter");
    const sealedBy = {
        package: (wav) => {
            const sender = new TransferSender(data, { name: "Bild 1.png", seal: sealer(key) });
            writeWav(wav, Array.from(sender.sound(), (block) => Array.from(block)).flat(), 48000);
        },
    };
    const openedBy = {
        package: (wav) => {
            const messages = [];
            const receiver = new Receiver({ onMessage: (message) => messages.push(message) });
            receiver.push(readWav(temporary(wav)));
            receiver.finish();
            const [{ payload }] = collect(messages, new TransferCollector({ opener: new Opener(key) }));
            return [payload.name, payload.data];
        },
    };
    for (const [name, run] of [["command", runTool], ["Python", runPython]]) {
        sealedBy[name] = (wav) => run("encode", "--file", file, "--passphrase-file", phrase, "-o", temporary(wav));
        openedBy[name] = (wav) => {
            const folder = temporary(`${name} of ${wav}`);
            mkdirSync(folder);
            run("decode", temporary(wav), "--passphrase-file", phrase, "--save", folder);
            return ["Bild 1.png", Uint8Array.from(readFileSync(join(folder, "Bild 1.png")))];
        };
    }
    for (const [sender, seal] of Object.entries(sealedBy)) {
        seal(`${sender}.wav`);
        for (const [receiver, open] of Object.entries(openedBy)) {
            assert.deepEqual(open(`${sender}.wav`), ["Bild 1.png", data], `${sender} to ${receiver}`);
        }
    }
});

test("no name that is sent leads anywhere, and what cannot be sent is refused in a sentence", () => {
    const names = [...readJson("../../test/file_names.json"),
        [`${"ü".repeat(300)}.jpeg`, `${"ü".repeat(97)}.jpeg`], [`x.${"y".repeat(300)}`, `x.${"y".repeat(198)}`]];
    names.forEach(([sent, safe]) => assert.equal(safeName(sent), safe, sent));
    for (const [call, type, sentence] of [
        [() => new TransferSender(""), RangeError, /0 bytes long; 1 to 1048576/],
        [() => new TransferSender(new Uint8Array(1048577)), RangeError, /1048577 bytes long/],
        [() => new TransferSender(28), TypeError, /a string or a Uint8Array/],
        [() => new TransferSender("x", { name: "x" }), TypeError, /a Uint8Array for its contents/],
        [() => new TransferSender(KEY, { name: "ü".repeat(128) }), RangeError, /256 bytes long, the limit is 255/],
        [() => new TransferSender(KEY, { nonce: -1 }), RangeError, /32 bits/],
        [() => new TransferSender(KEY).message(0.5), RangeError, /32 bits/],
        [() => new TransferSender(KEY).sound({ band: "all" }).next(), RangeError, /telephone and voice overlap/],
        [() => encodeTogether(["a", "b"], { band: "voice" }), RangeError, /carry 1 to 1 messages/],
        [() => new TransferCollector({ mostBytes: 0 }), RangeError, /from 1 to 1048576/],
        [() => new TransferCollector().take(KEY), TypeError, /28 bytes/],
        [() => sealer(new Uint8Array(5)), TypeError, /32 bytes/],
    ]) {
        assert.throws(call, (error) => error.constructor === type && sentence.test(error.message), String(call));
    }
});
