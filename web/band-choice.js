// A choice of band: a list that the library fills, and that this browser remembers from visit to visit.
import { describe } from "./bands.js";
import { ask } from "./decoder.js";

const ALL = "all", WIDE = "wide";

/** What the library has: `bands`, `wideBands` and `defaultBand`. */
export const library = ask("bands");
library.catch(() => {}); // said by whoever needs it

/** What was chosen before, or null. Where a browser keeps nothing for this page, touching its storage throws. */
export function remembered(key) {
    try {
        return localStorage.getItem(key);
    } catch {
        return null;
    }
}

export function remember(key, value) {
    try {
        localStorage.setItem(key, value);
    } catch {
        // chosen for this visit only
    }
}

export class BandChoice {
    #select;

    /** `onChange` hears of the bands chosen, at first as soon as the list is known. */
    constructor(select, onChange = () => {}) {
        this.#select = select;
        select.onchange = async () => {
            remember(select.id, select.value);
            onChange(await this.bands());
        };
        this.ready = library.then(({ bands, defaultBand }) => {
            const options = bands.map((band) => [band.name, describe(band)]);
            const sets = [[WIDE, select.dataset.wide], [ALL, select.dataset.all]];
            options.push(...sets.filter(([, text]) => text));
            select.append(...options.map(([value, text]) => new Option(text, value)));
            const before = remembered(select.id);
            select.value = options.some(([value]) => value === before) ? before : defaultBand.name;
        });
        this.ready.then(async () => onChange(await this.bands()), () => {});
    }

    /** Chooses a band, as a person would. */
    choose(band) {
        this.#select.value = band.name;
        this.#select.onchange();
    }

    get isAll() {
        return this.#select.value === ALL;
    }

    /** The bands chosen, once the list is known. */
    async bands() {
        await this.ready;
        const { bands, wideBands } = await library;
        return this.#select.value === WIDE ? wideBands : bands.filter(({ name }) => this.isAll || name === this.#select.value);
    }
}
