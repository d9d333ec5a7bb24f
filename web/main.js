// The page: forms and buttons to the modem's thread, the microphone and the loudspeaker, and what comes back to view.
import { BandChoice, library } from "./band-choice.js";
import { nameOf } from "./bands.js";
import { openMicrophone } from "./capture.js";
import { $, isBusy, say, withButton } from "./controls.js";
import { ask, onFrame } from "./decoder.js";
import { judge, measure } from "./device-check.js";
import { Incoming } from "./incoming.js";
import { addMessage, countFrames } from "./messages.js";
import { Offline } from "./offline.js";
import { decodeFile } from "./recording.js";
import { sendChoice, showLength } from "./sending.js";
import { compareSettings } from "./settings.js";
import { prepareSwitches, reception } from "./switches.js";
import { Waterfall } from "./waterfall.js";

const FRAME_SECONDS = 0.24;

// Listening

const incoming = new Incoming($("transfers"));
const waterfall = new Waterfall($("waterfall"), $("edges"));
let microphone = null;
let frames = [];
let bands = [];

const listenChoice = new BandChoice($("listen-band"), (chosen) => {
    bands = chosen;
    waterfall.show(bands);
    showSettings(microphone?.granted);
    tune();
});

// Once the bands are known.
const tune = () => bands.length > 0 &&
    ask("tune", { band: bands, ...reception() }).catch((error) => say("listen-status", error.message, "bad"));

prepareSwitches(tune);

function showSettings(granted) {
    $("settings").replaceChildren(...compareSettings(granted, bands).map(({ label, asked, granted: got, disturbs, remark }) => {
        const row = document.createElement("tr");
        row.innerHTML = `<th scope="row"></th><td></td><td></td>`;
        row.children[0].textContent = label;
        row.children[1].textContent = asked;
        row.children[2].textContent = got;
        row.className = disturbs ? "warning" : "";
        if (remark) {
            const note = document.createElement("small");
            note.textContent = remark;
            row.children[2].append(note);
        }
        return row;
    }));
}

function showListening() {
    const on = microphone !== null;
    $("listen-button").textContent = on ? "Stop listening" : "Start listening";
    $("listen-button").classList.toggle("on", on);
    $("picture").classList.toggle("idle", !on);
    showUpdate();
    if (on) {
        say("listen-status", `Listening at ${microphone.context.sampleRate / 1000} kHz: ${countFrames(frames)}.`);
    }
}

async function startListening() {
    say("listen-status", "Waiting for the microphone …");
    frames = [];
    microphone = await openMicrophone(() => stopListening("The microphone went away."));
    waterfall.start(microphone.analyser, microphone.context);
    showSettings(microphone.granted);
    showListening();
}

async function stopListening(reason = "") {
    const closing = microphone.close();
    microphone = null;
    waterfall.stop();
    await closing;
    showListening();
    say("listen-status", `${reason} Stopped: ${countFrames(frames)}.`.trim(), reason ? "bad" : "");
}

// With a key, plain messages are left out: they could be anybody's.
function showMessage(list, transfers, frame, time) {
    const { state, needed } = frame.transfer;
    if (state === "plain") {
        addMessage(list, frame, time);
    } else if (needed > 0) {
        transfers.take(frame, time);
    }
}

onFrame((frame) => {
    if (microphone === null) {
        return;
    }
    frames.push(frame);
    const start = microphone.startTime + frame.time;
    waterfall.mark(frame.band, start, start + FRAME_SECONDS, frame.decoded);
    if (frame.decoded) {
        const secondsAgo = microphone.context.currentTime - start;
        $("no-messages").hidden = true;
        showMessage($("messages"), incoming, frame, new Date(Date.now() - 1000 * secondsAgo).toLocaleTimeString());
    }
    showListening();
});

$("listen-button").onclick = () => {
    if (!isBusy($("listen-button"))) {
        withButton($("listen-button"), "listen-status", microphone ? stopListening : startListening);
    }
};

// The device check

async function check() {
    say("check-status", "Listening to the room, then playing a sweep …");
    $("verdict").replaceChildren();
    $("use-band").hidden = true;
    if (microphone === null) {
        await startListening().catch((error) => {
            say("listen-status", "");
            throw error;
        });
    }
    const { granted } = microphone;
    const { lines, best, verdict } = judge(await measure(microphone, (await library).bands), granted);
    $("verdict").replaceChildren(...lines.map(({ good, text }) => {
        const item = document.createElement("li");
        item.className = good ? "good" : "bad";
        item.textContent = text;
        return item;
    }));
    say("check-status", verdict.text, verdict.good ? "good" : "bad");
    $("use-band").hidden = best === null;
    $("use-band").textContent = best ? `Send and listen on ${nameOf(best)}` : "";
    $("use-band").onclick = () => [sendChoice, listenChoice].forEach((choice) => choice.choose(best));
}

$("check-button").onclick = () => {
    if (!isBusy($("check-button"))) {
        withButton($("check-button"), "check-status", check);
    }
};

// Recordings

const fileChoice = new BandChoice($("file-band"));
const foundTransfers = new Incoming($("found-transfers"));

async function decodeRecording(file) {
    $("found").replaceChildren();
    foundTransfers.clear();
    say("file-status", `Reading ${file.name} …`);
    const result = await decodeFile(file, fileChoice, reception(),
        (part) => say("file-status", `Decoding ${file.name}: ${Math.round(100 * part)} %`));
    for (const frame of result.frames.filter(({ decoded }) => decoded)) {
        const channel = result.tracks > 1 && !(frame.combined?.microphones > 1) ? `, channel ${frame.channel + 1}` : "";
        const start = Math.round(1000 * frame.time) / 1000 + 0; // no minus before zero
        showMessage($("found"), foundTransfers, frame, `${start.toFixed(3)} s${channel}`);
    }
    foundTransfers.end();
    const good = result.frames.some(({ decoded }) => decoded);
    say("file-status", `${file.name}, ${result.seconds.toFixed(1)} s: ${countFrames(result.frames)}.`, good ? "good" : "");
}

function takeFile(file) {
    if (file && !isBusy($("file"))) {
        withButton($("file"), "file-status", () => decodeRecording(file));
    }
}

$("file").onchange = () => {
    takeFile($("file").files[0]);
    $("file").value = ""; // the same file may be chosen again
};
document.ondragover = (event) => {
    event.preventDefault();
    $("drop").classList.add("over");
};
document.ondragleave = (event) => {
    if (event.relatedTarget === null) {
        $("drop").classList.remove("over");
    }
};
document.ondrop = (event) => {
    event.preventDefault();
    $("drop").classList.remove("over");
    takeFile(event.dataTransfer.files[0]);
};

// Without network, and new builds

const offline = new Offline();
let updateReady = false;
let wanted = false;

// Nothing would be lost by loading the page again.
const isUnused = () => microphone === null && ["message", "send-file", "key"].every((id) => $(id).value === "") &&
    !document.querySelector(".messages li, [aria-disabled]");

function showUpdate(reason = "") {
    if (updateReady) {
        const listening = microphone !== null;
        say("update-status", `A new version of this page is ready. ${listening ? "It can wait until listening is stopped." : reason}`.trim());
        $("update-button").hidden = listening;
    }
}

async function keepOffline() {
    await offline.start({
        onUpdate: () => {
            updateReady = true;
            showUpdate();
        },
        onOthers: () => showUpdate("First close the other windows that show the page."),
        onChanged: () => microphone === null && (wanted || isUnused()) && location.reload(),
    });
    // All is loaded, or fails and had better be replaced: while the old worker loads files, Chromium may not change for minutes.
    await library.catch(() => {});
    if (updateReady && isUnused()) {
        offline.change();
    }
}

$("update-button").onclick = () => {
    wanted = true;
    offline.change();
};

showLength();
showSettings();
$("needs-server").remove();
keepOffline().catch(() => {}); // then the page needs the network, as any page does
