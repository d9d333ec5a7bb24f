// The package for node, browsers and workers: loads the module that lies beside this file.
import { instantiate } from "./instantiate.js";

const address = new URL("kosc.wasm", import.meta.url);

async function read() {
    if (address.protocol === "file:") {
        const { readFile } = await import("node:fs/promises");
        return readFile(address);
    }
    const response = await fetch(address);
    if (!response.ok) {
        throw new Error(`${address} cannot be loaded: ${response.status} ${response.statusText}.`);
    }
    return response.arrayBuffer();
}

/** The compiled module; hand it to an AudioWorklet, which cannot load one, for its own instantiate(). */
export const module = await WebAssembly.compile(await read());

export const { version, sampleRate, messageBytes, frameSamples, channels, encode, Receiver, inspect } =
    instantiate(module);
export { KoscError } from "./instantiate.js";
