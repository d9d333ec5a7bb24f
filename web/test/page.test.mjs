// What else the page does, and what it is made of, in a real browser and held against the native tool.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { setTimeout } from "node:timers/promises";
import { status, withPage } from "./browser.mjs";
import { kosc, nativeMessages, noisyRecording, resample, site, writeWav } from "./sounds.mjs";

const tone = (frequency, rate) => Float32Array.from({ length: rate / 10 }, (_, i) => Math.sin((2 * Math.PI * frequency * i) / rate));

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

        await page.getByRole("textbox", { name: "Message" }).fill("");
        await page.getByRole("button", { name: "Send", exact: true }).click();
        await status(page, "#send-status", "Type a message or choose a file first.");
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

test("a recording dropped while the page still loads shows its messages, and a file that is none says so", async () => {
    const [low] = kosc.bands;
    const frames = ["one", "two", "low"].map((text, i) => ({ text, at: 0.4 + i / 2, gain: 0.06, band: i > 1 ? low : undefined }));
    const sound = noisyRecording(2, frames);
    const right = resample(sound, 48000, 44100);
    const slow = writeWav("slow.wav", resample(sound, 48000, 22050), 22050);
    const file = writeWav("stereo.wav", Float32Array.from({ length: 2 * right.length }, (_, i) => (i % 2 ? right[i >> 1] : 0)), 44100, 2);
    const late = () => setTimeout(1500, readFileSync(new URL("kosc/module.js", site)));
    await withPage({ files: { "/kosc/module.js": late } }, async (page) => {
        await drop(page, file, "stereo.wav");
        await status(page, "#file-status", "stereo.wav, 2.0 s: 2 messages.");
        assert.deepEqual(await page.locator("#found .text").allTextContents(), nativeMessages(file));
        assert.match(await page.locator("#found .time").first().textContent(), /^0\.40\d s, channel 2$/);
        for (const [name, reason] of [["page.test.mjs", "no sound file"], [slow, "22.05 kHz, which holds sound up to 10.8 kHz; the band near-ultrasonic reaches from 18 to 21 kHz"]]) {
            await page.locator("#file").setInputFiles(name.includes("/") ? name : new URL(name, import.meta.url).pathname);
            await status(page, "#file-status", reason);
        }
        await page.getByLabel("Search").selectOption("all");
        for (const [path, texts] of [[file, ["one", "two", "low"]], [slow, ["low"]]]) {
            await page.locator("#file").setInputFiles(path);
            await status(page, "#file-status", `: ${texts.length} message`);
            assert.deepEqual(await page.locator("#found .text").allTextContents(), texts);
            assert.match(await page.locator("#found li").last().textContent(), new RegExp(`${low.name}SNR`));
        }
    });
});

test("repeats in two channels of a recording are put together once that is switched on, which is remembered", async () => {
    const [left, right] = [2026, 15].map((seed) => noisyRecording(2, [0.5, 0.85, 1.2].map((at) => ({ text: "again", at, gain: 0.1 })), 2776, seed));
    const file = writeWav("weak.wav", Float32Array.from({ length: 2 * left.length }, (_, i) => (i % 2 ? right : left)[i >> 1]), 48000, 2);
    await withPage({}, async (page) => {
        await page.locator("#file").setInputFiles(file);
        await status(page, "#file-status", "weak.wav, 2.0 s: 0 messages");
        await page.getByLabel("Add up repeats").check();
        await page.reload();
        await page.locator("#file").setInputFiles(file);
        await status(page, "#file-status", "weak.wav, 2.0 s: 1 message");
        assert.match(await page.locator("#found li").textContent(), /^again\d\.\d{3} s[^,]*SNR -?\d\.\d dB.*put together from [123] frames?, 2 microphones$/);
    });
});

test("messages that overlap in a recording are both shown with many senders switched on", async () => {
    const file = writeWav("crowd.wav", noisyRecording(2, [{ text: "loud", at: 0.5, gain: 0.3 }, { text: "faint", at: 0.58, gain: 0.12 }], 100), 48000);
    await withPage({}, async (page) => {
        for (const [crowd, texts] of [[false, ["loud"]], [true, ["loud", "faint"]]]) {
            await page.getByLabel("Many senders").setChecked(crowd);
            await page.locator("#file").setInputFiles(file);
            await status(page, "#file-status", `2.0 s: ${texts.length} message`);
            assert.deepEqual(await page.locator("#found .text").allTextContents(), texts);
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
    await withPage({ files: { "/modem-worklet.js": () => source } }, async (page) => {
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
