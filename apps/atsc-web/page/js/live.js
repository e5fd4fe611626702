// What the television is doing, as the server tells it: the state, the callbacks, the connection.

import {openEvents} from './events.js';

const stateListeners = new Set();
const callbackListeners = new Set();
const connectionListeners = new Set();
const goneListeners = new Set();
let newest = null;
let arrived = 0;
let connected = 'lost';
let port = null;

/** The newest state, or null before the first. */
export function state() {
  return newest;
}

/** When the newest state arrived (Date.now()). */
export function stateArrived() {
  return arrived;
}

/** 'live' or 'lost'. */
export function connection() {
  return connected;
}

function listen(set, listener) {
  set.add(listener);
  return () => set.delete(listener);
}

/** Calls listener(state) at once, if there is a state, and at each change; returns its end. */
export function onState(listener) {
  if (newest !== null) listener(newest);
  return listen(stateListeners, listener);
}

/**
 * Like onState() for a part of the state: calls listener(part, state) only if pick(state) has
 * changed, so that what stays the same is not drawn again.
 */
export function onPart(pick, listener) {
  let before;
  return onState((current) => {
    const part = pick(current);
    const text = JSON.stringify(part ?? null);
    if (text === before) return;
    before = text;
    listener(part, current);
  });
}

/** Calls listener({id, at, message}) for each callback from now on; returns the end of it. */
export function onCallback(listener) {
  return listen(callbackListeners, listener);
}

/** Calls listener() when callbacks were lost; returns the end of it. */
export function onGone(listener) {
  return listen(goneListeners, listener);
}

/** Calls listener('live'|'lost') at once and at each change; returns the end of it. */
export function onConnection(listener) {
  listener(connected);
  return listen(connectionListeners, listener);
}

// One listener that fails must not keep the others from the news.
function callAll(listeners, ...values) {
  for (const listener of [...listeners]) {
    try {
      listener(...values);
    } catch (error) {
      console.error(error);
    }
  }
}

function receive(message) {
  if (message.kind === 'state') {
    newest = message.state;
    arrived = message.at;
    callAll(stateListeners, newest);
  } else if (message.kind === 'callback') {
    callAll(callbackListeners, message.callback);
  } else if (message.kind === 'gone') {
    callAll(goneListeners);
  } else if (message.kind === 'login') {
    location.reload();
  } else if (message.connection !== connected) {
    connected = message.connection;
    callAll(connectionListeners, connected);
  }
}

/** Connects. Once a page. */
export function start() {
  if (!('SharedWorker' in window)) {
    openEvents(receive);
    return;
  }
  const worker = new SharedWorker(new URL('./live-worker.js', import.meta.url), {type: 'module'});
  worker.onerror = () => openEvents(receive);
  port = worker.port;
  port.onmessage = (event) => receive(event.data);
  port.postMessage('hello');
  addEventListener('pagehide', () => port.postMessage('bye'));
  addEventListener('pageshow', (event) => {
    if (event.persisted) port.postMessage('hello');
  });
}
