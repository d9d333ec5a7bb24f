// Keeps the page for when there is no network: all files of one build, or none. VERSION and FILES ({path: its hash})
// stand above, put there by write-service-worker.mjs, so a new build is a new service worker. It waits until no window shows the
// old one, or until the only window asks for it: nobody's listening ends, and no window sees files of two builds.
/* global VERSION, FILES */

const OURS = `kosc ${registration.scope} `; // an origin's pages share its caches
const CACHE = OURS + VERSION;

// Past the browser's own cache, and only what was built: while a server changes its files, this fails and keeps the old.
async function fill() {
    const cache = await caches.open(CACHE);
    await cache.addAll(Object.entries(FILES).map(([path, integrity]) => new Request(path, { integrity, cache: "reload" })));
}

async function replaceOthers() {
    const names = await caches.keys();
    await Promise.all(names.filter((name) => name.startsWith(OURS) && name !== CACHE).map((name) => caches.delete(name)));
    await clients.claim(); // the first visit's window, which may need files that it has not loaded yet
}

async function answer(path, request) {
    const cache = await caches.open(CACHE);
    return await cache.match(path) ?? fetch(request);
}

async function takeOver(window) {
    const windows = await clients.matchAll({ type: "window", includeUncontrolled: true });
    if (windows.length > 1) {
        window.postMessage("other windows");
    } else {
        await skipWaiting();
    }
}

oninstall = (event) => event.waitUntil(fill());
onactivate = (event) => event.waitUntil(replaceOthers());
onmessage = (event) => event.waitUntil(takeOver(event.source));
onfetch = (event) => {
    const url = new URL(event.request.url);
    url.search = url.hash = "";
    const path = url.href.replace(registration.scope, "./").replace(/^\.\/(index\.html)?$/, "./");
    if (event.request.method === "GET" && path in FILES) {
        event.respondWith(answer(path, event.request));
    }
};
