// Files and long text over messages: the transfer library of an instance of the module, payloads packed and unpacked.
import { KoscError } from "./kosc-error.js";
import { utf8Bytes, utf8Text } from "./utf8.js";

const KINDS = ["bytes", "text", "file"];
const FILE = 2;
const SEALED = 128; // added to a kind
const MOST_NAME = 255;
const STATES = ["plain", "progress", "repeated", "finished", "mismatch", "refused"];
const NO_MEMORY = -2;

const MOST_SAVED_NAME = 200, MOST_ENDING = 16; // bytes
const DEVICES = /^(con|prn|aux|nul|com\d|lpt\d)(\.|$)/i; // no files, on Windows

const sizeOf = (text) => utf8Bytes(text).length;

function cut(text, room) {
    const letters = Array.from(text);
    while (sizeOf(letters.join("")) > room) {
        letters.pop();
    }
    return letters.join("");
}

/** A file's name without a path, made of one that was sent: nothing unseen, no dot at its beginning. */
export function safeName(name) {
    const last = name.split(/[/\\]/).at(-1);
    const clean = last.replace(/[\p{C}\p{Zl}\p{Zp}<>:"|?*]/gu, "_").replace(/^\s+|[\s.]+$/gu, "").replace(/^[.-]/, "_");
    const file = DEVICES.test(clean) ? `_${clean}` : clean || "received";
    const [, stem, ending] = /^(.+?)(\.[^.]*)?$/su.exec(file);
    const short = ending !== undefined && sizeOf(ending) <= MOST_ENDING + 1;
    return short ? cut(stem, MOST_SAVED_NAME - sizeOf(ending)) + ending : cut(file, MOST_SAVED_NAME);
}

function packed(content, name) {
    if (typeof content !== "string" && !(content instanceof Uint8Array)) {
        throw new TypeError("What is sent is a string or a Uint8Array.");
    }
    if (name === undefined) {
        return typeof content === "string" ? [1, utf8Bytes(content)] : [0, content];
    }
    if (typeof name !== "string" || typeof content === "string") {
        throw new TypeError("A file has a string for a name and a Uint8Array for its contents.");
    }
    const bytes = utf8Bytes(name);
    if (bytes.length > MOST_NAME) {
        throw new RangeError(`The file's name is ${bytes.length} bytes long, the limit is ${MOST_NAME}.`);
    }
    return [FILE, Uint8Array.of(bytes.length, ...bytes), content];
}

const joined = (parts) => {
    const all = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
    parts.reduce((at, part) => (all.set(part, at), at + part.length), 0);
    return all;
};

function textOf(bytes) {
    try {
        return utf8Text(bytes);
    } catch {
        return null;
    }
}

function unpacked(kind, payload, sealedAt) {
    const [length = 0] = payload;
    if (kind === FILE && payload.length < 1 + length) {
        throw new KoscError("it is said to be a file, and is none");
    }
    const data = kind === FILE ? payload.slice(1 + length) : payload;
    const name = kind === FILE ? textOf(payload.subarray(1, 1 + length)) ?? "" : null;
    return { kind: KINDS[kind] ?? "unknown", data, text: kind === 1 ? textOf(data) : null, name, sealedAt };
}

const isCount = (value, most) => Number.isInteger(value) && value >= 0 && value <= most;

/** The classes over a module; `makeInstance` gives one with memory of its own, `sound` what plays messages. */
export function transfers(makeInstance, { encodeTogether, bandsApart, sampleRate }) {
    class TransferSender {
        #instance = makeInstance();

        constructor(content, { name, nonce = 0, seal } = {}) {
            const [kind, ...parts] = packed(content, name);
            const payload = seal ? seal(joined(parts), kind) : joined(parts);
            const most = this.#instance.exports.mostPayload();
            if (payload.length < 1 || payload.length > most) {
                throw new RangeError(`The payload is ${payload.length} bytes long; 1 to ${most} can be sent.`);
            }
            if (!isCount(nonce, 0xffffffff)) {
                throw new RangeError("nonce is a whole number of 32 bits.");
            }
            const address = this.#instance.room(payload.length);
            this.#instance.bytes(address, payload.length).set(payload);
            if (!this.#instance.exports.sendPayload(address, payload.length, kind + (seal ? SEALED : 0), nonce)) {
                throw new KoscError("There is no memory for the payload.");
            }
            this.needed = this.#instance.exports.needed();
            this.round = this.#instance.exports.round();
        }

        message(index) {
            if (!isCount(index, 0xffffffff)) {
                throw new RangeError("A message's index is a whole number of 32 bits.");
            }
            const { exports } = this.#instance;
            return this.#instance.bytes(exports.transferMessage(index), exports.messageBytes()).slice();
        }

        *sound({ rounds = 1, start = 0, gap = 0, band, format } = {}) {
            const bands = bandsApart(band);
            const end = start + Math.floor(rounds * this.round);
            const silence = Math.round(gap * sampleRate);
            for (let at = start; at < end; at += bands.length) {
                const count = Math.min(bands.length, end - at);
                const messages = Array.from({ length: count }, (_, i) => this.message((at + i) % 2 ** 32));
                const frame = encodeTogether(messages, { band: bands, format });
                const block = silence > 0 ? new frame.constructor(frame.length + silence) : frame;
                block.set(frame);
                yield block;
            }
        }
    }

    class TransferCollector {
        #instance = makeInstance();
        #opener;
        #mostBytes;

        constructor({ opener, mostBytes = this.#instance.exports.mostPayload() } = {}) {
            if (!isCount(mostBytes, this.#instance.exports.mostPayload()) || mostBytes < 1) {
                throw new RangeError(`mostBytes is a whole number from 1 to ${this.#instance.exports.mostPayload()}.`);
            }
            this.#opener = opener;
            this.#mostBytes = mostBytes;
            if (!this.#instance.exports.collect(mostBytes)) {
                throw new KoscError("There is no memory for a collector.");
            }
        }

        take(message) {
            const { exports } = this.#instance;
            const data = message instanceof Uint8Array ? message : message?.data;
            if (!(data instanceof Uint8Array) || data.length !== exports.messageBytes()) {
                throw new TypeError(`A message has ${exports.messageBytes()} bytes in a Uint8Array.`);
            }
            const address = this.#instance.room(data.length);
            this.#instance.bytes(address, data.length).set(data);
            const result = exports.take(address);
            if (result === NO_MEMORY) {
                throw new KoscError("There is no memory for the transfer.");
            }
            const [id, held, needed, kind, at, length] = new Uint32Array(exports.memory.buffer, exports.event(), 6);
            const event = { state: STATES[result], id, held, needed, payload: null, reason: "" };
            const refused = (reason) => ({ ...event, state: "refused", reason });
            if (event.state === "plain" && this.#opener) {
                return refused("it is not sealed");
            }
            if (event.state === "refused" || length > this.#mostBytes) { // before the end only messages are counted
                return refused("it is longer than is allowed");
            }
            if (event.state !== "finished") {
                return event;
            }
            try {
                return { ...event, payload: this.#opened(this.#instance.bytes(at, length).slice(), kind) };
            } catch (error) {
                if (error instanceof KoscError) {
                    return refused(error.message);
                }
                throw error;
            }
        }

        #opened(payload, kind) {
            const sealed = (kind & SEALED) !== 0;
            if (sealed && !this.#opener) {
                throw new KoscError("it is sealed, and there is no key");
            }
            if (!sealed && this.#opener) {
                throw new KoscError("it is not sealed");
            }
            const { content, sealedAt } = sealed ? this.#opener.open(payload, kind) : { content: payload, sealedAt: null };
            return unpacked(kind & ~SEALED, content, sealedAt);
        }
    }

    return { TransferSender, TransferCollector, safeName };
}
