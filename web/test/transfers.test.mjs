// Files and long texts in the page, through a room within the browser and through recordings.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { hearItself } from "./air.mjs";
import { status, withPage } from "./browser.mjs";
import { kosc, makeNoise, writeWav } from "./sounds.mjs";

const { encode, TransferSender } = kosc;
const normal = makeNoise(11);
const bytes = Uint8Array.from({ length: 700 }, () => 100 * normal());

async function saved(page, link) {
    const [download] = await Promise.all([page.waitForEvent("download"), link.click()]);
    return [download.suggestedFilename(), Uint8Array.from(readFileSync(await download.path()))];
}

test("a page that hears itself receives its own sealed file and text, on one band and on six", { timeout: 180_000 }, async () => {
    const text = "A text of several lines,\nlonger than a message: <b>Grüße</b> 🔊.";
    await withPage({ prepare: hearItself, argument: 0 }, async (page) => {
        const send = page.getByRole("button", { name: "Send", exact: true });
        await page.getByText("Secrecy").click();
        await page.getByRole("textbox", { name: "Message" }).fill("not to be sent in the clear");
        await page.getByLabel("Key").fill("w".repeat(1025));
        await send.click();
        await status(page, "#send-status", "1 to 1024 bytes, not 1025");
        await page.getByLabel("Key").fill("six words that nobody else has");
        await page.getByLabel("Key").press("Tab");
        await status(page, "#key-status", "What is sent is sealed");
        await page.getByRole("button", { name: "Start listening" }).click();
        await status(page, "#listen-status", "Listening");
        for (const [band, size, needed] of [["wide", 1500, 76], ["near-ultrasonic", 300, 16]]) {
            const sent = Uint8Array.from({ length: size }, () => 100 * normal());
            await page.getByLabel("Listen on").selectOption(band);
            await page.getByLabel("Send on").selectOption(band);
            await page.getByLabel("Or a file").setInputFiles({ name: "../notes \u202egnp.exe", mimeType: "text/html", buffer: Buffer.from(sent) });
            await status(page, "#length", `${size} bytes: ${needed} messages or more`);
            await page.getByLabel("Sound", { exact: true }).selectOption("until stopped");
            await send.click();
            // A browser that waits for the processor leaves gaps in its sound: the more messages.
            const link = page.locator("#transfers a");
            await page.locator("#transfers progress").first().waitFor();
            await status(page, "#transfers", /\d+ %, \d+ bytes\/s, \d:\d\d left/);
            await link.waitFor({ timeout: 60_000 });
            await status(page, "#send-status", /\d+ messages sent; \d+ are needed/);
            await page.getByRole("button", { name: "Stop", exact: true }).click();
            await status(page, "#send-status", /Stopped after \d+ messages/);
            assert.deepEqual(await saved(page, link), ["notes _gnp.exe", sent]);
            assert.match(await page.locator("#transfers li").last().textContent(), new RegExp(`${size} bytessealed$`));

            await page.getByRole("button", { name: "No file" }).click();
            await page.getByRole("textbox", { name: "Message" }).fill(text);
            await page.getByLabel("Sound", { exact: true }).selectOption("2");
            const shown = page.locator("#transfers .text").filter({ hasText: "several lines" });
            while ((await shown.count()) === 0) {
                await send.click();
                await status(page, "#send-status", /\d+ %, \d+ bytes\/s, \d:\d\d left/);
                await status(page, "#send-status", "Sent the text.");
            }
            assert.equal(await shown.first().textContent(), text);
            await page.evaluate(() => document.querySelector("#transfers").replaceChildren());
        }
        assert.equal(await page.locator("#messages li").count(), 0);
    });
});

test("a recording gives its files, texts and messages, and says what is not whole or not to be opened", async () => {
    const blocks = (content, options, count) => [...new TransferSender(content, options).sound({ band: "wide" })].slice(0, count);
    const file = blocks(bytes, { name: "C:\\a\\<img src=x>.html" }).map((block, i) => (i % 5 === 2 ? block.fill(0) : block));
    const sealed = blocks("x".repeat(50), { seal: () => new Uint8Array(99) });
    const parts = [...file, encode("plain"), ...blocks("A long text. ".repeat(9)), ...sealed, ...blocks(bytes, { nonce: 1 }, 2)];
    const recording = writeWav("transfers.wav", Float32Array.from(parts.flatMap((part) => Array.from(part, (sample) => sample / 2))), 48000);
    await withPage({}, async (page) => {
        await page.getByLabel("Search").selectOption("wide");
        await page.locator("#file").setInputFiles(recording);
        await page.locator("#found-transfers").filter({ hasText: "Not whole" }).waitFor();
        assert.deepEqual(await page.locator("#found .text").allTextContents(), ["plain"]);
        const items = await page.locator("#found-transfers .text, #found-transfers .figures:only-of-type").allTextContents();
        assert.deepEqual(items.filter((item) => !/^\d/.test(item)).sort(), [
            "A long text. ".repeat(9), "Not whole: 12 of 36 messages came.", "Refused: it is sealed, and there is no key.",
            "Save _img src=x_.html"].sort());
        assert.deepEqual(await saved(page, page.locator("#found-transfers a")), ["_img src=x_.html", bytes]);
    });
});
