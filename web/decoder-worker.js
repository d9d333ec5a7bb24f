// The modem's thread: encodes, and decodes what the microphone or a file gives. Requests carry an id, and get one
// answer with it; frames that the microphone brings are told as they come.
import { encode, Receiver, channels, frameSamples, sampleRate } from "./kosc/index.js";
import { Resampler } from "./resampler.js";

let stopListening = () => {};

function listen({ port, rate }) {
    const receiver = new Receiver({ onFrame: (frame) => postMessage({ frame }) });
    const resampler = rate === sampleRate ? null : new Resampler(rate, sampleRate);
    port.onmessage = ({ data }) => receiver.push(resampler ? resampler.push(data) : data);
    stopListening = () => {
        port.close();
        receiver.close();
        stopListening = () => {};
    };
}

// Tells how far it is about ten times.
function decodeChannel(receiver, channel, samples, rate, tell) {
    const resampler = rate === sampleRate ? null : new Resampler(rate, sampleRate);
    const step = Math.ceil(samples.length / 10 / frameSamples) * frameSamples;
    for (let at = 0; at < samples.length; at += frameSamples) {
        const block = samples.subarray(at, at + frameSamples);
        receiver.push(resampler ? resampler.push(block) : block, channel);
        if (at % step === 0) {
            tell(at / samples.length);
        }
    }
    if (resampler) {
        receiver.push(resampler.finish(), channel);
    }
    receiver.finish(channel);
}

function decodeRecording({ id, tracks, rate }) {
    const frames = [];
    const receiver = new Receiver({ recording: true, onFrame: (frame) => frames.push(frame) });
    tracks.slice(0, channels).forEach((samples, channel) =>
        decodeChannel(receiver, channel, samples, rate,
            (part) => postMessage({ id, progress: (channel + part) / tracks.length })));
    receiver.close();
    return frames.sort((a, b) => a.sample - b.sample);
}

const requests = {
    encode: ({ message }) => encode(message, { format: "float32" }),
    listen,
    stop: () => stopListening(),
    decodeRecording,
};

onmessage = ({ data }) => {
    try {
        postMessage({ id: data.id, answer: requests[data.request](data) });
    } catch (error) {
        postMessage({ id: data.id, error: error.message });
    }
};
