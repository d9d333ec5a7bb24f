// The page's microphone in a real browser, held against the native tool.
import assert from "node:assert/strict";
import { test } from "node:test";
import { hearItself } from "./air.mjs";
import { status, withPage } from "./browser.mjs";
import { kosc, makeNoise, nativeMessages, noisyRecording, resample, writeWav } from "./sounds.mjs";

const FAKE_RATE = 44100; // of Chromium's fake microphone, which converts other files badly

// Ten frames, from 15 dB above the noise on to one that is lost in it.
const GAINS = [0.08, 0.08, 0.06, 0.06, 0.05, 0.05, 0.04, 0.04, 0.03, 0.005];
const tenFrames = GAINS.map((gain, i) => ({ text: `frame ${i}`, at: 0.4 + 0.5 * i, gain }));
const tenFramesFile = writeWav("ten.wav", resample(noisyRecording(6, tenFrames), 48000, FAKE_RATE), FAKE_RATE);

for (const [rate, refuse] of [[FAKE_RATE, 0], [48000, FAKE_RATE]]) {
    test(`a context of ${rate} Hz hears all that the native receiver decodes`, async () => {
        const expected = nativeMessages(tenFramesFile);
        assert.equal(expected.length, 9);
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

test("a device that hears itself passes the check and hears its own message; a deaf one is told", { timeout: 120_000 }, async () => {
    const normal = makeNoise(5);
    const silence = writeWav("quiet.wav", Float32Array.from({ length: FAKE_RATE }, () => 20 * normal()), FAKE_RATE);
    const best = kosc.bands.at(-1);
    const cutBest = kosc.bands.findLast(({ highHz }) => highHz < 10000);
    for (const [prepare, cutoff, verdict] of [
        [hearItself, 0, `This device can send and hear. Best band: ${best.name}.`], [undefined, 0, "Not all is well:"],
        [hearItself, 10000, `This device can send and hear. Best band: ${cutBest.name}.`],
    ]) {
        await withPage({ microphone: silence, prepare, argument: cutoff }, async (page) => {
            await page.getByRole("button", { name: "Run the check" }).click();
            await status(page, "#check-status", verdict);
            const lines = (await page.locator("#verdict li").allTextContents()).join("\n");
            assert.match(lines, prepare ? /^[^:]+: good, \d\d dB/ : /^[^:]+: not heard/);
            if (prepare && !cutoff) {
                await page.getByLabel("Listen on").selectOption("all");
                await page.getByRole("button", { name: `Send and listen on ${best.name}` }).press("Enter");
                assert.equal(await page.getByLabel("Listen on").inputValue(), best.name);
                for (const [listening, { name }] of [[best.name, best], ["all", kosc.bands[0]]]) {
                    await page.getByLabel("Listen on").selectOption(listening);
                    await page.getByLabel("Send on").selectOption(name);
                    await page.getByRole("textbox", { name: "Message" }).fill(`on ${name}`);
                    const row = page.locator("#messages li").filter({ hasText: `on ${name}` }).first();
                    // A browser that waits for the processor leaves gaps in its sound; then the message is sent again.
                    while ((await row.count()) === 0) {
                        await page.getByRole("button", { name: "Send", exact: true }).press("Enter");
                        await row.waitFor({ timeout: 3000 }).catch(() => {});
                    }
                    assert.match(await row.textContent(), new RegExp(`^on ${name}\\d.*M${name}SNR`));
                }
                await page.reload(); // the choices are remembered
                for (const [id, text] of [["send", kosc.bands[0].name], ["listen", "all bands at once"]]) {
                    await page.locator(`#${id}-band option:checked`).filter({ hasText: text }).waitFor({ state: "attached" });
                }
            }
        });
    }
});
