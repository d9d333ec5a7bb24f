// Draws the icons that installing takes from icon.svg: node web/icons.mjs
import { readFile } from "node:fs/promises";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";

const svg = await readFile(new URL("icon.svg", import.meta.url), "utf8");
// Where the system cuts the outline, the ground fills the square and the strokes keep to the circle that is always seen.
const full = svg.replace(' rx="10"', "").replace('viewBox="0 0 44 44"', 'viewBox="-6 -6 56 56"')
    .replace('<rect width="44" height="44"', '<rect x="-6" y="-6" width="56" height="56"');
const ICONS = [["icon-192.png", 192, svg], ["icon-512.png", 512, svg], ["icon-maskable.png", 512, full], ["icon-apple.png", 180, full]];

const browser = await chromium.launch({ executablePath: "/usr/bin/chromium", args: ["--no-sandbox"] });
for (const [name, size, drawing] of ICONS) {
    const page = await browser.newPage({ viewport: { width: size, height: size } });
    await page.setContent(`<body style="margin:0">${drawing.replace("<svg", `<svg width="${size}" height="${size}" style="display:block"`)}`);
    await page.screenshot({ path: fileURLToPath(new URL(name, import.meta.url)), omitBackground: true });
}
await browser.close();
