// Reads a dropped sound file into samples at the file's own rate, as far as that can be told: browsers convert to the
// rate of the context that decodes, and their converters cut the band.
import { edges, endOf, isHeld, kilohertz, nameOf } from "./bands.js";
import { ask } from "./decoder.js";

const MODEM_RATE = 48000;

const tag = (view, at) => String.fromCharCode(...new Uint8Array(view.buffer, at, 4));

// The rate in a WAV or FLAC file's header; undefined for other files, which are decoded at the modem's rate.
function fileRate(bytes) {
    const view = new DataView(bytes);
    if (bytes.byteLength >= 22 && tag(view, 0) === "fLaC") {
        return view.getUint32(18) >>> 12; // 20 bits, behind the block's and frame's sizes
    }
    if (bytes.byteLength < 12 || tag(view, 0) !== "RIFF" || tag(view, 8) !== "WAVE") {
        return undefined;
    }
    for (let at = 12; at + 16 <= bytes.byteLength; at += 8 + view.getUint32(at + 4, true)) {
        if (tag(view, at) === "fmt ") {
            return view.getUint32(at + 12, true);
        }
    }
    return undefined;
}

// The bands that the recording can hold: one that was chosen by itself must be among them.
function heldBands(name, rate, bands, chosenByItself) {
    const held = bands.filter((band) => isHeld(band, rate));
    if (held.length === 0 || (chosenByItself && held.length < bands.length)) {
        const missing = bands.find((band) => !held.includes(band));
        throw new Error(`${name} has ${rate / 1000} kHz, which holds sound up to ${kilohertz(endOf(rate))}; ` +
            `the band ${nameOf(missing)} reaches from ${edges(missing).replace("–", " to ")}.`);
    }
    return held;
}

/** The frames in `file` on the bands chosen, a BandChoice, by a receiver of these options; `onProgress` hears the share that is done, from 0 to 1. */
export async function decodeFile(file, choice, options, onProgress) {
    const bytes = await file.arrayBuffer();
    const rate = fileRate(bytes) ?? MODEM_RATE;
    const band = heldBands(file.name, rate, await choice.bands(), !choice.isAll);
    let sound;
    try {
        sound = await new OfflineAudioContext(1, 1, rate).decodeAudioData(bytes);
    } catch {
        throw new Error(`${file.name} is no sound file that this browser can read.`);
    }
    const tracks = Array.from({ length: sound.numberOfChannels }, (_, i) => sound.getChannelData(i).slice());
    const frames = await ask("decodeRecording", { tracks, rate: sound.sampleRate, options: { band, ...options } },
        tracks.map((track) => track.buffer), onProgress);
    return { frames, seconds: sound.duration, tracks: tracks.length };
}
