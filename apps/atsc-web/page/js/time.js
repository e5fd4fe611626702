// The receiver's clock. It is not the browser's: a broadcast can be years old.

import {state, stateArrived} from './live.js';

const locale = 'en-US';
const clockFormat = new Intl.DateTimeFormat(locale, {
  hour: 'numeric', minute: '2-digit', timeZone: 'UTC',
});
const dayFormat = new Intl.DateTimeFormat(locale, {
  weekday: 'short', month: 'short', day: 'numeric', timeZone: 'UTC',
});
const dateFormat = new Intl.DateTimeFormat(locale, {
  weekday: 'long', month: 'long', day: 'numeric', timeZone: 'UTC',
});
const secondsFormat = new Intl.DateTimeFormat(locale, {
  hour: 'numeric', minute: '2-digit', second: '2-digit', timeZone: 'UTC',
});

/** The receiver's UTC in seconds; runs on between states. The browser's before the first state. */
export function now() {
  const clock = state()?.clock;
  if (!clock) return Date.now() / 1000;
  return clock.utc + (Date.now() - stateArrived()) / 1000;
}

// The receiver's local time as a date whose UTC fields are local.
function local(utc) {
  const date = new Date((utc + (state()?.clock?.offset ?? 0) * 60) * 1000);
  return Number.isNaN(date.getTime()) ? new Date(0) : date;
}

/** "8:10 PM" */
export function clockText(utc) {
  return clockFormat.format(local(utc));
}

/** "8:10:25 PM" */
export function clockSecondsText(utc) {
  return secondsFormat.format(local(utc));
}

/** "Sat, Nov 21" */
export function dayText(utc) {
  return dayFormat.format(local(utc));
}

/** "Saturday, November 21" */
export function dateText(utc) {
  return dateFormat.format(local(utc));
}

/** "Sat, Nov 21, 8:10 PM" */
export function dateTimeText(utc) {
  return `${dayText(utc)}, ${clockText(utc)}`;
}

/** "8:00 – 9:00 PM" */
export function spanText(start, duration) {
  const from = clockText(start);
  const to = clockText(start + duration);
  const half = from.slice(-3);
  return `${half === to.slice(-3) ? from.slice(0, -3) : from} – ${to}`;
}

/** Start of the receiver's local day that contains utc. */
export function startOfDay(utc) {
  const offset = (state()?.clock?.offset ?? 0) * 60;
  return Math.floor((utc + offset) / 86400) * 86400 - offset;
}

/** Calls tick() now and then at each full second of the receiver's clock; returns the end of it. */
export function everySecond(tick) {
  let timer = 0;
  function run() {
    tick(now());
    timer = setTimeout(run, 1000 - ((now() * 1000) % 1000) + 5);
  }
  run();
  return () => clearTimeout(timer);
}
