// Takes the pictures in docs/web: node web/test/screenshots.mjs
import { fileURLToPath } from "node:url";
import { withPage } from "./browser.mjs";
import { kosc, noisyRecording, resample, writeWav } from "./sounds.mjs";

const texts = ["hello over sound", "Table 7", "pair 4C:91 code 482 913", "Tür 3 ist offen", "See you at noon ☀"];
const frames = texts.map((text, i) => ({
    text, at: 0.5 + 0.9 * i, gain: [0.08, 0.05, 0.02, 0.03, 0.006][i], band: [kosc.defaultBand, ...kosc.bands][i % kosc.bands.length],
}));
const sound = noisyRecording(5, frames);
const microphone = writeWav("desk.wav", resample(sound, 48000, 44100), 44100);
const recording = writeWav("meeting-room.wav", noisyRecording(4, frames.slice(0, 2)), 48000);

const SIZES = [["desktop", { viewport: { width: 1240, height: 900 } }],
    ["phone", { viewport: { width: 390, height: 844 }, deviceScaleFactor: 2, isMobile: true, hasTouch: true }]];

for (const [size, options] of SIZES) {
    for (const colorScheme of ["light", "dark"]) {
        await withPage({ microphone, colorScheme, ...options }, async (page) => {
            for (const choice of ["Listen on", "Search"]) {
                await page.getByLabel(choice).selectOption("all");
            }
            await page.getByRole("button", { name: "Run the check" }).click();
            await page.locator("#file").setInputFiles(recording);
            await page.getByRole("textbox", { name: "Message" }).fill("hello over sound");
            await page.locator("#verdict li").first().waitFor();
            await page.locator("#found li").nth(1).waitFor();
            await page.locator("#messages li").nth(4).waitFor();
            await page.evaluate(() => scrollTo(0, 0));
            const file = new URL(`../../docs/web/${size}-${colorScheme}.jpg`, import.meta.url);
            await page.screenshot({ path: fileURLToPath(file), fullPage: true, scale: "css", type: "jpeg", quality: 72 });
        });
    }
}
