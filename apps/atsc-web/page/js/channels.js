// The channel lists of both sources, read once for all views and again when they have changed.

import {get} from './api.js';
import {onPart} from './live.js';

export const flags = {visible: 0x1, locked: 0x4, skipped: 0x8, deleted: 0x20};

const lists = new Map();  // source -> Promise of the list
const listeners = new Set();

/** The channels of a source ('VSB' or 'QAM') in order of their numbers. */
export function channelList(source) {
  if (!lists.has(source)) {
    const list = get('/api/channels', {src: source}).then((answer) => answer.channels);
    lists.set(source, list);
    list.catch(() => lists.delete(source));
  }
  return lists.get(source);
}

/** Calls listener() when a list has changed: ask channelList() again. Returns the end of it. */
export function onChannels(listener) {
  listeners.add(listener);
  return () => listeners.delete(listener);
}

/** The numbers (1 to 28) of a channel's favourite groups. */
export function favouriteGroups(fav) {
  const groups = [];
  for (let group = 1; group <= 28; ++group) {
    if (fav & (0x10 << (group - 1))) groups.push(group);
  }
  return groups;
}

/**
 * The channel for typed digits such as "5-1", "5" (its first minor number) or "1203"; null without
 * one. Deleted channels can't be selected, skipped ones can.
 */
export function findChannel(list, digits) {
  const match = /^(\d{1,5})(?:-(\d{1,4}))?$/.exec(digits);
  if (!match) return null;
  const major = Number(match[1]);
  const fits = list.filter((channel) => channel.major === major &&
      !(channel.flags & flags.deleted) &&
      (match[2] === undefined || channel.minor === Number(match[2])));
  return fits.find((channel) => channel.flags & flags.visible) ?? fits[0] ?? null;
}

onPart((state) => [state.epoch, state.versions?.channels], () => {
  lists.clear();
  for (const listener of [...listeners]) listener();
});
