// Hands the microphone's samples to the decoder, in blocks, over a port that bypasses the page.

const BLOCK = 2048;

class Capture extends AudioWorkletProcessor {
    #decoder = null;
    #block = new Float32Array(BLOCK);
    #filled = 0;

    constructor() {
        super();
        this.port.onmessage = ({ data }) => {
            this.#decoder = data;
            this.port.postMessage({ started: currentTime }); // the context's time at the first sample
        };
    }

    process([[samples]]) {
        if (this.#decoder === null || samples === undefined) {
            return true;
        }
        this.#block.set(samples, this.#filled); // 128 samples; a block holds a whole number of them
        this.#filled += samples.length;
        if (this.#filled === BLOCK) {
            this.#decoder.postMessage(this.#block, [this.#block.buffer]);
            this.#block = new Float32Array(BLOCK);
            this.#filled = 0;
        }
        return true;
    }
}

registerProcessor("capture", Capture);
