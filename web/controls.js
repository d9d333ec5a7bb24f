// The page's elements: by their id, what they say, and buttons that are off while what they started goes on.

export const $ = (id) => document.getElementById(id);

export const say = (id, text, kind = "") => {
    $(id).textContent = text;
    $(id).dataset.kind = kind;
};

/** Runs what a button starts, with the button off meanwhile, and says what went wrong. */
export async function withButton(button, statusId, action) {
    button.setAttribute("aria-disabled", "true"); // stays in the order of focus
    try {
        await action();
    } catch (error) {
        say(statusId, error.message, "bad");
    } finally {
        button.removeAttribute("aria-disabled");
    }
}

export const isBusy = (button) => button.getAttribute("aria-disabled") === "true";
