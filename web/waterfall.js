// A live picture of the spectrum around the bands that are listened to: time runs to the right, frequency upwards. The
// newest sound is at the right edge; a column is drawn for every pixel that time has moved on.
import { describe, edges, kilohertz } from "./bands.js";

const BELOW = 4000, ABOVE = 1000; // Hz that are shown around the bands
const SPEED = 80; // pixels a second
const FLOOR_SPEED = 0.05; // share by which the noise floor follows a column's median
const SILENCE = -140; // dB; nothing of a microphone's is that low
const BELOW_FLOOR = 6, ABOVE_FLOOR = 44; // dB that the colours span

const STOPS = [[8, 12, 26], [38, 24, 92], [128, 37, 120], [222, 73, 92], [253, 160, 98], [252, 246, 190]];

function colour(level) {
    const place = Math.min(Math.max(level, 0), 0.9999) * (STOPS.length - 1);
    const stop = Math.floor(place);
    return STOPS[stop].map((from, i) => from + (STOPS[stop + 1][i] - from) * (place - stop));
}
const COLOURS = Array.from({ length: 256 }, (_, i) => colour(i / 255));

export class Waterfall {
    #canvas;
    #draw;
    #scale = 1;
    #input = null;
    #floor = null;
    #low = 0;
    #high = 24000;
    #edges;

    /** Draws on `canvas`, and marks bands in `overlay`, which covers it. */
    constructor(canvas, overlay) {
        this.#canvas = canvas;
        this.#edges = overlay;
        this.#draw = canvas.getContext("2d", { alpha: false });
        new ResizeObserver(() => this.#fit()).observe(canvas);
        this.#fit();
    }

    /** Shows the spectrum around these bands, with their edges. */
    show(bands) {
        this.#low = Math.max(0, Math.min(...bands.map(({ lowHz }) => lowHz)) - BELOW);
        this.#high = Math.max(...bands.map(({ highHz }) => highHz)) + ABOVE;
        this.#floor = null;
        this.#fit();
        this.#edges.replaceChildren(...bands.map((band) => this.#marked(band, bands.length === 1)));
        const named = bands.map(describe).join("; ");
        const range = edges({ lowHz: this.#low, highHz: this.#high });
        this.#canvas.setAttribute("aria-label", `Live waterfall of the sound, ${range}, with the edges of ${named}`);
    }

    // Labels for the edges, or with several bands one for the name.
    #marked(band, alone) {
        const mark = document.createElement("div");
        mark.className = "band";
        mark.style.top = `${100 * this.#share(band.highHz)}%`;
        mark.style.height = `${100 * (this.#share(band.lowHz) - this.#share(band.highHz))}%`;
        const labels = alone ? [kilohertz(band.highHz), kilohertz(band.lowHz)] : [describe(band)];
        mark.append(...labels.map((text) => Object.assign(document.createElement("span"), { textContent: text })));
        return mark;
    }

    start(analyser, context) {
        const spectrum = new Float32Array(analyser.frequencyBinCount);
        this.#input = { analyser, context, spectrum, drawn: this.#column(context.currentTime) };
        this.#floor = null;
        this.#step();
    }

    stop() {
        this.#input = null;
    }

    /** Frames what was heard in a band from `start` to `end`, in seconds of the context. */
    mark(band, start, end, good) {
        const [top, bottom] = [band.highHz, band.lowHz].map((frequency) => this.#share(frequency) * this.#canvas.height);
        const left = this.#canvas.width - (this.#input.drawn - this.#column(start));
        this.#draw.strokeStyle = good ? "#7df0c3" : "#ffb454";
        this.#draw.lineWidth = 2 * this.#scale;
        this.#draw.strokeRect(left, top, this.#column(end) - this.#column(start), bottom - top);
    }

    #column(seconds) {
        return Math.floor(seconds * SPEED * this.#scale);
    }

    // Of the picture's height, from the top.
    #share(frequency) {
        return (this.#high - frequency) / (this.#high - this.#low);
    }

    #fit() {
        this.#scale = window.devicePixelRatio;
        this.#canvas.width = Math.max(1, Math.round(this.#canvas.clientWidth * this.#scale));
        this.#canvas.height = Math.max(1, Math.round(this.#canvas.clientHeight * this.#scale));
        this.#draw.fillStyle = `rgb(${STOPS[0]})`;
        this.#draw.fillRect(0, 0, this.#canvas.width, this.#canvas.height);
        if (this.#input) {
            this.#input.drawn = this.#column(this.#input.context.currentTime);
        }
    }

    #step() {
        if (this.#input === null) {
            return;
        }
        const { analyser, context, spectrum, drawn } = this.#input;
        const columns = Math.min(this.#column(context.currentTime) - drawn, this.#canvas.width);
        if (columns > 0) {
            analyser.getFloatFrequencyData(spectrum);
            this.#draw.drawImage(this.#canvas, -columns, 0);
            this.#draw.putImageData(this.#image(spectrum, context.sampleRate, columns), this.#canvas.width - columns, 0);
            this.#input.drawn += columns;
        }
        requestAnimationFrame(() => this.#step());
    }

    // The level in `spectrum` (dB) at each row, in `columns` equal columns.
    #image(spectrum, sampleRate, columns) {
        const { height } = this.#canvas;
        const binWidth = sampleRate / 2 / spectrum.length;
        const levels = Array.from({ length: height }, (_, row) => {
            const frequency = this.#high - ((row + 0.5) / height) * (this.#high - this.#low);
            return spectrum[Math.min(Math.round(frequency / binWidth), spectrum.length - 1)];
        });
        const median = levels.slice().sort((a, b) => a - b)[height >> 1];
        if (median > SILENCE) {
            this.#floor ??= median;
            this.#floor += FLOOR_SPEED * (median - this.#floor);
        }
        const image = this.#draw.createImageData(columns, height);
        levels.forEach((level, row) => {
            const part = (level - (this.#floor ?? 0) + BELOW_FLOOR) / (BELOW_FLOOR + ABOVE_FLOOR);
            const rgb = COLOURS[Math.round(255 * Math.min(Math.max(part || 0, 0), 1))];
            for (let column = 0; column < columns; ++column) {
                image.data.set([...rgb, 255], 4 * (row * columns + column));
            }
        });
        return image;
    }
}
