// The capture settings that the modem needs, and what to say when the browser grants others.
import { describe, isHeld } from "./bands.js";

export const ASKED = {
    echoCancellation: false, noiseSuppression: false, autoGainControl: false, sampleRate: 48000, channelCount: 1,
};

const LABELS = {
    echoCancellation: "Echo cancellation", noiseSuppression: "Noise suppression", autoGainControl: "Automatic gain",
    sampleRate: "Sample rate",
};

const WHEN_ON = {
    echoCancellation: "It may cut the band off, and this page's own sound with it.",
    noiseSuppression: "It takes the modem's sound for noise, and removes it.",
    autoGainControl: "It changes the level within a frame.",
};

const kilohertz = (rate) => `${rate / 1000} kHz`;
const inWords = (value) => (value === undefined ? "not said" : typeof value === "number" ? kilohertz(value) : value ? "on" : "off");

// What a granted setting means, if it is not the one asked for; some browsers do not say.
function remarkOn(name, granted, bands) {
    if (granted === undefined || granted === ASKED[name]) {
        return { disturbs: false, remark: null };
    }
    if (name !== "sampleRate") {
        return { disturbs: true, remark: WHEN_ON[name] };
    }
    const missing = bands.filter((band) => !isHeld(band, granted));
    return missing.length > 0
        ? { disturbs: true, remark: `It cuts off, so that nothing is heard there: ${missing.map(describe).join("; ")}.` }
        : { disturbs: false, remark: "Not what was asked, but the band fits: the page converts it." };
}

/**
 * A row a setting: what was asked and granted, in words, and what that means for `bands`. Before listening nothing is
 * granted.
 */
export function compareSettings(granted, bands) {
    return Object.keys(LABELS).map((name) => ({
        label: LABELS[name],
        asked: inWords(ASKED[name]),
        granted: granted ? inWords(granted[name]) : "–",
        ...remarkOn(name, granted?.[name], bands),
    }));
}
