// The page without network, and the change to a new build of it (service-worker.js has the rules).

/** Keeps this page for when there is no network, and changes to new builds of it. */
export class Offline {
    #registration = null;

    /**
     * `onUpdate` hears that a new build is ready, `onOthers` that other windows keep it from starting, `onChanged` that it
     * has started: the page is to be loaded again.
     */
    async start({ onUpdate, onOthers, onChanged }) {
        const { serviceWorker } = navigator;
        if (!serviceWorker) {
            return; // a page that is not from localhost or https, or a browser that keeps nothing
        }
        let served = serviceWorker.controller !== null; // the first visit's page is taken up by the worker of its own build
        serviceWorker.oncontrollerchange = () => {
            served ? onChanged() : (served = true);
        };
        serviceWorker.onmessage = onOthers;
        this.#registration = await serviceWorker.register("service-worker.js", { updateViaCache: "none" });
        const tell = () => this.#registration.waiting && this.#registration.active && onUpdate();
        this.#registration.onupdatefound = () => {
            const { installing } = this.#registration;
            installing.onstatechange = () => installing.state === "installed" && tell();
        };
        tell();
    }

    /** Has the new build start, if this is the only window. */
    change() {
        const worker = this.#registration.waiting;
        worker ? worker.postMessage({}) : location.reload();
    }
}
