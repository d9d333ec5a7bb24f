// The page's side of the modem's thread.

const worker = new Worker(new URL("decoder-worker.js", import.meta.url), { type: "module" });
const waiting = new Map();
let lastId = 0;
let tellFrame = () => {};
let broken = null;

/** Has `listener` told of every frame that the microphone brings. */
export function onFrame(listener) {
    tellFrame = listener;
}

/** Asks the thread; `transfer` is what moves there. */
export function ask(request, data = {}, transfer = [], onProgress = () => {}) {
    return new Promise((resolve, reject) => {
        if (broken) {
            throw broken;
        }
        const id = ++lastId;
        waiting.set(id, { resolve, reject, onProgress });
        worker.postMessage({ ...data, request, id }, transfer);
    });
}

worker.onmessage = ({ data }) => {
    if (data.frame) {
        tellFrame(data.frame);
        return;
    }
    const { resolve, reject, onProgress } = waiting.get(data.id);
    if (data.progress !== undefined) {
        onProgress(data.progress);
        return;
    }
    waiting.delete(data.id);
    data.error ? reject(new Error(data.error)) : resolve(data.answer);
};

worker.onerror = (event) => {
    event.preventDefault();
    broken = new Error(`The decoder does not run: ${event.message || "it could not be loaded"}. Load the page again.`);
    waiting.forEach(({ reject }) => reject(broken));
    waiting.clear();
};
