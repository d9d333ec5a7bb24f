// Sealed payloads by the packages @noble/ciphers and @noble/hashes, which only those need who import this.
import { xsalsa20poly1305 } from "@noble/ciphers/salsa.js";
import { scryptAsync } from "@noble/hashes/scrypt.js";
import { sealing } from "./sealing.js";

export const { keyFromPassphrase, keyFromFile, sealer, Opener } = sealing({ xsalsa20poly1305, scryptAsync });
