// Plays a frame.

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
