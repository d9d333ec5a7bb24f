// Sounds for the tests of the package and the page, and the native tool that they are held against.
import { execFileSync } from "node:child_process";
import { mkdtempSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

const built = new URL("../../build/", import.meta.url);
export const kosc = await import(new URL("web/kosc/index.js", built));
export const site = new URL("web/site/", built);

const tool = process.env.KOSC_NATIVE_TOOL ?? new URL("gcc/tools/kosc/kosc", built).pathname;
const folder = mkdtempSync(join(tmpdir(), "kosc-web-"));

/** A path in a new folder, for a file of the test's. */
export const temporary = (name) => join(folder, name);

/** The samples that the native encoder makes of a message in hex. */
export function nativeFrame(hex) {
    const file = temporary("frame.wav");
    execFileSync(tool, ["encode", "--hex", hex, "-o", file]);
    return execFileSync(tool, ["decode", "--hex", "--quiet", file]) && readWav(file);
}

/** The messages that the native receiver hears in a WAV file, as text. */
export function nativeMessages(file) {
    const lines = execFileSync(tool, ["decode", "--json", file], { encoding: "utf8" }).trim().split("\n");
    return lines.map((line) => JSON.parse(line).text);
}
