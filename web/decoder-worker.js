// The modem's thread: encodes, and decodes what the microphone or a file gives. Requests carry an id, and get one
// answer with it; frames that the microphone brings are told as they come.
import {
    bands, channels, defaultBand, encodeTogether, Receiver, sampleRate, wideBands,
} from "./kosc/index.js";
import { Resampler } from "./resampler.js";
import { recordingCollector, taken, transferRequests } from "./transfer-thread.js";

const BLOCK = 4096;

let tuned = { band: defaultBand }; // a receiver's options
let listening = null;

function listen({ port, rate }) {
    listening = { port, receiver: null, pushed: 0 };
    const resampler = rate === sampleRate ? null : new Resampler(rate, sampleRate);
    port.onmessage = ({ data }) => {
        const samples = resampler ? resampler.push(data) : data;
        listening.receiver.push(samples);
        listening.pushed += samples.length;
    };
    tune(tuned);
}

// Where and how to listen, from now on; times go on counting from where listening started.
function tune({ band, combine, crowd }) {
    tuned = { band, combine, crowd };
    if (listening !== null) {
        const start = listening.pushed / sampleRate;
        listening.receiver?.close();
        const onFrame = (frame) => postMessage({ frame: taken({ ...frame, time: start + frame.time }) });
        listening.receiver = new Receiver({ ...tuned, onFrame });
    }
}

function stopListening() {
    listening.port.close();
    listening.receiver.close();
    listening = null;
}

// Feeds the channels in turns, as they were recorded, and tells how far it is about ten times.
function decodeTracks(receiver, tracks, rate, tell) {
    const { length } = tracks[0];
    const resamplers = tracks.map(() => (rate === sampleRate ? null : new Resampler(rate, sampleRate)));
    const step = Math.ceil(length / 10 / BLOCK) * BLOCK;
    for (let at = 0; at < length; at += BLOCK) {
        tracks.forEach((samples, channel) => {
            const block = samples.subarray(at, at + BLOCK);
            receiver.push(resamplers[channel]?.push(block) ?? block, channel);
        });
        if (at % step === 0) {
            tell(at / length);
        }
    }
    tracks.forEach((_, channel) => resamplers[channel] && receiver.push(resamplers[channel].finish(), channel));
    tracks.forEach((_, channel) => receiver.finish(channel));
}

function decodeRecording({ id, tracks, rate, options }) {
    const frames = [];
    const receiver = new Receiver({ ...options, recording: true, onFrame: (frame) => frames.push(frame) });
    decodeTracks(receiver, tracks.slice(0, channels), rate, (part) => postMessage({ id, progress: part }));
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
