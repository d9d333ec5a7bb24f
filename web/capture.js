// The microphone: asks for it, and leads its samples to the decoder's thread and to a spectrum analyser.
import { ask } from "./decoder.js";
import { ASKED } from "./settings.js";

const ANALYSER = { fftSize: 2048, smoothingTimeConstant: 0 };

const REASONS = {
    NotAllowedError: "This page may not use the microphone. Allow it in the browser's settings for this site, then try again.",
    NotFoundError: "There is no microphone.",
    NotReadableError: "The microphone cannot be opened; another program may have it.",
};

async function openStream() {
    if (!navigator.mediaDevices) {
        throw new Error("Browsers give the microphone only to pages from localhost or over https.");
    }
    try {
        return await navigator.mediaDevices.getUserMedia({ audio: ASKED });
    } catch (error) {
        throw new Error(REASONS[error.name] ?? `The microphone cannot be opened: ${error.message}`);
    }
}

// At the microphone's own rate, so that the browser does not resample; where it does not say that, or cannot, at the
// modem's or the browser's.
function openContext(stream, rate) {
    for (const options of [{ sampleRate: rate ?? ASKED.sampleRate }, {}]) {
        const context = new AudioContext(options);
        try {
            return { context, source: context.createMediaStreamSource(stream) };
        } catch {
            context.close();
        }
    }
    throw new Error("This browser cannot process the microphone's sound.");
}

/** Starts listening. `onEnd` is called when the microphone goes away. */
export async function openMicrophone(onEnd) {
    const stream = await openStream();
    const [track] = stream.getAudioTracks();
    try {
        const granted = track.getSettings();
        const { context, source } = openContext(stream, granted.sampleRate);
        await context.audioWorklet.addModule(new URL("capture-worklet.js", import.meta.url));
        const worklet = new AudioWorkletNode(context, "capture", { numberOfOutputs: 0 });
        const analyser = new AnalyserNode(context, ANALYSER);
        const { port1, port2 } = new MessageChannel();
        await ask("listen", { port: port1, rate: context.sampleRate }, [port1]);
        const started = new Promise((resolve) => (worklet.port.onmessage = ({ data }) => resolve(data.started)));
        worklet.port.postMessage(port2, [port2]);
        source.connect(worklet);
        source.connect(analyser);
        await context.resume();
        track.onended = onEnd;
        const close = async () => {
            track.onended = null;
            track.stop();
            await ask("stop");
            await context.close();
        };
        return { context, analyser, granted, startTime: await started, close };
    } catch (error) {
        track.stop();
        throw error;
    }
}
