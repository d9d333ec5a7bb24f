import type { SealingKey } from "./instantiate.js";

/**
 * The key of a pass phrase of 1 to 1024 bytes: about a second and 128 MiB. Take six random words or more.
 *
 * @throws RangeError when it is empty or longer
 */
export function keyFromPassphrase(phrase: string): Promise<SealingKey>;

/**
 * The key in a file's bytes: 32, or 64 hexadecimal digits and perhaps a line end.
 *
 * @throws RangeError when it is neither
 */
export function keyFromFile(bytes: Uint8Array): SealingKey;

/** What a TransferSender takes for `seal`. Every call takes a nonce and the time anew. */
export function sealer(key: SealingKey, options?: { now?: () => number; nonce?: () => Uint8Array }):
    (content: Uint8Array, kind: number) => Uint8Array;

/**
 * What a TransferCollector takes for `opener`: opens what was sealed with the key, once each, and nothing whose time is
 * further than `window` seconds, 3600 unless given, from `now`; null, for recordings, allows any time.
 */
export class Opener {
    constructor(key: SealingKey, options?: { window?: number | null; now?: () => number });
    /** @throws KoscError with the reason why it does not open */
    open(payload: Uint8Array, kind: number): { content: Uint8Array; sealedAt: number };
}
