// Whether this device can send and hear: how loud its noise is in the band, and how far a sweep that it plays itself
// rises above that at its microphone.
import { play } from "./play.js";
import { compareSettings } from "./settings.js";

const RATE = 48000;
const FROM = 17000, TO = 22000, SECONDS = 1, LEVEL = 0.5; // the sweep
const THIRDS = [[18000, 19000], [19000, 20000], [20000, 20950]]; // of the band
const CLEAR = 20, AUDIBLE = 8; // dB by which a sweep rises above the noise
const LOUD_NOISE = -60; // dB of full scale in a bin; quieter rooms lie 20 dB lower and more
const SILENCE = -120; // dB; what 16 bits cannot say counts as this
const POLL = 20; // milliseconds; the analyser's window is twice as long

function sweep() {
    const fade = 0.02 * RATE;
    const length = SECONDS * RATE;
    return Float32Array.from({ length }, (_, i) => {
        const t = i / RATE;
        const phase = 2 * Math.PI * (FROM + ((TO - FROM) * t) / (2 * SECONDS)) * t;
        return LEVEL * Math.min(1, i / fade, (length - i) / fade) * Math.sin(phase);
    });
}

// The largest level that each bin reaches before `until` is settled.
async function holdPeaks(analyser, until) {
    const spectrum = new Float32Array(analyser.frequencyBinCount);
    const peaks = new Float32Array(spectrum.length).fill(SILENCE);
    let over = false;
    until.finally(() => (over = true)).catch(() => {});
    while (!over) {
        analyser.getFloatFrequencyData(spectrum);
        spectrum.forEach((level, bin) => (peaks[bin] = Math.max(peaks[bin], level)));
        await new Promise((resolve) => setTimeout(resolve, POLL));
    }
    await until;
    return peaks;
}

const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

function meanLevel(peaks, sampleRate, [low, high]) {
    const binWidth = sampleRate / 2 / peaks.length;
    const bins = peaks.subarray(Math.ceil(low / binWidth), Math.floor(high / binWidth));
    return bins.reduce((sum, level) => sum + level, 0) / bins.length;
}

/** Measures over an open microphone: `noise` and `rise`, in dB, for each third of the band. */
export async function measure({ context, analyser }) {
    const levels = (peaks) => THIRDS.map((third) => meanLevel(peaks, context.sampleRate, third));
    await pause(200); // what was played before has died away
    const noise = levels(await holdPeaks(analyser, pause(SECONDS * 1000)));
    const heard = levels(await holdPeaks(analyser, play(sweep(), RATE).then(() => pause(300))));
    return { noise, rise: heard.map((level, i) => level - noise[i]) };
}

function judgeSound(rise) {
    const weakest = Math.min(...rise);
    const decibels = `${Math.round(Math.max(weakest, 0))} dB above the noise where it is weakest`;
    if (weakest >= CLEAR) {
        return { good: true, text: `Loudspeaker to microphone: clear, ${decibels}.` };
    }
    if (weakest >= AUDIBLE) {
        return { good: false, text: `Loudspeaker to microphone: weak, ${decibels}. Try more volume.` };
    }
    const heardAtAll = Math.max(...rise) >= AUDIBLE;
    return { good: false, text: heardAtAll
        ? "Loudspeaker to microphone: a part of the band is missing; this loudspeaker or microphone cuts it off."
        : "Loudspeaker to microphone: the sweep was not heard. Turn the volume up, and headphones off." };
}

/** What the measurement and the granted settings mean: lines, each good or not, in plain words. */
export function judge({ noise, rise }, granted) {
    const loudest = Math.max(...noise);
    const level = `${Math.round(-loudest)} dB below full scale`;
    const warnings = compareSettings(granted).filter(({ disturbs }) => disturbs);
    return [
        judgeSound(rise),
        loudest < LOUD_NOISE
            ? { good: true, text: `Noise in the band: low, ${level}.` }
            : { good: false, text: `Noise in the band: high, ${level}. Something here is loud above 18 kHz.` },
        ...warnings.map(({ label, granted: value, remark }) => ({ good: false, text: `${label}: ${value}. ${remark}` })),
        ...(warnings.length === 0 ? [{ good: true, text: "Capture settings: none that is known to disturb." }] : []),
    ];
}
