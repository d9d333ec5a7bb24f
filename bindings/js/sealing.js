// Sealed payloads: only who has the key reads them, forges none, and plays none back later. docs/transfer.md has the form.
import { KoscError } from "./kosc-error.js";
import { utf8Bytes } from "./utf8.js";

const KEY_BYTES = 32, NONCE_BYTES = 24, TAG_BYTES = 16, HEAD_BYTES = 9;
const SEALED = 128; // added to a kind
const SCRYPT = { N: 2 ** 17, r: 8, p: 1, dkLen: KEY_BYTES };
const SALT = "kosc-transfer-01";
const MOST_PHRASE = 1024;
const WINDOW = 3600; // seconds

const clockNow = () => Date.now() / 1000;

function checkKey(key) {
    if (!(key instanceof Uint8Array) || key.length !== KEY_BYTES) {
        throw new TypeError(`A key is a Uint8Array of ${KEY_BYTES} bytes.`);
    }
    return key.slice();
}

/** What seals and opens, from a cipher and a key derivation with the calls of the packages @noble/ciphers and @noble/hashes. */
export function sealing({ xsalsa20poly1305, scryptAsync }) {
    async function keyFromPassphrase(phrase) {
        const bytes = utf8Bytes(phrase);
        if (bytes.length < 1 || bytes.length > MOST_PHRASE) {
            throw new RangeError(`A pass phrase has 1 to ${MOST_PHRASE} bytes, not ${bytes.length}.`);
        }
        return scryptAsync(bytes, utf8Bytes(SALT), SCRYPT);
    }

    function keyFromFile(bytes) {
        if (bytes.length === KEY_BYTES) {
            return checkKey(bytes);
        }
        const digits = /^([0-9a-f]{64})\r?\n?$/i.exec(String.fromCharCode(...bytes.subarray(0, 2 * KEY_BYTES + 3)));
        if (digits === null || bytes.length > 2 * KEY_BYTES + 2) {
            throw new RangeError(`A key file has ${KEY_BYTES} bytes or ${2 * KEY_BYTES} hexadecimal digits.`);
        }
        return Uint8Array.from(digits[1].match(/../g), (pair) => parseInt(pair, 16));
    }

    /** What TransferSender takes for `seal`; `now` and `nonce` are for known answers. */
    function sealer(key, { now = clockNow, nonce = () => crypto.getRandomValues(new Uint8Array(NONCE_BYTES)) } = {}) {
        const own = checkKey(key);
        return (content, kind) => {
            const plain = new Uint8Array(HEAD_BYTES + content.length);
            new DataView(plain.buffer).setBigUint64(0, BigInt(Math.floor(now())), true);
            plain[8] = kind;
            plain.set(content, HEAD_BYTES);
            const once = nonce();
            const box = xsalsa20poly1305(own, once).encrypt(plain);
            const payload = new Uint8Array(NONCE_BYTES + box.length);
            payload.set(once);
            payload.set(box, NONCE_BYTES);
            return payload;
        };
    }

    class Opener {
        #key;
        #window;
        #now;
        #taken = new Map(); // nonces, and the times that came with them

        constructor(key, { window = WINDOW, now = clockNow } = {}) {
            if (window !== null && !(window >= 0)) {
                throw new RangeError("window is a number of seconds, or null.");
            }
            this.#key = checkKey(key);
            this.#window = window;
            this.#now = now;
        }

        open(payload, kind) {
            if (payload.length < NONCE_BYTES + TAG_BYTES + HEAD_BYTES) {
                throw new KoscError("it is too short for a sealed payload");
            }
            const nonce = payload.subarray(0, NONCE_BYTES);
            let plain;
            try {
                plain = xsalsa20poly1305(this.#key, nonce).decrypt(payload.subarray(NONCE_BYTES));
            } catch {
                throw new KoscError("another key sealed it, or it was forged");
            }
            const sealedAt = Number(new DataView(plain.buffer, plain.byteOffset).getBigUint64(0, true));
            if (plain[8] + SEALED !== kind) {
                throw new KoscError("it was sealed as something else than it is sent as");
            }
            this.#remember(nonce.join(), sealedAt);
            return { content: plain.slice(HEAD_BYTES), sealedAt };
        }

        #remember(nonce, sealedAt) {
            const away = (time) => Math.abs(this.#now() - time);
            if (this.#window !== null) {
                if (away(sealedAt) > this.#window) {
                    throw new KoscError(`it was sealed ${Math.round(away(sealedAt))} s ` +
                        `${this.#now() > sealedAt ? "ago" : "from now"}; ${this.#window} s are allowed`);
                }
                this.#taken.forEach((time, old) => away(time) > this.#window && this.#taken.delete(old));
            }
            if (this.#taken.has(nonce)) {
                throw new KoscError("it was taken before");
            }
            this.#taken.set(nonce, sealedAt);
        }
    }

    return { keyFromPassphrase, keyFromFile, sealer, Opener };
}
