// The package as npm installs it, for those who bundle it, type-check it or require() it, all without settings.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdirSync, readFileSync, symlinkSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { test } from "node:test";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";
import { build } from "esbuild";
import webpack from "webpack";
import { withPage } from "./browser.mjs";
import { temporary } from "./sounds.mjs";

const path = (name) => fileURLToPath(new URL(name, import.meta.url));
const folder = temporary("app");
mkdirSync(`${folder}/node_modules/kosc`, { recursive: true });
execFileSync("npm", ["pack", "--silent", path("../../build/web/kosc"), "--pack-destination", folder]);
symlinkSync(path("../node_modules/@noble"), `${folder}/node_modules/@noble`); // what kosc/sealed takes
execFileSync("sh", ["-c", "tar -xzf *.tgz -C node_modules/kosc --strip-components=1"], { cwd: folder });

test("bundles of webpack and esbuild run in a page as plain scripts", async () => {
    writeFileSync(`${folder}/app.js`, `
        import { encode, inspect, TransferCollector, TransferSender } from "kosc";
        import { Opener, sealer } from "kosc/sealed";
        const key = new Uint8Array(32);
        const sender = new TransferSender("sealed", { seal: sealer(key) });
        const collector = new TransferCollector({ opener: new Opener(key) });
        const events = Array.from({ length: sender.needed }, (_, i) => collector.take(sender.message(i)));
        globalThis.heard = inspect(encode("bundled"))[0].text + ", " + events.at(-1).payload.text;`);
    await build({ entryPoints: [`${folder}/app.js`], bundle: true, outfile: `${folder}/esbuild.js`, logLevel: "silent" });
    const output = { path: folder, filename: "webpack.js" };
    const result = await promisify(webpack)({ context: folder, entry: "./app.js", mode: "production", output });
    assert.equal(result.hasErrors(), false, result.toString());
    for (const url of ["/esbuild.js", "/webpack.js"]) {
        await withPage({ files: { [url]: () => readFileSync(folder + url) } }, async (page) => {
            await page.addScriptTag({ url });
            assert.equal(await page.evaluate("heard"), "bundled, sealed", url);
        });
    }
});

test("the types hold with node's alone, and with those of browsers", () => {
    writeFileSync(`${folder}/app.ts`, `
        import { bands, encode, inspect, KoscError, module, Receiver, type Band, type Frame } from "kosc";
        import { instantiate, type Message } from "kosc/instantiate";
        import { keyFromPassphrase, Opener, sealer } from "kosc/sealed";
        import { safeName, TransferCollector, TransferSender, type TransferEvent } from "kosc";
        const frames: Frame[] = inspect(encode("typed", { format: "float32", band: bands[0] }), { band: "all" });
        const band: Band = frames[0].band;
        const receiver: Receiver = new Receiver({ band: ["voice", 6000, band], onMessage: ({ data }: Message) => data.length });
        export const all = [KoscError, frames, receiver, instantiate(module), instantiate(new Uint8Array(8))];
        const key = new Uint8Array(32);
        export const later: Promise<Uint8Array> = keyFromPassphrase("six random words");
        const sender = new TransferSender(key, { name: "key", seal: sealer(key) });
        const event: TransferEvent = new TransferCollector({ opener: new Opener(key, { window: null }) }).take(sender.message(0));
        const blocks: Float32Array[] = [...sender.sound({ band: "wide", rounds: 1, format: "float32" })];
        export const more = [blocks, safeName(event.payload?.name ?? ""), event.payload?.kind === "text"];
        // @ts-expect-error
        encode(28);`);
    const flags = ["--strict", "--noEmit", "--module", "nodenext", "--target", "es2022", "app.ts"];
    for (const types of [["--lib", "es2022", "--types", "node", "--typeRoots", path("../node_modules/@types")], ["--lib", "es2022,dom"]]) {
        execFileSync(path("../node_modules/.bin/tsc"), [...types, ...flags], { cwd: folder, stdio: "pipe", encoding: "utf8" });
    }
});

test("require() gives the package", { skip: !process.features.require_module && "this node's takes no ES modules" }, () => {
    const kosc = createRequire(`${folder}/app.js`)("kosc");
    assert.equal(kosc.inspect(kosc.encode("required"))[0].text, "required");
});
