// How long files take the npm package to encode and to decode, in Chromium and in node:
//
//     cmake --build --preset web && node bench/js_transfer.mjs
//
// A payload becomes as many messages as are needed and half as many again, of which the first ones are lost, so that the
// decoder has most to solve; messages alone, without sound. Seconds, the least of five.
import { withPage } from "../web/test/browser.mjs";

const SIZES = [1024, 4096, 65536, 1048576];

async function measure(sizes, address) {
    const { TransferCollector, TransferSender } = await import(address);
    const least = { encode: {}, decode: {} };
    for (const size of sizes) {
        const payload = Uint8Array.from({ length: size }, (_, i) => i * i + 7 * i);
        for (let turn = 0; turn < (size > 100000 ? 1 : 5); ++turn) {
            const start = performance.now();
            const sender = new TransferSender(payload);
            const messages = Array.from({ length: sender.round }, (_, i) => sender.message(i));
            const middle = performance.now();
            const collector = new TransferCollector();
            const lost = Math.floor(sender.round * 0.3);
            const finished = messages.slice(lost).some((message) => collector.take(message).state === "finished");
            const end = performance.now();
            if (!finished) {
                throw new Error(`${size} bytes did not come through`);
            }
            least.encode[size] = Math.min(least.encode[size] ?? Infinity, (middle - start) / 1000);
            least.decode[size] = Math.min(least.decode[size] ?? Infinity, (end - middle) / 1000);
        }
    }
    return least;
}

const show = (where, { encode, decode }) => SIZES.forEach((size) =>
    console.log(`| ${where} | ${size} | ${encode[size].toFixed(3)} | ${decode[size].toFixed(3)} |`));

console.log("| where | bytes | encode, s | decode, s |\n|---|---|---|---|");
await withPage({ files: { "/measure.js": () => `export ${measure}` } }, async (page) =>
    show("Chromium", await page.evaluate(async (sizes) => (await import("/measure.js")).measure(sizes, "/kosc/index.js"), SIZES)));
show(`node ${process.versions.node}`, await measure(SIZES, new URL("../build/web/kosc/index.js", import.meta.url)));
