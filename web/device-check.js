// What this device's loudspeaker and microphone, and the noise around, leave of each band: how far a frame would stand
// out of the noise, from a sweep that the page plays itself. docs/web/device-check.md says what is computed.
import { describe, isHeld, nameOf } from "./bands.js";
import { play } from "./play.js";
import { compareSettings } from "./settings.js";

const RATE = 48000;
const FROM = 250, TO = 21500, SECONDS = 2, LEVEL = 0.25; // the sweep
const NOISE_SECONDS = 1;
const GOOD = 10, USABLE = 3; // dB: decodes at once through echoes, and with the second look (docs/link.md)
const SILENCE = -120; // dB; what 16 bits cannot say counts as this
const POLL = 20; // milliseconds; the analyser's window is twice as long

const FRAME_LEVEL = 0.2; // root of a frame's mean square
const SUBCARRIERS = 64, SYMBOL = 1024 / RATE; // seconds
const BLACKMAN_POWER = 0.3046; // mean square of the analyser's window

const decibels = (power) => 10 * Math.log10(power);
const power = (level) => 10 ** (level / 10);

function sweep() {
    const fade = 0.01 * RATE;
    const length = SECONDS * RATE;
    return Float32Array.from({ length }, (_, i) => {
        const t = i / RATE;
        const phase = 2 * Math.PI * (FROM + ((TO - FROM) * t) / (2 * SECONDS)) * t;
        return LEVEL * Math.min(1, i / fade, (length - i) / fade) * Math.sin(phase);
    });
}

// Gathers the power in each bin until `until` is settled: `mean` and `most`.
async function gather(analyser, until) {
    const spectrum = new Float32Array(analyser.frequencyBinCount);
    const mean = new Float64Array(spectrum.length);
    const most = new Float64Array(spectrum.length);
    let count = 0, over = false;
    until.finally(() => (over = true)).catch(() => {});
    while (!over) {
        analyser.getFloatFrequencyData(spectrum);
        spectrum.forEach((level, bin) => {
            const now = power(Math.max(level, SILENCE));
            mean[bin] += now;
            most[bin] = Math.max(most[bin], now);
        });
        ++count;
        await new Promise((resolve) => setTimeout(resolve, POLL));
    }
    await until;
    return { mean: mean.map((sum) => sum / count), most };
}

const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// Of a band, third by third.
function meanPowers(powers, sampleRate, { lowHz, highHz }) {
    const binWidth = sampleRate / 2 / powers.length;
    return [0, 1, 2].map((third) => {
        const [low, high] = [third, third + 1].map((part) => lowHz + ((highHz - lowHz) * part) / 3);
        const bins = powers.subarray(Math.ceil(low / binWidth), Math.floor(high / binWidth));
        return bins.reduce((sum, value) => sum + value, 0) / bins.length;
    });
}

// What turns the power of the sweep over that of the noise, in the analyser's bins, into that of a frame's subcarrier
// over the noise in it. A chirp of rate r lies in a window of T seconds as A / (2 T sqrt(r)).
function frameOverSweep(analyser, sampleRate) {
    const window = analyser.fftSize / sampleRate;
    const chirpRate = (TO - FROM) / SECONDS;
    const subcarrier = (2 * FRAME_LEVEL ** 2) / SUBCARRIERS;
    return (chirpRate * window * SYMBOL * BLACKMAN_POWER * subcarrier) / LEVEL ** 2;
}

/**
 * Measures over an open microphone: for each band the signal-to-noise ratio of frames in dB, third by third, or nothing
 * where the microphone's rate does not hold the band.
 */
export async function measure({ context, analyser }, bands) {
    await pause(200); // what was played before has died away
    const noise = await gather(analyser, pause(NOISE_SECONDS * 1000));
    const heard = await gather(analyser, play(sweep(), RATE).then(() => pause(300)));
    const factor = frameOverSweep(analyser, context.sampleRate);
    return bands.map((band) => {
        if (!isHeld(band, context.sampleRate)) {
            return { band, snr: [] };
        }
        const [least, most] = [noise.mean, heard.most].map((powers) => meanPowers(powers, context.sampleRate, band));
        return { band, snr: most.map((level, third) => decibels((factor * level) / least[third])) };
    });
}

function judgeBand({ band, snr }) {
    const [least, most] = [Math.min(...snr), Math.max(...snr)];
    const name = describe(band);
    if (snr.length === 0) {
        return { band, least: -Infinity, good: false, text: `${name}: beyond the microphone's sample rate.` };
    }
    if (least >= GOOD) {
        return { band, least, good: true, text: `${name}: good, ${Math.round(least)} dB.` };
    }
    if (least >= USABLE) {
        return { band, least, good: false, text: `${name}: weak, ${Math.round(least)} dB.` };
    }
    return { band, least, good: false, text: most >= GOOD ? `${name}: a part of it is cut off.` : `${name}: not heard.` };
}

/** The band to use: of the good ones the highest, which people hear least, else the best; null when none is usable. */
function chooseBand(judged) {
    const good = judged.filter((each) => each.good).sort((a, b) => b.band.lowHz - a.band.lowHz);
    const usable = judged.filter(({ least }) => least >= USABLE).sort((a, b) => b.least - a.least);
    return [...good, ...usable, null][0];
}

/**
 * What the measurement and the granted settings mean, in plain words: lines, each good or not, the best band (null:
 * none), and a verdict.
 */
export function judge(measured, granted) {
    const judged = measured.map(judgeBand);
    const best = chooseBand(judged);
    const warnings = compareSettings(granted, []).filter(({ disturbs }) => disturbs);
    const lines = [
        ...judged,
        ...warnings.map(({ label, granted: value, remark }) => ({ good: false, text: `${label}: ${value}. ${remark}` })),
        ...(warnings.length === 0 ? [{ good: true, text: "Capture settings: none that is known to disturb." }] : []),
    ];
    if (best === null) {
        const text = "Not all is well: the sweep was not heard. Turn the volume up, and headphones off.";
        return { lines, best: null, verdict: { good: false, text } };
    }
    const good = best.good && warnings.length === 0;
    const text = good ? `This device can send and hear. Best band: ${nameOf(best.band)}.`
        : `Not all is well: best band ${nameOf(best.band)}${best.good ? "" : ", but weak; try more volume"}.`;
    return { lines, best: best.band, verdict: { good, text } };
}
