// The callbacks that have come, kept for all visits of the developer's view in this page.

import {get} from '../api.js';
import {onCallback, onGone, onPart} from '../live.js';

export const kept = 1000;

const entries = [];  // {id, at, message | text} or {gone: true, at}, each with its `order`
const listeners = new Set();
const perRun = 1e12;  // more than the callbacks of one run of the server
let run = 0;          // counts the runs of the server that this page has seen
let epoch = null;

function tell() {
  for (const listener of [...listeners]) listener();
}

function add(list) {
  const known = new Set(entries.map(({order}) => order));
  const fresh = list.map((entry) => ({...entry, order: entry.order ?? run * perRun + entry.id}))
      .filter(({order}) => !known.has(order));
  if (fresh.length === 0) return;
  entries.push(...fresh);
  if (fresh.length > 1) entries.sort((a, b) => a.order - b.order);
  if (entries.length > kept) entries.splice(0, entries.length - kept);
  tell();
}

// A mark after what has come so far.
function addGap(more) {
  const last = entries[entries.length - 1];
  if (last?.gone) return;
  const order = (last?.order ?? run * perRun) + 0.5;
  add([{gone: true, at: Date.now(), order, ...more}]);
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

// What the server has from before this page listened, or while it was away.
async function load() {
  try {
    const answer = await get('/api/callbacks', {since: 0});
    if (answer.epoch === epoch) add(answer.callbacks);
  } catch {
    // Live ones follow all the same.
  }
}

let started = false;

/** Begins to listen. More than once has no effect. */
export function startLog() {
  if (started) return;
  started = true;
  onPart((state) => state.epoch, (now) => {
    if (epoch !== null) {
      addGap({restart: true});
      ++run;
    }
    epoch = now;
    load();
  });
  onCallback((callback) => add([callback]));
  onGone(() => {
    addGap({});
    load();
  });
}
