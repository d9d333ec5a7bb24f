// The form that sends: a message of 28 bytes as it is, a longer one or a file as a transfer, with its progress.
import { BandChoice } from "./band-choice.js";
import { $, isBusy, say, withButton } from "./controls.js";
import { ask } from "./decoder.js";
import { play, Player } from "./play.js";
import { ofTransfer } from "./progress.js";

const RATE = 48000, MESSAGE_BYTES = 28, FRAME_SECONDS = 0.24;
const MOST_BYTES = 1048576;
const AT_ONCE = "Six messages at once, at short distance; people hear it.";

let player = null;

export const sendChoice = new BandChoice($("send-band"), (bands) =>
    say("send-use", bands.length > 1 ? AT_ONCE : `${bands[0].use[0].toUpperCase()}${bands[0].use.slice(1)}.`));

const messageLength = () => new TextEncoder().encode($("message").value).length;

export async function showLength() {
    const [file] = $("send-file").files;
    const length = file ? file.size : messageLength();
    const several = file !== undefined || length > MESSAGE_BYTES;
    const needed = Math.ceil((length + 12) / 20);
    $("send-repeat").hidden = !several;
    $("forget-file").hidden = file === undefined;
    const seconds = Math.ceil((needed * FRAME_SECONDS) / (await sendChoice.bands()).length);
    say("length", several ? `${length} bytes: ${needed} messages or more, ${seconds} s or more` : `${length} of ${MESSAGE_BYTES} bytes`,
        length > MOST_BYTES ? "bad" : "");
}

async function sendTransfer(content, name, band) {
    const rounds = Number($("send-rounds").value) || Infinity;
    const { needed, total } = await ask("beginTransfer", { content, name, rounds, band, sealed: $("key").value !== "" });
    player = new Player(RATE);
    const rate = band.length / FRAME_SECONDS;
    $("send-progress").max = total === Infinity ? needed : total;
    for (let sent = 0, block; (block = await ask("nextSound")) !== null; sent += band.length) {
        if (!(await player.queue(block))) {
            return say("send-status", `Stopped after ${sent} messages, of which ${needed} are needed.`);
        }
        const done = Math.min(sent + band.length, total);
        $("send-progress").value = Math.min(done, $("send-progress").max);
        say("send-status", total === Infinity ? `${done} messages sent; ${needed} are needed.` : ofTransfer(done, total, rate));
    }
    await player.finish();
    say("send-status", `Sent ${name ?? "the text"}.`, "good");
}

async function send() {
    const [file] = $("send-file").files;
    const message = $("message").value;
    if (file === undefined && message === "") {
        throw new Error("Type a message or choose a file first.");
    }
    if (file !== undefined && file.size > MOST_BYTES) {
        throw new Error(`${file.name} is ${file.size} bytes long, the limit is ${MOST_BYTES}.`);
    }
    const band = await sendChoice.bands();
    say("send-status", "Sending …");
    if (file === undefined && messageLength() <= MESSAGE_BYTES && $("key").value === "") {
        await play(await ask("encode", { message, band }), RATE);
        say("send-status", `Sent “${message}”.`, "good");
        return;
    }
    $("sending").hidden = false;
    try {
        await sendTransfer(file ? new Uint8Array(await file.arrayBuffer()) : message, file?.name, band);
    } finally {
        $("sending").hidden = true;
        await player?.close();
        player = null;
    }
}

async function setKey() {
    const text = $("key").value;
    say("key-status", text === "" ? "" : "Making the key …");
    await ask("setKey", { text });
    say("key-status", text === "" ? "" : "What is sent is sealed, and only what this key sealed is taken.", "good");
}

$("message").oninput = $("send-file").onchange = showLength;
$("message").onkeydown = (event) => {
    if (event.key === "Enter" && !event.shiftKey && !event.isComposing) {
        event.preventDefault();
        $("send").requestSubmit();
    }
};
$("forget-file").onclick = () => {
    $("send-file").value = "";
    showLength();
};
$("send").onsubmit = (event) => {
    event.preventDefault();
    if (!isBusy($("send-button"))) {
        withButton($("send-button"), "send-status", async () => {
            await keySet;
            await send();
        });
    }
};
$("stop-button").onclick = () => player?.close();

$("key").value = ""; // where a browser kept it: the thread has none yet
let keySet = Promise.resolve();
$("key").onchange = () => {
    keySet = setKey();
    keySet.catch((error) => say("key-status", error.message, "bad")); // and nothing is sent: it would not be sealed
};
