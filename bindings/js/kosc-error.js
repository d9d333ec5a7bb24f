/** The modem cannot go on: it is closed, or memory is short; or what came cannot be opened. */
export class KoscError extends Error {
    name = "KoscError";
}
