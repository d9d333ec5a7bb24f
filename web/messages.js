// Frames as list items and sentences.
import { nameOf } from "./bands.js";

const hex = (data) => Array.from(data, (byte) => byte.toString(16).padStart(2, "0")).join(" ");
const signed = (value) => new Intl.NumberFormat("en", { maximumFractionDigits: 0, signDisplay: "exceptZero" }).format(value);

export function element(name, className, text) {
    const made = document.createElement(name);
    made.className = className;
    made.textContent = text;
    return made;
}

const numberOf = (count, thing) => `${count} ${thing}${count === 1 ? "" : "s"}`;

// What it took to read the frame's message, if that is more than usual.
function origin({ combined, secondLookNeeded }) {
    return combined
        ? `put together from ${numberOf(combined.frames, "frame")}, ${numberOf(combined.microphones, "microphone")}`
        : secondLookNeeded && "second look needed";
}

/** Appends the frame's message to `list`; `time` is when it was heard, in words. */
export function addMessage(list, frame, time) {
    const item = document.createElement("li");
    const figures = element("p", "figures", "");
    const how = origin(frame);
    figures.append(
        element("span", "time", time),
        element("span", "", nameOf(frame.band)),
        element("span", "", `SNR ${frame.snrDb.toFixed(1)} dB`),
        element("span", "", `drift ${signed(frame.driftPpm)} ppm`),
        ...(how ? [element("span", "badge", how)] : []));
    item.append(element("p", frame.text ? "text" : "text bytes", frame.text ?? hex(frame.data)), figures);
    list.append(item);
    list.scrollTop = list.scrollHeight;
}

/** How many frames were heard, and how many of them could not be read. */
export function countFrames(frames) {
    const messages = frames.filter((frame) => frame.decoded).length;
    const lost = frames.length - messages;
    const text = numberOf(messages, "message");
    return lost === 0 ? text : `${text}, ${numberOf(lost, "frame")} too weak to read`;
}
