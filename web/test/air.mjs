// A loudspeaker and a microphone in one room, within the browser.

/** Runs in a page, which then hears what it plays: through the air with its noise, and a microphone that ends at `cutoff`. */
export const hearItself = (cutoff) => {
    const context = new AudioContext({ sampleRate: 48000 });
    const air = context.createMediaStreamDestination();
    const { connect } = AudioNode.prototype;
    const filters = cutoff ? Array.from({ length: 6 }, () => new BiquadFilterNode(context, { frequency: cutoff })) : [];
    const inlet = filters.reduce((target, filter) => connect.call(filter, target) && filter, air);
    const noise = new AudioBuffer({ length: 48000, sampleRate: 48000 });
    noise.getChannelData(0).forEach((_, i, samples) => (samples[i] = 0.01 * (Math.random() - 0.5)));
    const hiss = new AudioBufferSourceNode(context, { buffer: noise, loop: true });
    connect.call(hiss, air);
    hiss.start();
    AudioNode.prototype.connect = function (target, ...rest) {
        if (target === this.context.destination) {
            const copy = this.context.createMediaStreamDestination();
            connect.call(this, copy);
            connect.call(context.createMediaStreamSource(copy.stream), inlet);
        }
        return connect.call(this, target, ...rest);
    };
    navigator.mediaDevices.getUserMedia = async () => {
        await context.resume(); // a page may start sound once it was clicked
        return air.stream.clone();
    };
};
