// How far a transfer is, in words.

const CONTENT_BYTES = 20; // of a payload in a message

const asClock = (seconds) => `${Math.floor(seconds / 60)}:${String(seconds % 60).padStart(2, "0")}`;

/** `rate` is in messages a second; 0 when it is not known yet. */
export function ofTransfer(done, total, rate) {
    const share = `${Math.floor((100 * done) / total)} %`;
    return rate > 0
        ? `${share}, ${Math.round(rate * CONTENT_BYTES)} bytes/s, ${asClock(Math.ceil((total - done) / rate))} left`
        : share;
}
