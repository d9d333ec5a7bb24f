// Bands in words, and what a rate holds of them.
import { PASSED } from "./resampler.js";

const MODEM_RATE = 48000;

/** A frequency or rate in kHz, to 100 Hz. */
export const kilohertz = (hertz) => `${Math.round(hertz / 100) / 10} kHz`;

export const edges = ({ lowHz, highHz }) => `${kilohertz(lowHz).replace(" kHz", "")}–${kilohertz(highHz)}`;

export const nameOf = (band) => band.name || edges(band);

export const describe = (band) => (band.name ? `${band.name}, ${edges(band)}` : edges(band));

/** The highest frequency that is heard of sound that comes at `rate`. */
export const endOf = (rate) => (rate < MODEM_RATE ? PASSED * rate : MODEM_RATE / 2);

export const isHeld = (band, rate) => band.highHz <= endOf(rate);
