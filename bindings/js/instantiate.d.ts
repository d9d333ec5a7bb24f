/** What `new WebAssembly.Module()` makes; plain objects where the types of WebAssembly are not loaded, as in node's. */
export type CompiledModule = typeof globalThis extends { WebAssembly: { Module: { prototype: infer Module } } }
    ? Module
    : object;

/** 16-bit samples, or samples from -1 to 1; mono, 48000 Hz. What is not a number counts as silence. */
export type Samples = Int16Array | Float32Array;

/** Where in the spectrum a modem works: 64 subcarriers side by side, so a band is known by its first one. */
export interface Band {
    /** Empty for a band that has none. */
    readonly name: string;
    /** What it is for, in a line of English; empty for a band without a name. */
    readonly use: string;
    readonly firstSubcarrier: number;
    /** Frequency of the first subcarrier. */
    readonly lowHz: number;
    /** Frequency of the last one. */
    readonly highHz: number;
}

/** A band's name, where it begins in Hz (moved to the nearest subcarrier), or a record like those in `bands`. */
export type BandChoice = string | number | Pick<Band, "firstSubcarrier">;

/** One band or several: a list, "wide" for `wideBands`, or "all" that have a name. */
export type BandsChoice = "all" | "wide" | BandChoice | readonly BandChoice[];

/** A frame that a receiver found. */
export interface Frame {
    channel: number;
    /** The band that it came on. */
    band: Band;
    /** Its first sample, counted from the first one pushed on its channel; below 0 when a recording lacks it. */
    sample: number;
    /** The same in seconds. */
    time: number;
    decoded: boolean;
    /** The message's 28 bytes; null when it was not decoded. */
    data: Uint8Array | null;
    /** The message without its trailing zeros, if that is text: UTF-8 without control characters. */
    text: string | null;
    /** Bit i: CRC i did not match at first. */
    failedCrcs: number;
    /** Height of the synchronisation peak, up to 1. */
    correlation: number;
    /** The frame did not decode at first, and got the second look. */
    secondLookNeeded: boolean;
    /** Share of the pilots' energy that adds up, 0 to 1. This and what follows is null with the second look off. */
    coherence: number | null;
    /** Received frequencies over sent ones, less 1, in millionths: the clocks' difference and the sender's motion. */
    driftPpm: number | null;
    /** Power of a subcarrier over what channel and message do not explain. */
    snrDb: number | null;
    /** Error vector magnitude of the data symbols. */
    evm: number | null;
    /**
     * What the message was put together from; null when it was not. Then `sample` and `time` are of the newest frame,
     * `correlation` is 0, `coherence` and `evm` are null, `snrDb` is of all of it, and `driftPpm` of the newest frame.
     */
    combined: Combined | null;
}

/** What a message was put together from. */
export interface Combined {
    /** Sent frames that were summed; 1: one frame, found by the search for weak frames. */
    readonly frames: number;
    /** The same, each counted as often as microphones heard it. */
    readonly hearings: number;
    /** Microphones that heard some of them: 1 or 2. */
    readonly microphones: number;
    /** Of all of it together: what a single frame would need to have for as much to be heard of it. */
    readonly snrDb: number;
    /** Of the newest frame alone, by the microphone that heard it better. */
    readonly newestSnrDb: number;
    /** Of the newest frame. */
    readonly driftPpm: number;
    /** From the first frame's start to the newest one's. */
    readonly seconds: number;
}

/** A decoded frame. */
export interface Message extends Frame {
    decoded: true;
    data: Uint8Array;
}

export interface ReceiverOptions {
    /** Where to listen: a band, a list of up to 16, "wide" for `wideBands`, or "all" that have a name; `defaultBand` unless given. */
    band?: BandsChoice;
    /** Looks again, deeper, at frames that do not decode, and measures those that do. On unless switched off. */
    secondLook?: boolean;
    /**
     * What is pushed is a recording from its start on, and finish() ends it: a frame is found, too, whose first samples the
     * recording lacks. Off unless switched on.
     */
    recording?: boolean;
    /**
     * Adds up the repeats of a message that are too weak alone, over 12 seconds: "each" channel by itself, or "together",
     * which makes one receiver of channels 0 and 1, two microphones of one clock: push their blocks in turns, of equal
     * lengths up to 12000; finish() of one ends both. Other channels are by themselves then. Off unless switched on:
     * messages that differ in little may be mixed (docs/trust.md).
     */
    combine?: false | "each" | "together";
    /**
     * Hears frames of many senders that overlap: takes each that it decoded out of the sound, and searches what it covered.
     * Messages come in the order in which they were decoded. Needs the second look. Off unless switched on.
     */
    crowd?: boolean;
    /** Hears of every message. Called before push() returns, like the others; may call the receiver. */
    onMessage?: (message: Message) => void;
    /** Hears of every frame found, decoded or not. */
    onFrame?: (frame: Frame) => void;
    /** Gets the modem's log, a line a call. Without it there is no log. */
    onLog?: (line: string) => void;
    /** The least of what is logged; "info" unless given. */
    logLevel?: "off" | "error" | "warn" | "info" | "debug";
}

/** Listens to up to eight channels, which are independent unless `combine` says otherwise. */
export interface Receiver {
    /**
     * Listens to a block of any length; a frame may straddle blocks.
     *
     * @param channel 0, unless given, to 7
     * @returns the messages that the block completed
     * @throws TypeError or RangeError for samples or a channel of the wrong kind, KoscError when closed or out of memory
     */
    push(samples: Samples, channel?: number): Message[];
    /** Ends a recording: listens to two frames of silence, so that a frame at its very end is found. */
    finish(channel?: number): Message[];
    /** Gives the memory back; later calls of push() throw. */
    close(): void;
    /** The bands that it listens to, each once. */
    readonly bands: readonly Band[];
}

/** 32 bytes that a sender and its receivers share. */
export type SealingKey = Uint8Array;

/** What a sender had to send. Nothing in it is to be trusted: without a key, anybody can have sent it. */
export interface Payload {
    kind: "bytes" | "text" | "file" | "unknown";
    /** The bytes; of a file its contents, of a text its UTF-8. */
    data: Uint8Array;
    /** The text, if it is one and UTF-8; may have control characters. */
    text: string | null;
    /** Of a file, as it was sent, which may be anything; null of others. See safeName(). */
    name: string | null;
    /** Unix time in seconds when it was sealed; null when it was not. */
    sealedAt: number | null;
}

/** What a message was to a collector. */
export interface TransferEvent {
    /**
     * "plain": no part of a transfer; "progress": one more is held; "repeated": nothing new; "finished": the payload is
     * whole; "mismatch": what was collected does not fit together, and begins anew; "refused": `reason` says why.
     */
    state: "plain" | "progress" | "repeated" | "finished" | "mismatch" | "refused";
    /** Of the transfer, among those that need as many messages. */
    id: number;
    /** Messages held that bring the transfer further. */
    held: number;
    /** Messages that it needs. */
    needed: number;
    /** With "finished" alone. */
    payload: Payload | null;
    /** With "refused", in words. */
    reason: string;
}

export interface TransferSenderOptions {
    /** Makes it a file of this name, which receivers do not trust. */
    name?: string;
    /** Another number of 32 bits makes the same payload another transfer, which is received once more. */
    nonce?: number;
    /** Seals the payload: sealer(key) of kosc/sealed. */
    seal?: (content: Uint8Array, kind: number) => Uint8Array;
}

/** A payload that is being sent: an endless sequence of messages, of which any `needed` suffice. */
export interface TransferSender {
    readonly needed: number;
    /** Messages of one round: enough for who loses one in five; two rounds are for who loses every second. */
    readonly round: number;
    /** Any message of the sequence. */
    message(index: number): Uint8Array;
    /**
     * The messages from `start` on as sound, a frame and `gap` seconds of silence at a time; with several bands each frame
     * carries as many messages. `rounds`: 1 unless given; Infinity never ends.
     */
    sound(options?: SoundOptions & { format?: "int16" }): Generator<Int16Array>;
    sound(options: SoundOptions & { format: "float32" }): Generator<Float32Array>;
}

export interface SoundOptions {
    rounds?: number;
    start?: number;
    gap?: number;
    band?: BandsChoice;
}

export interface TransferCollectorOptions {
    /** Opens what is sealed, new Opener(key) of kosc/sealed; nothing else is given out then. */
    opener?: { open(payload: Uint8Array, kind: number): { content: Uint8Array; sealedAt: number } };
    /** The longest payload that is taken; 1048576 unless given. */
    mostBytes?: number;
}

/**
 * Takes messages of any number of transfers, in any order, with gaps and repeats, and gives each payload once. Holds
 * 6 MiB at most, whatever it hears.
 */
export interface TransferCollector {
    /** @throws TypeError for what has not 28 bytes, KoscError when memory is short */
    take(message: Uint8Array | Message): TransferEvent;
}

export interface Modem {
    readonly version: string;
    /** 48000 Hz. */
    readonly sampleRate: number;
    /** 28. */
    readonly messageBytes: number;
    /** 11520. */
    readonly frameSamples: number;
    /** 8, the most that a receiver listens to. */
    readonly channels: number;
    /** The bands that have a name, from the lowest up. */
    readonly bands: readonly Band[];
    /** Six bands side by side, from the lowest up, that messages may sound in at once: all that loudspeakers carry. */
    readonly wideBands: readonly Band[];
    /** The band of sender and receiver unless another is asked for: near-ultrasonic. */
    readonly defaultBand: Band;
    /**
     * The band that is meant.
     *
     * @throws RangeError with a sentence that lists the names; TypeError for what is no name, number or record
     */
    findBand(band: BandChoice): Band;
    /**
     * Turns a message into the sound of one frame, peaking at 0.8 of full scale.
     *
     * @param message up to 28 bytes, or text of as many in UTF-8; padded with zeros
     * @throws TypeError or RangeError when it is no message or too long, or no band is meant
     */
    encode(message: string | Uint8Array, options?: { format?: "int16"; band?: BandChoice }): Int16Array;
    encode(message: string | Uint8Array, options: { format: "float32"; band?: BandChoice }): Float32Array;
    /**
     * One frame of sound with a message on each band, in their order, the sum scaled to full scale; `band` is "wide"
     * unless given.
     *
     * @throws RangeError when there are more messages than bands, or bands overlap
     */
    encodeTogether(messages: readonly (string | Uint8Array)[], options?: { format?: "int16"; band?: BandsChoice }): Int16Array;
    encodeTogether(messages: readonly (string | Uint8Array)[], options: { format: "float32"; band?: BandsChoice }): Float32Array;
    /** Every frame in a whole recording, decoded or not, with its figures. */
    inspect(samples: Samples, options?: Pick<ReceiverOptions, "band" | "combine" | "crowd">): Frame[];
    Receiver: new (options?: ReceiverOptions) => Receiver;
    /**
     * @throws RangeError when the payload is empty or longer than 1048576 bytes, with a file's name and its length, and 49
     *         bytes when it is sealed; TypeError for what is neither text nor bytes
     */
    TransferSender: new (content: string | Uint8Array, options?: TransferSenderOptions) => TransferSender;
    TransferCollector: new (options?: TransferCollectorOptions) => TransferCollector;
    /** A file's name without a path, made of one that was sent: nothing unseen, no dot at its beginning. */
    safeName(name: string): string;
}

/** The modem cannot go on: it is closed, or memory is short; or what came cannot be opened. */
export class KoscError extends Error {}

/**
 * The modem over the bytes of kosc.wasm or the module compiled from them, at once: for AudioWorklets and others who
 * cannot load or wait.
 */
export function instantiate(source: ArrayBuffer | ArrayBufferView | CompiledModule): Modem;
