// How much longer the npm package's receiver takes in node than the native one, over the same recording in one run:
//
//     cmake --build --preset gcc --target receive_file && cmake --build --preset web && node bench/js_ratio.mjs
//
// A minute with a frame every two seconds in white noise, in blocks of 4096 samples. Both sides take turns, five times;
// the medians count. What node spends on compiling the module is outside, on warming up inside.
import { execFileSync } from "node:child_process";
import { writeFileSync } from "node:fs";
import { fileURLToPath } from "node:url";

const root = new URL("..", import.meta.url);
const { encode, Receiver } = await import(new URL("build/web/kosc/index.js", root));
const native = fileURLToPath(new URL("build/gcc/bench/receive_file", root));
const file = fileURLToPath(new URL("build/web/js_ratio.s16", root));
const BLOCK = 4096, RATE = 48000, SECONDS = 60, TURNS = 5, NOISE = 300, GAIN = 0.1;

// Park and Miller 1988, "Random number generators: good ones are hard to find"; twelve uniform values make a normal one.
let state = 2026;
const uniform = () => (state = (state * 16807) % 2147483647) / 2147483647;
const normal = () => Array.from({ length: 12 }, uniform).reduce((sum, value) => sum + value, -6);

const sound = Int16Array.from({ length: SECONDS * RATE }, () => NOISE * normal());
for (let second = 1; second < SECONDS; second += 2) {
    encode(`frame at ${second} s`).forEach((sample, i) => (sound[second * RATE + i] += GAIN * sample));
}
writeFileSync(file, sound);

function receiveInNode(secondLook) {
    const receiver = new Receiver({ secondLook });
    let messages = 0;
    const start = performance.now();
    for (let at = 0; at < sound.length; at += BLOCK) {
        messages += receiver.push(sound.subarray(at, at + BLOCK)).length;
    }
    return { seconds: (performance.now() - start) / 1000, messages };
}

function receiveNatively(secondLook) {
    const [seconds, messages] = execFileSync(native, [file, BLOCK, secondLook ? 2 : 0], { encoding: "utf8" }).split(" ");
    return { seconds: Number(seconds), messages: Number(messages) };
}

const median = (values) => values.sort((a, b) => a - b)[values.length >> 1];
for (const secondLook of [false, true]) {
    const turns = Array.from({ length: TURNS }, () => [receiveInNode(secondLook), receiveNatively(secondLook)]);
    const [node, machine] = [0, 1].map((side) => median(turns.map((turn) => turn[side].seconds)));
    const nanoseconds = (seconds) => `${((seconds / sound.length) * 1e9).toFixed(1)} ns a sample`;
    const [heard, heardNatively] = turns[0].map((side) => side.messages);
    console.log(`second look ${secondLook ? "measuring" : "off"}: node ${nanoseconds(node)} (${heard} messages), ` +
        `native ${nanoseconds(machine)} (${heardNatively} messages), ratio ${(node / machine).toFixed(2)}`);
}
