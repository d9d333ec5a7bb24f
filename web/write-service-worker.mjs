// Writes the service worker of a built page: node web/write-service-worker.mjs FOLDER
import { createHash } from "node:crypto";
import { readdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";

const [folder] = process.argv.slice(2);
const WORKER = "service-worker.js";

const filesIn = (below) => readdirSync(join(folder, below), { withFileTypes: true }).flatMap((entry) =>
    entry.isDirectory() ? filesIn(`${below}${entry.name}/`) : [`${below}${entry.name}`]);
const hash = (data) => createHash("sha256").update(data).digest("base64");

// Under the page's own address: a server may lead from index.html there, and no window opens what was led elsewhere.
const address = (path) => (path === "./index.html" ? "./" : path);
const files = Object.fromEntries(filesIn("./").filter((path) => path !== `./${WORKER}`).sort().map((path) =>
    [address(path), `sha256-${hash(readFileSync(join(folder, path)))}`]));
const code = readFileSync(new URL(WORKER, import.meta.url), "utf8");
const version = hash(JSON.stringify(files) + code);
writeFileSync(join(folder, WORKER),
    `const VERSION = "${version}";\nconst FILES = ${JSON.stringify(files, null, 4)};\n\n${code}`);
