// Plays a frame, or many without gaps.

/** Resolves when `samples` have been played. The context runs at their rate: a browser interpolates only roughly. */
export async function play(samples, sampleRate) {
    const context = new AudioContext({ sampleRate });
    const buffer = context.createBuffer(1, samples.length, sampleRate);
    buffer.copyToChannel(samples, 0);
    const source = new AudioBufferSourceNode(context, { buffer });
    source.connect(context.destination);
    const ended = new Promise((resolve) => (source.onended = resolve));
    source.start();
    await context.resume();
    await ended;
    await context.close();
}

const AHEAD = 1; // seconds that are scheduled before they sound

/** Plays blocks one after the other, without gaps as long as they come in time. */
export class Player {
    #context;
    #end = 0; // of what is scheduled, in samples
    #closed = false;

    constructor(sampleRate) {
        this.#context = new AudioContext({ sampleRate });
    }

    /** Resolves when the next block is wanted; to false once the player was closed. */
    async queue(samples) {
        const context = this.#context;
        if (this.#closed) {
            return false;
        }
        await context.resume();
        const buffer = context.createBuffer(1, samples.length, context.sampleRate);
        buffer.copyToChannel(samples, 0);
        const source = new AudioBufferSourceNode(context, { buffer });
        source.connect(context.destination);
        this.#end = Math.max(this.#end, Math.ceil((context.currentTime + AHEAD / 10) * context.sampleRate)); // on a sample
        source.start(this.#end / context.sampleRate);
        this.#end += samples.length;
        while (!this.#closed && this.#left() > AHEAD) {
            await new Promise((resolve) => setTimeout(resolve, 1000 * (this.#left() - AHEAD)));
        }
        return !this.#closed;
    }

    #left() {
        return this.#end / this.#context.sampleRate - this.#context.currentTime;
    }

    /** Plays what is left. */
    async finish() {
        while (!this.#closed && this.#left() > 0) {
            await new Promise((resolve) => setTimeout(resolve, 1000 * this.#left()));
        }
        await this.close();
    }

    /** Falls silent at once. */
    async close() {
        if (!this.#closed) {
            this.#closed = true;
            await this.#context.close();
        }
    }
}
