// The callbacks that have come, kept for all visits of the developer's view in this page.

import {get} from '../api.js';
import {onCallback, onGone, onPart} from '../live.js';

export const kept = 1000;

const entries = [];  // {id, at, message | text} or {gone: true, at}
const listeners = new Set();
let epoch = null;
let loaded = false;

function trim() {
  if (entries.length > kept) entries.splice(0, entries.length - kept);
}

function tell() {
  for (const listener of [...listeners]) listener();
}

function push(entry) {
  entries.push(entry);
  trim();
  tell();
}

/** The entries, oldest first: callbacks, and {gone: true} where some were lost. */
export function logEntries() {
  return entries;
}

/** Calls listener() when entries have come; returns the end of it. */
export function onLog(listener) {
  listeners.add(listener);
  return () => listeners.delete(listener);
}

export function clearLog() {
  entries.length = 0;
  tell();
}

// What the server still has from before this page listened.
async function loadOlder() {
  loaded = true;
  try {
    const {epoch: theirs, callbacks} = await get('/api/callbacks', {since: 0});
    if (epoch !== null && theirs !== epoch) return;
    const first = entries.find((entry) => entry.id !== undefined)?.id ?? Infinity;
    entries.unshift(...callbacks.filter(({id}) => id < first));
    trim();
    tell();
  } catch {
    loaded = false;
  }
}

/** Begins to listen. More than once has no effect. */
export function startLog() {
  if (loaded) return;
  loadOlder();
  if (epoch !== null) return;
  onPart((state) => state.epoch, (now) => {
    if (epoch !== null && now !== epoch) push({gone: true, restart: true, at: Date.now()});
    epoch = now;
  });
  onCallback((callback) => {
    // The older ones were read while this one was on its way.
    if (entries.some(({id}) => id === callback.id && callback.id !== undefined)) return;
    push(callback);
  });
  onGone(() => push({gone: true, at: Date.now()}));
}
