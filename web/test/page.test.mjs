// The page in a real browser, held against the native tool.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { Resampler } from "../resampler.js";
import { withPage } from "./browser.mjs";
import { kosc, makeNoise, nativeMessages, noisyRecording, temporary, writeWav } from "./sounds.mjs";

const FAKE_RATE = 44100; // of Chromium's fake microphone, which converts other files badly

function resample(sound, from, to) {
    const resampler = new Resampler(from, to);
    return Float32Array.from([resampler.push(sound), resampler.finish()].flatMap((part) => Array.from(part)));
}

const tone = (frequency, rate) => Float32Array.from({ length: rate / 10 }, (_, i) => Math.sin((2 * Math.PI * frequency * i) / rate));

// Ten frames, the last three at the edge of what can be heard and below.
const tenFrames = Array.from({ length: 10 }, (_, i) => ({ text: `frame ${i}`, at: 0.4 + 0.5 * i, gain: i < 7 ? 0.08 : 0.08 / 2 ** i }));
const tenFramesSound = resample(noisyRecording(6, tenFrames), 48000, FAKE_RATE);
const tenFramesFile = writeWav("ten.wav", tenFramesSound, FAKE_RATE);

const texts = (page, list) => page.locator(`${list} .text`).allTextContents();
const status = (page, id, pattern) => page.locator(id).filter({ hasText: pattern }).waitFor();

test("the resampler keeps the band to a thousandth, and images and aliases out of it", () => {
    for (const [from, to, frequency, kept] of [
        [44100, 48000, 18000, true], [44100, 48000, 20950, true], [96000, 48000, 20950, true], [48000, 44100, 20950, true],
        [96000, 48000, 28000, false], [88200, 48000, 30000, false],
    ]) {
        const output = resample(tone(frequency, from), from, to).subarray(200, to / 10 - 200);
        const expected = kept ? tone(frequency, to).subarray(200, to / 10 - 200) : output.map(() => 0);
        const error = output.reduce((most, sample, i) => Math.max(most, Math.abs(sample - expected[i])), 0);
        assert.ok(error < 1e-3, `${frequency} Hz from ${from} to ${to} Hz: ${error}`);
    }
});

for (const [rate, refuse] of [[FAKE_RATE, 0], [48000, FAKE_RATE]]) {
    test(`a context of ${rate} Hz hears all that the native receiver decodes`, async () => {
        const expected = nativeMessages(tenFramesFile);
        assert.ok(expected.length >= 7 && expected.length < 10, `the recording is for a verdict: ${expected}`);
        const prepare = (refused) => {
            const Context = window.AudioContext;
            window.AudioContext = function (options) {
                return new Context({ ...options, sampleRate: options.sampleRate === refused ? 48000 : options.sampleRate });
            };
        };
        await withPage({ microphone: tenFramesFile, prepare, argument: refuse }, async (page) => {
            await page.getByRole("button", { name: "Start listening" }).press("Enter");
            await status(page, "#listen-status", `Listening at ${rate / 1000} kHz`);
            for (const text of expected) {
                await page.locator("#messages li").filter({ hasText: text }).first().waitFor();
            }
            const row = await page.locator("#messages li").first().textContent();
            assert.match(row, /^frame \d\d?\d?:.*SNR \d+\.\d dB.*drift [+-]?\d+ ppm/);
            assert.match(await page.getByRole("row", { name: "Sample rate" }).textContent(), /48 kHz44\.1 kHz.*not what was asked/i);
            assert.match(await page.getByRole("row", { name: "Noise" }).textContent(), /offoff$/);
            await page.getByRole("button", { name: "Stop listening" }).press("Enter");
            await status(page, "#listen-status", /Stopped: \d+ messages/);
        });
    });
}

test("what the page plays is what the native receiver hears", async () => {
    const prepare = () => {
        window.AudioContext = class extends OfflineAudioContext {
            constructor({ sampleRate }) {
                super(1, sampleRate, sampleRate);
            }
            async resume() {
                this.startRendering().then((sound) => (window.played = sound));
            }
            async close() {}
        };
    };
    await withPage({ prepare }, async (page) => {
        await page.getByRole("textbox", { name: "Message" }).fill("Grüße aus dem Browser 🔊");
        await page.keyboard.press("Enter");
        await status(page, "#send-status", "Sent");
        const samples = await page.evaluate(() => Array.from(window.played.getChannelData(0)));
        const file = writeWav("sent.wav", samples.map((sample) => Math.round(32768 * sample)), 48000);
        assert.deepEqual(nativeMessages(file), ["Grüße aus dem Browser 🔊"]);

        await page.getByRole("textbox", { name: "Message" }).fill("x".repeat(29));
        await page.getByRole("button", { name: "Send" }).click();
        await status(page, "#send-status", "29 bytes long, the limit is 28");
    });
});

async function drop(page, file, name) {
    const transfer = await page.evaluateHandle(([base64, fileName]) => {
        const data = new DataTransfer();
        data.items.add(new File([Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0))], fileName));
        return data;
    }, [readFileSync(file).toString("base64"), name]);
    await page.dispatchEvent("body", "drop", { dataTransfer: transfer });
}

test("a dropped recording shows its messages, and a file that is none says so", async () => {
    const stereo = Float32Array.from({ length: 2 * tenFramesSound.length }, (_, i) => (i % 2 ? tenFramesSound[i >> 1] : 0));
    const file = writeWav("stereo.wav", stereo, FAKE_RATE, 2);
    await withPage({}, async (page) => {
        await drop(page, file, "stereo.wav");
        await status(page, "#file-status", /stereo\.wav, 6\.0 s: \d messages/);
        const heard = await texts(page, "#found");
        assert.deepEqual(nativeMessages(file).filter((text) => !heard.includes(text)), []);
        assert.match(await page.locator("#found .time").first().textContent(), /^0\.40\d s, channel 2$/);
        for (const [name, reason] of [["page.test.mjs", "no sound file"], [writeWav("low.wav", [0, 0], 22050), "44.1 kHz or more"]]) {
            await page.locator("#file").setInputFiles(name.includes("/") ? name : new URL(name, import.meta.url).pathname);
            await status(page, "#file-status", reason);
        }
    });
});

test("a refused microphone is said in a sentence, and sending still works", async () => {
    await withPage({}, async (page) => {
        await page.getByRole("button", { name: "Start listening" }).click();
        await status(page, "#listen-status", "may not use the microphone");
        await page.getByRole("textbox", { name: "Message" }).fill("still here");
        await page.getByRole("button", { name: "Send" }).click();
        await status(page, "#send-status", "Sent “still here”.");
    });
});

test("a device that hears itself passes the check and hears its own message; a deaf one is told", async () => {
    const normal = makeNoise(5);
    const silence = writeWav("quiet.wav", Float32Array.from({ length: FAKE_RATE }, () => 20 * normal()), FAKE_RATE);
    const hearItself = () => {
        const air = new AudioContext({ sampleRate: 48000 }).createMediaStreamDestination();
        const connect = AudioNode.prototype.connect;
        AudioNode.prototype.connect = function (target, ...rest) {
            if (target === this.context.destination) {
                const copy = this.context.createMediaStreamDestination();
                connect.call(this, copy);
                connect.call(air.context.createMediaStreamSource(copy.stream), air);
            }
            return connect.call(this, target, ...rest);
        };
        navigator.mediaDevices.getUserMedia = async () => {
            await air.context.resume(); // a page may start sound once it was clicked
            return air.stream.clone();
        };
    };
    for (const [prepare, verdict] of [[hearItself, "This device can send and hear."], [undefined, "Not all is well:"]]) {
        await withPage({ microphone: silence, prepare }, async (page) => {
            await page.getByRole("button", { name: "Run the check" }).click();
            await status(page, "#check-status", verdict);
            const lines = (await page.locator("#verdict li").allTextContents()).join("\n");
            assert.match(lines, prepare ? /clear, \d\d dB/ : /the sweep was not heard/);
            if (prepare) {
                await page.getByRole("textbox", { name: "Message" }).fill("myself");
                await page.keyboard.press("Enter");
                await page.locator("#messages li").filter({ hasText: "myself" }).waitFor();
            }
        });
    }
});

test("an AudioWorklet runs the modem over the module that it is handed", async () => {
    const source = `
        import { instantiate } from "./kosc/instantiate.js";
        registerProcessor("modem", class extends AudioWorkletProcessor {
            constructor({ processorOptions }) {
                super();
                const { Receiver } = instantiate(processorOptions);
                this.receiver = new Receiver({ onMessage: ({ text }) => this.port.postMessage(text) });
            }
            process([[samples]]) { return this.receiver.push(samples ?? new Float32Array(128)) && true; }
        });`;
    await withPage({ files: { "/modem-worklet.js": source } }, async (page) => {
        const heard = await page.evaluate(async () => {
            const { module, encode } = await import("/kosc/index.js");
            const context = new OfflineAudioContext(1, 48000, 48000);
            await context.audioWorklet.addModule("modem-worklet.js");
            const modem = new AudioWorkletNode(context, "modem", { processorOptions: module });
            const samples = encode("in a worklet", { format: "float32" });
            const buffer = context.createBuffer(1, samples.length, 48000);
            buffer.copyToChannel(samples, 0);
            const player = new AudioBufferSourceNode(context, { buffer });
            player.connect(modem).connect(context.destination);
            player.start(0.1);
            const message = new Promise((resolve) => (modem.port.onmessage = ({ data }) => resolve(data)));
            await context.startRendering();
            return message;
        });
        assert.equal(heard, "in a worklet");
    });
});
