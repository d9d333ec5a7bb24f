// The page without network, installed, and changing to a new build, in a real browser.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { cpSync, readFileSync, writeFileSync } from "node:fs";
import { test } from "node:test";
import { fileURLToPath } from "node:url";
import { status, withPage } from "./browser.mjs";
import { nativeMessages, noisyRecording, resample, site, temporary, writeWav } from "./sounds.mjs";

const POLICY = "default-src 'self'; script-src 'self' 'wasm-unsafe-eval'";
const frames = Array.from({ length: 4 }, (_, i) => ({ text: `frame ${i}`, at: 0.4 + 0.5 * i, gain: 0.08 }));
const microphone = writeWav("four.wav", resample(noisyRecording(3, frames), 48000, 44100), 44100);

const kept = (page) => page.evaluate(() => navigator.serviceWorker.ready.then(() => caches.keys()));
const start = (page) => page.getByRole("button", { name: "Start listening" }).click();
const button = (page) => page.getByRole("button", { name: "Change to it" });

/** Has the browser look for a new build; what becomes of it. */
const searchForUpdate = (page) => page.evaluate(async () => {
    const registration = await navigator.serviceWorker.ready;
    const found = new Promise((resolve) => registration.addEventListener("updatefound", resolve, { once: true }));
    await registration.update();
    await found;
    const worker = registration.installing ?? registration.waiting;
    return new Promise((resolve) => {
        const tell = () => worker.state !== "installing" && resolve(worker.state);
        worker.addEventListener("statechange", tell);
        tell();
    });
});

/** Another build of the page: a function that gives any of its files. */
function build(title, breakIt = () => {}) {
    const folder = temporary(title);
    cpSync(fileURLToPath(site), folder, { recursive: true });
    writeFileSync(`${folder}/index.html`, readFileSync(`${folder}/index.html`, "utf8").replace(/<title>[^<]*/, `<title>${title}`));
    execFileSync("node", [fileURLToPath(new URL("../write-service-worker.mjs", import.meta.url)), folder]);
    breakIt(folder);
    return (path) => readFileSync(folder + path);
}

/** What a server gives whose builds change: `server.now` is the present one. */
function changing(server) {
    const worker = readFileSync(new URL("service-worker.js", site), "utf8");
    const paths = Object.keys(JSON.parse(worker.match(/FILES = (\{[^]*?\n\})/)[1])).map((path) => path.slice(1));
    return Object.fromEntries([...paths, "/service-worker.js", "/index.html"].filter((path) => path !== "/")
        .map((path) => [path, () => server.now?.(path)]));
}

test("after one visit the page works with the network off, by the same policy, and can be installed", async () => {
    await withPage({ microphone }, async (page, stopServer) => {
        assert.deepEqual((await kept(page)).length, 1);
        const devtools = await page.context().newCDPSession(page);
        assert.deepEqual((await devtools.send("Page.getAppManifest")).errors, []);
        const { installabilityErrors } = await devtools.send("Page.getInstallabilityErrors");
        assert.deepEqual(installabilityErrors.map(({ errorId }) => errorId).filter((id) => id !== "in-incognito"), []);

        await stopServer();
        await page.context().setOffline(true);
        for (const address of ["./", "index.html?source=home#listen"]) {
            await page.goto(new URL(address, page.url()).href);
            await start(page);
            for (const { text } of frames) {
                await page.locator("#messages li").filter({ hasText: text }).first().waitFor();
            }
            await page.locator("#file").setInputFiles(microphone);
            await status(page, "#file-status", `: ${nativeMessages(microphone).length} messages`);
            await page.getByRole("textbox", { name: "Message" }).fill("no network");
            await page.keyboard.press("Enter");
            await status(page, "#send-status", "Sent");
            assert.equal(await page.locator("meta[http-equiv=Content-Security-Policy]").getAttribute("content"), POLICY);
            await page.reload();
        }
    });
});

test("a new build replaces the old one when nobody listens to it, in no window, and never by halves", async () => {
    const server = {};
    await withPage({ microphone, files: changing(server) }, async (page) => {
        const [first] = await kept(page);
        const old = await page.title();
        await start(page);
        await page.locator("#messages li").nth(1).waitFor();

        server.now = build("a build half copied", (folder) => writeFileSync(`${folder}/main.js`, "throw new Error('of another build');"));
        assert.equal(await searchForUpdate(page), "redundant");

        server.now = build("second build");
        assert.equal(await searchForUpdate(page), "installed");
        await status(page, "#update-status", "It can wait until listening is stopped");
        const heard = await page.locator("#messages li").count();
        await page.locator("#messages li").nth(heard + 2).waitFor(); // goes on
        assert.equal(await button(page).isVisible(), false);

        const other = await page.context().newPage();
        await other.goto(page.url());
        await status(other, "#update-status", "First close the other windows");
        await page.getByRole("button", { name: "Stop listening" }).click();
        await button(page).click();
        await status(page, "#update-status", "First close the other windows");
        assert.deepEqual([await page.title(), await other.title()], [old, old]);

        await other.close();
        await button(page).click();
        await page.waitForFunction(() => document.title === "second build");
        const [second, ...more] = await kept(page);
        assert.deepEqual(more, []);
        assert.notEqual(second, first);

        server.now = build("third build");
        await searchForUpdate(page);
        await button(page).waitFor();
        await page.reload(); // alone, and nothing has begun
        await page.waitForFunction(() => document.title === "third build");
        await start(page);
        await page.locator("#messages li").first().waitFor();
    });
});
