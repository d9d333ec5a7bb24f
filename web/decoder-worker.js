// The modem's thread: encodes, and decodes what the microphone or a file gives. Requests carry an id, and get one
// answer with it; frames that the microphone brings are told as they come.
import {
    bands, channels, defaultBand, encodeTogether, frameSamples, Receiver, sampleRate, wideBands,
} from "./kosc/index.js";
import { Resampler } from "./resampler.js";
import { recordingCollector, taken, transferRequests } from "./transfer-thread.js";

let tuned = defaultBand;
let listening = null;

function listen({ port, rate }) {
    listening = { port, receiver: null, pushed: 0 };
    const resampler = rate === sampleRate ? null : new Resampler(rate, sampleRate);
    port.onmessage = ({ data }) => {
        const samples = resampler ? resampler.push(data) : data;
        listening.receiver.push(samples);
        listening.pushed += samples.length;
    };
    tune({ band: tuned });
}

// Where to listen, from now on; times go on counting from where listening started.
function tune({ band }) {
    tuned = band;
    if (listening !== null) {
        const start = listening.pushed / sampleRate;
        listening.receiver?.close();
        const onFrame = (frame) => postMessage({ frame: taken({ ...frame, time: start + frame.time }) });
        listening.receiver = new Receiver({ band, onFrame });
    }
}

function stopListening() {
    listening.port.close();
    listening.receiver.close();
    listening = null;
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

function decodeRecording({ id, tracks, rate, band }) {
    const frames = [];
    const receiver = new Receiver({ band, recording: true, onFrame: (frame) => frames.push(frame) });
    tracks.slice(0, channels).forEach((samples, channel) =>
        decodeChannel(receiver, channel, samples, rate,
            (part) => postMessage({ id, progress: (channel + part) / tracks.length })));
    receiver.close();
    const collector = recordingCollector();
    return frames.sort((a, b) => a.sample - b.sample).map((frame) => taken(frame, collector));
}

const requests = {
    bands: () => ({ bands, wideBands, defaultBand }),
    // One message, on all bands that are chosen.
    encode: ({ message, band }) => encodeTogether(band.map(() => message), { format: "float32", band }),
    listen,
    tune,
    stop: stopListening,
    decodeRecording,
    ...transferRequests,
};

onmessage = async ({ data }) => {
    try {
        postMessage({ id: data.id, answer: await requests[data.request](data) });
    } catch (error) {
        postMessage({ id: data.id, error: error.message });
    }
};
