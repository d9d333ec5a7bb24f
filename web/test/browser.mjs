// The built page, served from localhost to Debian's Chromium.
import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { chromium } from "playwright-core";
import { site } from "./sounds.mjs";

const TYPES = { html: "text/html", css: "text/css", js: "text/javascript", svg: "image/svg+xml", wasm: "application/wasm",
    png: "image/png", webmanifest: "application/manifest+json" };
const heardFrom = (file) => file
    ? ["--use-fake-ui-for-media-stream", `--use-file-for-fake-audio-capture=${file}`] // whose prompts are answered by yes
    : ["--deny-permission-prompts"];

const serve = (files) => async (request, response) => {
    const path = new URL(request.url, "http://localhost").pathname.replace(/^\/$/, "/index.html");
    const body = await files[path]?.() ?? await readFile(new URL(`.${path}`, site)).catch(() => null);
    response.writeHead(body ? 200 : 404, { "Content-Type": TYPES[path.split(".").at(-1)] ?? "text/plain" });
    response.end(body ?? "not here");
};

/**
 * Calls `use` with the page open in a browser of its own, whose microphone hears the WAV file `microphone` over and
 * over; without one the microphone is refused. `prepare` runs in the page first, and `files`, functions, give what is served
 * beside the page's own; `use` may stop the server. Fails when the page logs an error or asks another host for anything.
 */
export async function withPage({ microphone, prepare, argument, files = {}, ...options }, use) {
    const server = createServer(serve(files)).listen(0, "127.0.0.1");
    const args = ["--no-sandbox", "--disable-dev-shm-usage", "--use-fake-device-for-media-stream", ...heardFrom(microphone)];
    const stopServer = () => new Promise((stopped) => {
        server.close(stopped);
        server.closeAllConnections();
    });
    const browser = await chromium.launch({ executablePath: "/usr/bin/chromium", args });
    try {
        const page = await browser.newContext(options).then((context) => context.newPage());
        const home = `http://localhost:${server.address().port}/`;
        const wrong = [];
        page.on("pageerror", (error) => wrong.push(String(error)));
        page.on("console", (message) => message.type() === "error" && wrong.push(message.text()));
        page.on("request", (request) => request.url().startsWith(home) || wrong.push(request.url()));
        if (prepare) {
            await page.addInitScript(prepare, argument);
        }
        await page.goto(home);
        await use(page, stopServer);
        if (wrong.length > 0) {
            throw new Error(wrong.join("\n"));
        }
    } finally {
        await browser.close();
        await stopServer();
    }
}

/** Waits until the element `id` says `pattern`. */
export const status = (page, id, pattern) => page.locator(id).filter({ hasText: pattern }).waitFor();
