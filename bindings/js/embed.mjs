// Writes a WebAssembly module as a script: node embed.mjs kosc.wasm module.js
import { readFileSync, writeFileSync } from "node:fs";

const [source, script] = process.argv.slice(2);
writeFileSync(script, `export default "${readFileSync(source, "base64")}";\n`);
