// The package for browsers, workers and node. The module comes as text in a script, so nothing is loaded or waited for,
// bundlers need no settings, and require() works where it takes ES modules.
import { instantiate } from "./instantiate.js";
import base64 from "./module.js";

/** The compiled module; hand it to an AudioWorklet, which has no atob(), for its own instantiate(). */
export const module = new WebAssembly.Module(Uint8Array.from(atob(base64), (letter) => letter.charCodeAt(0)));

export const {
    version, sampleRate, messageBytes, frameSamples, channels, bands, wideBands, defaultBand, findBand, encode,
    encodeTogether, Receiver, inspect, TransferSender, TransferCollector, safeName,
} = instantiate(module);
export { KoscError } from "./instantiate.js";
