// Sealing in the page, by the packages @noble/ciphers and @noble/hashes, which lie beside it.
import { sealing } from "./kosc/sealing.js";
import { xsalsa20poly1305 } from "./noble/ciphers/salsa.js";
import { scryptAsync } from "./noble/hashes/scrypt.js";

export const { keyFromFile, keyFromPassphrase, Opener, sealer } = sealing({ xsalsa20poly1305, scryptAsync });
