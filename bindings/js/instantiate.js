// The modem over a WebAssembly module that the caller has: what AudioWorklets need, who can neither load nor wait.
// Uses nothing but the language and WebAssembly, since a worklet has no TextDecoder either.
import { KoscError } from "./kosc-error.js";
import { transfers } from "./transfer.js";
import { utf8Bytes, utf8Text } from "./utf8.js";

export { KoscError };

const SAMPLE_RATE = 48000;
const FULL_SCALE = 32768;
const WASI_ENOSYS = 52;
const WIDE = ["voice", 5203.125, 8390.625, 11578.125, 14765.625, "near-ultrasonic"]; // side by side
const COMBINE = [false, "each", "together"]; // in the order of the library's numbers
const LOG_LEVELS = ["off", "error", "warn", "info", "debug"];

/** The message as text without its trailing zeros; null when that is empty, not UTF-8, or has control characters. */
function messageText(data) {
    const end = data.findLastIndex((byte) => byte !== 0) + 1;
    try {
        const text = utf8Text(data.subarray(0, end));
        return /^\P{Cc}+$/u.test(text) ? text : null;
    } catch {
        return null;
    }
}

// One instance of the module. What it reports is kept until the call is over, so that a callback may call again.
class Modem {
    frames = [];
    lines = [];
    told = [];
    combined = null; // of the frame that is told next

    constructor(module, { bands = [], secondLook = true, recording = false, combine = false, crowd = false, logLevel }) {
        const refuse = () => WASI_ENOSYS; // it has no file, clock or environment
        this.exports = new WebAssembly.Instance(module, {
            kosc: {
                band: (name, use, firstSubcarrier, lowHz, highHz) => this.told.push(
                    Object.freeze({ name: this.text(name), use: this.text(use), firstSubcarrier, lowHz, highHz })),
                log: (line) => this.lines.push(this.text(line).trimEnd()),
                combined: (frames, hearings, microphones, snrDb, newestSnrDb, driftPpm, seconds) =>
                    (this.combined = { frames, hearings, microphones, snrDb, newestSnrDb, driftPpm, seconds }),
                frame: (...figures) => this.frames.push(this.frame(...figures)),
            },
            wasi_snapshot_preview1: {
                clock_time_get: refuse, environ_get: refuse, environ_sizes_get: refuse,
                fd_close: refuse, fd_seek: refuse, fd_write: refuse,
            },
            env: { emscripten_notify_memory_growth() {} },
        }).exports;
        this.exports._initialize();
        this.exports.configure(logLevel, secondLook, recording, COMBINE.indexOf(combine), crowd);
        bands.forEach(({ firstSubcarrier }) => this.exports.listenOn(firstSubcarrier));
        this.bands = bands;
        this.measured = secondLook;
    }

    bytes(address, count) {
        return new Uint8Array(this.exports.memory.buffer, address, count);
    }

    // Log texts are ASCII, but where they repeat a part of what was handed in, perhaps half a character.
    text(address) {
        const all = this.bytes(address);
        const bytes = all.subarray(0, all.indexOf(0));
        try {
            return utf8Text(bytes);
        } catch {
            return String.fromCharCode(...bytes);
        }
    }

    room(bytes) {
        const address = this.exports.room(bytes);
        if (address === 0) {
            throw new KoscError(`There is no memory for ${bytes} bytes.`);
        }
        return address;
    }

    namedBands() {
        for (let index = 0; this.exports.band(index); ++index) {} // each is told
        return this.told.splice(0);
    }

    // The library's own sentence, when no band is meant.
    findBand(text) {
        const bytes = utf8Bytes(text.replaceAll("\0", " "));
        const address = this.room(bytes.length + 1);
        this.bytes(address, bytes.length + 1).set([...bytes, 0]);
        if (!this.exports.findBand(address)) {
            const line = this.lines.splice(0).at(-1); // "[ERROR][sentence][number]"
            throw new RangeError(line.slice(line.indexOf("][") + 2, line.lastIndexOf("][")));
        }
        return this.told.pop();
    }

    frame(channel, band, sample, decoded, failedCrcs, message, correlation, needed, coherence, driftPpm, snrDb, evm) {
        const data = decoded ? this.bytes(message, this.exports.messageBytes()).slice() : null;
        const { combined } = this;
        this.combined = null;
        const quality = combined ? { driftPpm: combined.driftPpm, snrDb: combined.snrDb }
            : this.measured ? { coherence, driftPpm, snrDb, evm } : {};
        return {
            channel, band: this.bands[band], sample, time: sample / SAMPLE_RATE, decoded: decoded !== 0, data, text: data && messageText(data),
            failedCrcs, correlation, secondLookNeeded: needed !== 0,
            coherence: null, driftPpm: null, snrDb: null, evm: null, ...quality, combined,
        };
    }
}

function checkSamples(samples) {
    if (!(samples instanceof Int16Array || samples instanceof Float32Array)) {
        throw new TypeError("Samples come as an Int16Array or a Float32Array.");
    }
}

function copySamples(samples, pcm) {
    if (samples instanceof Int16Array) {
        pcm.set(samples);
        return;
    }
    for (let i = 0; i < samples.length; ++i) {
        const scaled = Math.round(samples[i] * FULL_SCALE); // what is not a number is stored as 0
        pcm[i] = scaled >= FULL_SCALE ? FULL_SCALE - 1 : scaled < -FULL_SCALE ? -FULL_SCALE : scaled;
    }
}

function checkCallback(name, callback) {
    if (callback !== undefined && typeof callback !== "function") {
        throw new TypeError(`${name} is a function, or left out.`);
    }
    return callback ?? (() => {});
}

function checkLogLevel({ onLog, logLevel = "info" }) {
    const level = LOG_LEVELS.indexOf(logLevel);
    if (level < 0) {
        throw new RangeError(`logLevel is one of ${LOG_LEVELS.join(", ")}.`);
    }
    return onLog ? level : 0;
}

function checkReception({ combine = false, crowd = false, secondLook = true }) {
    if (!COMBINE.includes(combine)) {
        throw new RangeError("combine is each, together or false.");
    }
    if (crowd && !secondLook) {
        throw new RangeError("crowd needs the second look.");
    }
}

// The message's bytes, padded with zeros.
function messageData(message, size) {
    let data = message;
    if (typeof message === "string") {
        data = utf8Bytes(message);
    } else if (!(message instanceof Uint8Array)) {
        throw new TypeError("A message is a string or a Uint8Array.");
    }
    if (data.length > size) {
        throw new RangeError(`The message is ${data.length} bytes long, the limit is ${size}.`);
    }
    const padded = new Uint8Array(size);
    padded.set(data);
    return padded;
}

/**
 * The modem over `source`, the bytes of kosc.wasm or the module compiled from them; see instantiate.d.ts for what it
 * gives. Every receiver has an instance of its own.
 */
export function instantiate(source) {
    const module = source instanceof WebAssembly.Module ? source : new WebAssembly.Module(source);
    const encoder = new Modem(module, { secondLook: false, logLevel: LOG_LEVELS.indexOf("error") });
    const messageBytes = encoder.exports.messageBytes();
    const frameSamples = encoder.exports.frameSamples();
    const channels = encoder.exports.channels();
    const mostBands = encoder.exports.mostBands();
    const bands = Object.freeze(encoder.namedBands());
    const spacing = bands[0].lowHz / bands[0].firstSubcarrier; // Hz from one subcarrier to the next
    const defaultBand = findBand({ firstSubcarrier: encoder.exports.firstSubcarrier() });
    const wideBands = Object.freeze(WIDE.map(findBand));

    function findBand(band) {
        const isRecord = typeof band === "object" && Number.isInteger(band?.firstSubcarrier);
        if (!isRecord && typeof band !== "string" && typeof band !== "number") {
            throw new TypeError("A band is a name, where it begins in Hz, or a record like those in bands.");
        }
        const found = encoder.findBand(String(isRecord ? band.firstSubcarrier * spacing : band));
        return bands.find(({ firstSubcarrier }) => firstSubcarrier === found.firstSubcarrier) ?? found;
    }

    // The bands, each once, that a receiver's option names.
    function findBands(choice = defaultBand) {
        const set = choice === "all" ? bands : choice === "wide" ? wideBands : null;
        const named = set ?? (Array.isArray(choice) ? choice : [choice]).map(findBand);
        const found = [...new Map(named.map((band) => [band.firstSubcarrier, band])).values()];
        if (found.length < 1 || found.length > mostBands) {
            throw new RangeError(`A receiver listens to 1 to ${mostBands} bands, not ${found.length}.`);
        }
        return Object.freeze(found);
    }

    // The same for who sends on all of them at once, which those that overlap do not bear.
    function bandsApart(choice) {
        const found = findBands(choice);
        const sorted = [...found].sort((a, b) => a.lowHz - b.lowHz);
        const next = sorted.findIndex(({ lowHz }, i) => i > 0 && lowHz <= sorted[i - 1].highHz);
        if (next > 0) {
            const [one, other] = [sorted[next - 1], sorted[next]].map(({ name, lowHz }) => name || `${lowHz} Hz`);
            throw new RangeError(`The bands ${one} and ${other} overlap, so that messages cannot be sent in both at once.`);
        }
        return found;
    }

    function encode(message, { format = "int16", band = defaultBand } = {}) {
        if (format !== "int16" && format !== "float32") {
            throw new RangeError("format is int16 or float32.");
        }
        const data = messageData(message, messageBytes);
        const { firstSubcarrier } = findBand(band);
        const frame = encoder.room(2 * frameSamples + messageBytes); // the frame first: it wants an even address
        encoder.bytes(frame + 2 * frameSamples, messageBytes).set(data);
        if (!encoder.exports.encode(firstSubcarrier, frame + 2 * frameSamples, frame)) {
            throw new KoscError("There is no memory for a frame.");
        }
        const pcm = new Int16Array(encoder.exports.memory.buffer, frame, frameSamples);
        return format === "int16" ? pcm.slice() : Float32Array.from(pcm, (sample) => sample / FULL_SCALE);
    }

    function encodeTogether(messages, { format = "int16", band = "wide" } = {}) {
        const places = bandsApart(band);
        if (messages.length < 1 || messages.length > places.length) {
            throw new RangeError(`${places.length} bands carry 1 to ${places.length} messages at once, not ${messages.length}.`);
        }
        if (messages.length === 1) {
            return encode(messages[0], { format, band: places[0] });
        }
        const sum = new Float64Array(frameSamples);
        messages.forEach((message, i) =>
            encode(message, { band: places[i] }).forEach((sample, at) => (sum[at] += sample)));
        const scale = (FULL_SCALE - 1) / sum.reduce((most, sample) => Math.max(most, Math.abs(sample)), 1);
        const pcm = Int16Array.from(sum, (sample) => Math.round(sample * scale));
        return format === "int16" ? pcm : Float32Array.from(pcm, (sample) => sample / FULL_SCALE);
    }

    class Receiver {
        #modem;
        #callbacks;
        #lastLost = new Map(); // search windows overlap: a frame that does not decode may be found twice

        constructor(options = {}) {
            this.#callbacks = {
                message: checkCallback("onMessage", options.onMessage),
                frame: checkCallback("onFrame", options.onFrame),
                log: checkCallback("onLog", options.onLog),
            };
            checkReception(options);
            this.bands = findBands(options.band);
            this.#modem = new Modem(module, { ...options, bands: this.bands, logLevel: checkLogLevel(options) });
        }

        push(samples, channel = 0) {
            checkSamples(samples);
            return this.#hear(channel, (modem) => {
                if (samples.length === 0) {
                    return true;
                }
                const address = modem.room(2 * samples.length);
                copySamples(samples, new Int16Array(modem.exports.memory.buffer, address, samples.length));
                return modem.exports.receive(channel, address, samples.length);
            });
        }

        finish(channel = 0) {
            return this.#hear(channel, (modem) => modem.exports.finish(channel));
        }

        close() {
            this.#modem = null;
        }

        #hear(channel, receive) {
            if (!Number.isInteger(channel) || channel < 0 || channel >= channels) {
                throw new RangeError(`channel is a number from 0 to ${channels - 1}.`);
            }
            if (this.#modem === null) {
                throw new KoscError("The receiver is closed.");
            }
            const heard = receive(this.#modem);
            const messages = this.#deliver();
            if (!heard) {
                throw new KoscError("There is no memory for receiving.");
            }
            return messages;
        }

        #deliver() {
            const { frames, lines } = this.#modem;
            this.#modem.frames = [];
            this.#modem.lines = [];
            lines.forEach((line) => this.#callbacks.log(line));
            const place = ({ channel, band }) => channel * mostBands + this.bands.indexOf(band);
            const news = frames.filter((frame) => frame.decoded || this.#lastLost.get(place(frame)) !== frame.sample);
            if (this.bands.length > 1) {
                news.sort((a, b) => a.sample - b.sample); // they came band by band
            }
            for (const frame of news) {
                if (!frame.decoded) {
                    this.#lastLost.set(place(frame), frame.sample);
                }
                this.#callbacks.frame(frame);
                if (frame.decoded) {
                    this.#callbacks.message(frame);
                }
            }
            return news.filter((frame) => frame.decoded);
        }
    }

    function inspect(samples, { band, combine, crowd } = {}) {
        const frames = [];
        const receiver = new Receiver({ band, combine, crowd, recording: true, onFrame: (frame) => frames.push(frame) });
        checkSamples(samples);
        for (let start = 0; start < samples.length; start += frameSamples) {
            receiver.push(samples.subarray(start, start + frameSamples));
        }
        receiver.finish();
        return receiver.bands.length > 1 ? frames.sort((a, b) => a.sample - b.sample) : frames;
    }

    const makeInstance = () => new Modem(module, { secondLook: false, logLevel: 0 });
    const version = encoder.text(encoder.exports.version());
    return {
        version, sampleRate: SAMPLE_RATE, messageBytes, frameSamples, channels, bands, wideBands, defaultBand, findBand,
        encode, encodeTogether, Receiver, inspect,
        ...transfers(makeInstance, { encodeTogether, bandsApart, sampleRate: SAMPLE_RATE }),
    };
}
