// The capture settings that the modem needs, and what to say when the browser grants others.

export const ASKED = {
    echoCancellation: false, noiseSuppression: false, autoGainControl: false, sampleRate: 48000, channelCount: 1,
};

// Half of it must lie above the band, which ends at 20.95 kHz.
export const LEAST_RATE = 44100;

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

function warningOf(name, granted) {
    if (granted === undefined) {
        return null; // some browsers do not say
    }
    if (name !== "sampleRate") {
        return granted ? WHEN_ON[name] : null;
    }
    if (granted < LEAST_RATE) {
        return "The band, 18 to 21 kHz, is cut off: nothing can be heard.";
    }
    return granted === ASKED.sampleRate ? null : "The page converts it to 48 kHz; the band fits.";
}

/** A row a setting: what was asked and granted, in words, and a warning or null. Before listening nothing is granted. */
export function compareSettings(granted) {
    return Object.keys(LABELS).map((name) => ({
        label: LABELS[name],
        asked: inWords(ASKED[name]),
        granted: granted ? inWords(granted[name]) : "–",
        warning: granted ? warningOf(name, granted[name]) : null,
    }));
}
