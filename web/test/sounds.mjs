// Sounds for the tests of the package and the page, and the native tool that both are held against.
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { Resampler } from "../resampler.js";

const built = new URL("../../build/", import.meta.url);
export const site = new URL("web/site/", built);
export const kosc = await import(new URL("web/kosc/index.js", built));

const tool = process.env.KOSC_NATIVE_TOOL ?? new URL("gcc/tools/kosc/kosc", built).pathname;
const folder = mkdtempSync(join(tmpdir(), "kosc-web-"));
process.on("exit", () => rmSync(folder, { recursive: true }));

const HEADER = 44; // bytes before a WAV file's samples

/** A path for a file that goes with the test. */
export const temporary = (name) => join(folder, name);

export function writeWav(name, samples, rate, channels = 1) {
    const header = Buffer.alloc(HEADER);
    const bytes = 2 * samples.length;
    header.write("RIFF    WAVEfmt ");
    header.writeUInt32LE(36 + bytes, 4);
    [[16, 4], [1, 2], [channels, 2], [rate, 4], [2 * rate * channels, 4], [2 * channels, 2], [16, 2]].reduce(
        (at, [value, size]) => header.writeUIntLE(value, at, size), 16);
    header.write("data", 36);
    header.writeUInt32LE(bytes, 40);
    const file = temporary(name);
    writeFileSync(file, Buffer.concat([header, Buffer.from(Int16Array.from(samples).buffer)]));
    return file;
}

/** Runs the native tool, and Python's over the same libraries; what they print. */
export const runTool = (...words) => execFileSync(tool, words, { encoding: "utf8" });
export function runPython(...words) {
    const library = (path) => new URL(`../../${path}`, pathToFileURL(tool)).pathname;
    const env = {
        ...process.env, PYTHONPATH: new URL("../../bindings/python", import.meta.url).pathname, PYTHONDONTWRITEBYTECODE: "1",
        KOSC_LIBRARY: library("src/libkosc.so"), KOSC_TRANSFER_LIBRARY: library("transfer/libkosc_transfer.so"),
    };
    // Debian's, which has the packages that test.sh installs.
    return execFileSync("/usr/bin/python3", ["-m", "kosc", ...words], { encoding: "utf8", env });
}

export const readWav = (file) => new Int16Array(Uint8Array.from(readFileSync(file).subarray(HEADER)).buffer);

/** The frame that the native encoder makes of a message in hex. */
export function nativeFrame(hex) {
    const file = temporary("frame.wav");
    runTool("encode", "--pad", "0", "--hex", hex, "-o", file);
    return readWav(file);
}

/** What the native receiver hears in a sound file, as text. */
export function nativeMessages(file) {
    const lines = runTool("decode", "--json", file).trim().split("\n");
    return lines.map((line) => JSON.parse(line).text);
}

/** Normally distributed values of variance 1: the sum of twelve uniform ones, from a generator of 31 bits. */
export function makeNoise(seed) {
    let state = seed;
    const uniform = () => (state = (state * 16807) % 2147483647) / 2147483647;
    return () => Array.from({ length: 12 }, uniform).reduce((sum, value) => sum + value, -6);
}

/** `seconds` of white noise with frames {text, at (seconds), gain, band} in it, 48000 Hz. */
export function noisyRecording(seconds, frames, noise = 300, seed = 2026) {
    const normal = makeNoise(seed);
    const sound = Float32Array.from({ length: seconds * kosc.sampleRate }, () => noise * normal());
    for (const { text, at, gain, band } of frames) {
        const start = Math.round(at * kosc.sampleRate);
        kosc.encode(text, { band }).forEach((sample, i) => (sound[start + i] += gain * sample));
    }
    return sound;
}

/** A whole recording at another rate, by the page's own means. */
export function resample(sound, from, to) {
    const resampler = new Resampler(from, to);
    return Float32Array.from([resampler.push(sound), resampler.finish()].flatMap((part) => Array.from(part)));
}
