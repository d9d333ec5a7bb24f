// Files and long text in the modem's thread: what goes out, what comes together of the frames heard, and the key.
import { safeName, TransferCollector, TransferSender } from "./kosc/index.js";

const NO_KEY = { seal: undefined, openers: () => undefined };
let secret = NO_KEY;
let listening = new TransferCollector();
let sound = null;

const KEY_DIGITS = /^[0-9a-f]{64}$/i;

// `text` is a key in hexadecimal digits, or a pass phrase; empty for none. What came before another key was set is forgotten.
async function setKey({ text }) {
    if (text === "") {
        secret = NO_KEY;
    } else {
        const { keyFromFile, keyFromPassphrase, Opener, sealer } = await import("./sealed.js");
        const key = KEY_DIGITS.test(text) ? keyFromFile(new TextEncoder().encode(text)) : await keyFromPassphrase(text);
        secret = { seal: sealer(key), openers: (window) => new Opener(key, { window }) };
    }
    listening = new TransferCollector({ opener: secret.openers() });
}

function beginTransfer({ content, name, rounds, band, sealed }) {
    if (sealed !== (secret !== NO_KEY)) {
        throw new Error("The key is not the one that is set; type it again.");
    }
    const sender = new TransferSender(content, { name, seal: secret.seal });
    sound = sender.sound({ rounds, band, format: "float32" });
    return { needed: sender.needed, total: rounds * sender.round };
}

/** A collector of its own for a recording, whose seals may be of any day. */
export const recordingCollector = () => new TransferCollector({ opener: secret.openers(null) });

/** The frame with what its message is to a collector, and a harmless name for a file. */
export function taken(frame, collector = listening) {
    const transfer = frame.decoded ? collector.take(frame.data) : null;
    if (transfer?.payload) {
        transfer.payload.fileName = safeName(transfer.payload.name ?? "");
    }
    return { ...frame, transfer };
}

export const transferRequests = { setKey, beginTransfer, nextSound: () => sound.next().value ?? null };
