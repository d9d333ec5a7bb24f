// What comes in several messages, as list items: how far it is, then the text, or the file as a download.
import { nameOf } from "./bands.js";
import { element } from "./messages.js";
import { ofTransfer } from "./progress.js";

const MOST_ITEMS = 100; // others may begin any number
const FRAME_SECONDS = 0.24;

export class Incoming {
    #list;
    #items = new Map(); // by transfer, the newest last
    #finished = [];

    constructor(list) {
        this.#list = list;
    }

    /** Takes a frame whose message belongs to a transfer; `time` is when it was heard, in words. */
    take(frame, time) {
        const { transfer } = frame;
        const name = `${transfer.id}/${transfer.needed}`;
        if (transfer.state === "progress") {
            this.#show(name, frame);
        } else if (transfer.state !== "repeated") {
            this.#items.get(name)?.item.remove();
            this.#items.delete(name);
            this.#finish(transfer, time, frame);
        }
    }

    /** Says of all that is not whole that it will not be. */
    end() {
        this.#items.forEach(({ figures, transfer }) =>
            (figures.textContent = `Not whole: ${transfer.held} of ${transfer.needed} messages came.`));
        this.#items.clear();
    }

    clear() {
        this.#list.replaceChildren();
        this.#items.clear();
        this.#finished.splice(0).forEach(({ url }) => URL.revokeObjectURL(url));
    }

    #show(name, frame) {
        const { transfer } = frame;
        const entry = this.#items.get(name) ?? this.#begin(name, frame);
        const seconds = frame.time + FRAME_SECONDS - entry.time;
        const rate = seconds > 2 * FRAME_SECONDS ? (transfer.held - entry.before) / seconds : 0;
        entry.transfer = transfer;
        entry.bar.value = transfer.held;
        entry.figures.textContent = `${ofTransfer(transfer.held, transfer.needed, rate)}, ${nameOf(frame.band)}`;
    }

    #begin(name, { time, transfer }) {
        if (this.#items.size >= MOST_ITEMS) {
            const [[oldest, { item }]] = this.#items;
            item.remove();
            this.#items.delete(oldest);
        }
        const item = document.createElement("li");
        const bar = Object.assign(document.createElement("progress"), { max: transfer.needed });
        bar.setAttribute("aria-label", "Received");
        const figures = element("p", "figures", "");
        item.append(bar, figures);
        this.#append(item);
        const entry = { item, bar, figures, time, before: transfer.held - 1, transfer };
        this.#items.set(name, entry);
        return entry;
    }

    #finish({ state, payload, reason }, time, frame) {
        const item = document.createElement("li");
        const figures = element("p", "figures", "");
        figures.append(element("span", "time", time), element("span", "", nameOf(frame.band)));
        if (payload === null) {
            item.append(element("p", "text bad", state === "mismatch" ? "What came does not fit together; it begins anew."
                : `Refused: ${reason}.`));
        } else {
            const url = payload.text === null ? this.#offer(item, payload) : null;
            if (url === null) {
                item.append(element("p", "text", payload.text));
            }
            figures.append(element("span", "", `${payload.data.length} bytes`),
                ...(payload.sealedAt === null ? [] : [element("span", "badge", "sealed")]));
            this.#remember(item, url);
        }
        item.append(figures);
        this.#append(item);
    }

    // A link that saves the bytes under a harmless name; nothing is opened or shown of them.
    #offer(item, payload) {
        const url = URL.createObjectURL(new Blob([payload.data], { type: "application/octet-stream" }));
        const link = Object.assign(element("a", "text", `Save ${payload.fileName}`), { href: url, download: payload.fileName });
        item.append(link);
        return url;
    }

    #remember(item, url) {
        this.#finished.push({ item, url });
        if (this.#finished.length > MOST_ITEMS) {
            const oldest = this.#finished.shift();
            oldest.item.remove();
            URL.revokeObjectURL(oldest.url);
        }
    }

    #append(item) {
        this.#list.append(item);
        this.#list.scrollTop = this.#list.scrollHeight;
    }
}
