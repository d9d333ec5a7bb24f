// What is switched on in the receiver, for the microphone and for recordings; this browser remembers it.
import { remember, remembered } from "./band-choice.js";
import { $ } from "./controls.js";

const SWITCHES = ["combine", "crowd"];
const ON = "on", OFF = "off";

/** The options of a receiver, as they stand. */
export const reception = () => ({ combine: $("combine").checked && "together", crowd: $("crowd").checked });

/** Sets the switches as they were left; `onChange` hears when one is changed. */
export function prepareSwitches(onChange) {
    for (const id of SWITCHES) {
        const before = remembered(id);
        $(id).checked = before === null ? $(id).defaultChecked : before === ON;
        $(id).onchange = () => {
            remember(id, $(id).checked ? ON : OFF);
            onChange();
        };
    }
}
