import type { CompiledModule, Modem } from "./instantiate.js";

export * from "./instantiate.js";

/** The compiled module; hand it to an AudioWorklet, which has no atob(), for its own instantiate(). */
export const module: CompiledModule;

export const version: Modem["version"];
export const sampleRate: Modem["sampleRate"];
export const messageBytes: Modem["messageBytes"];
export const frameSamples: Modem["frameSamples"];
export const channels: Modem["channels"];
export const bands: Modem["bands"];
export const wideBands: Modem["wideBands"];
export const defaultBand: Modem["defaultBand"];
export const findBand: Modem["findBand"];
export const encode: Modem["encode"];
export const encodeTogether: Modem["encodeTogether"];
export const inspect: Modem["inspect"];
export const Receiver: Modem["Receiver"];
export type Receiver = InstanceType<Modem["Receiver"]>;
export const TransferSender: Modem["TransferSender"];
export type TransferSender = InstanceType<Modem["TransferSender"]>;
export const TransferCollector: Modem["TransferCollector"];
export type TransferCollector = InstanceType<Modem["TransferCollector"]>;
export const safeName: Modem["safeName"];
