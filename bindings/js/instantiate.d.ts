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
}

/** A decoded frame. */
export interface Message extends Frame {
    decoded: true;
    data: Uint8Array;
}

export interface ReceiverOptions {
    /** Where to listen: a band, a list of up to 16, or "all" that have a name; `defaultBand` unless given. */
    band?: "all" | BandChoice | readonly BandChoice[];
    /** Looks again, deeper, at frames that do not decode, and measures those that do. On unless switched off. */
    secondLook?: boolean;
    /**
     * What is pushed is a recording from its start on, and finish() ends it: a frame is found, too, whose first samples the
     * recording lacks. Off unless switched on.
     */
    recording?: boolean;
    /** Hears of every message. Called before push() returns, like the others; may call the receiver. */
    onMessage?: (message: Message) => void;
    /** Hears of every frame found, decoded or not. */
    onFrame?: (frame: Frame) => void;
    /** Gets the modem's log, a line a call. Without it there is no log. */
    onLog?: (line: string) => void;
    /** The least of what is logged; "info" unless given. */
    logLevel?: "off" | "error" | "warn" | "info" | "debug";
}

/** Listens to up to eight independent channels. */
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
    /** Every frame in a whole recording, decoded or not, with its figures. */
    inspect(samples: Samples, options?: Pick<ReceiverOptions, "band">): Frame[];
    Receiver: new (options?: ReceiverOptions) => Receiver;
}

/** The modem cannot go on: it is closed, or memory is short. */
export class KoscError extends Error {}

/**
 * The modem over the bytes of kosc.wasm or the module compiled from them, at once: for AudioWorklets and others who
 * cannot load or wait.
 */
export function instantiate(source: ArrayBuffer | ArrayBufferView | CompiledModule): Modem;
