// Strictly UTF-8 to text and back, in every kind of scope: AudioWorklets have no TextDecoder.

export const utf8Text = (bytes) =>
    decodeURIComponent(Array.from(bytes, (byte) => `%${byte.toString(16).padStart(2, "0")}`).join(""));

export function utf8Bytes(text) {
    let escaped;
    try {
        escaped = encodeURIComponent(text);
    } catch {
        throw new TypeError("The text has half of a surrogate pair and is no UTF-8.");
    }
    return Uint8Array.from(escaped.match(/%..|./g) ?? [], (part) =>
        part.length > 1 ? parseInt(part.slice(1), 16) : part.charCodeAt(0));
}
