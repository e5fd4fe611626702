// Rating documents: which values are limits, which are blocked, and the commands that change them.

import {ApiError, command, protectedCommand} from '../api.js';

const regionUs = 1;
const regionCanada = 2;
const children = 5;  // dimensions of region 1
const fantasyViolence = 6;
const films = 7;

// CEA-766 fixes the meaning of these dimensions, whatever a rating table calls them: the level in
// the rating document, the first and the last value that can be blocked.
const fixedDimensions = {
  [regionUs]: [
    ['us', 'tv', 2, 5], ['us', 'dia', 1, 1], ['us', 'lan', 1, 1], ['us', 'sex', 1, 1],
    ['us', 'vio', 1, 1], ['us', 'child', 1, 2], ['us', null, 1, 1], ['us', 'mpaa', 2, 7],
  ],
  [regionCanada]: [['can', 'eng', 1, 6], ['can', 'fra', 1, 5]],
};

export const unratedGroups = {unrated: 0, films: 1, exempt: 2};

/** Whether CEA-766 fixes the meaning of a region's dimensions. */
export function isFixed(region) {
  return region in fixedDimensions;
}

/** Whether blocking a value of a dimension blocks the values above it. */
export function isOrdered(region, dimension, graduated) {
  if (!isFixed(region)) return graduated;
  const [, , first, last] = fixedDimensions[region][dimension] ?? [];
  return first !== last;
}

function groupOf(region, dimension, value) {
  if (region === regionUs && dimension === films && value === 8) return unratedGroups.films;
  if (region === regionCanada && value === 0) return unratedGroups.exempt;
  return null;
}

/**
 * {limit: whether a limit can block the value, group: the number of the unrated group that blocks
 * it instead, or null}.
 */
export function valueKind(region, dimension, value, name) {
  const group = groupOf(region, dimension, value);
  if (!isFixed(region)) return {limit: name !== '', group};
  const [, , first, last] = fixedDimensions[region][dimension] ?? [null, null, 1, 0];
  return {limit: value >= first && value <= last, group};
}

/** Whether a rating document blocks a value that can be a limit. */
export function isBlocked(limits, region, dimension, value) {
  if (!isFixed(region)) return limits.dwn?.[dimension]?.[value] === 1;
  const [object, name, first, last] = fixedDimensions[region][dimension];
  const levels = limits[object] ?? {};
  // A blocked TV-Y7 includes its fantasy violence; 3 is fantasy violence alone.
  if (name === null) return levels.child >= 1 && levels.child <= 3;
  const level = levels[name] ?? 0;
  if (first === last) return level === 1;
  return level >= 1 && level <= last && value >= level;
}

/** Whether a value is blocked only together with another one (FV with TV-Y7). */
export function isKept(limits, region, dimension) {
  return region === regionUs && dimension === fantasyViolence &&
      limits.us?.child >= 1 && limits.us?.child <= 2;
}

/** Which values change when a value is blocked or freed: a function of (dimension, value). */
export function affected(region, dimension, value, block) {
  return (other, number) => {
    if (other.number === dimension.number) {
      if (!dimension.ordered) return number === value.number;
      return block ? number >= value.number : number <= value.number;
    }
    return region === regionUs && dimension.number === children &&
        other.number === fantasyViolence && (block || value.number === 2);
  };
}

/** The document with a value blocked or free. Stores nothing. */
export async function encode(limits, dimension, value, block) {
  const {region, us, can, dwn} = limits;
  const {result, reply} = await command({
    class: 'PC', command: isFixed(region) ? 'ENCODE' : 'ENCODEDRRT', region, us, can, dwn,
    rat_dim: dimension, val: value, block,
  });
  if (result !== 0 || reply === null) throw new ApiError(200, 'refused', 'ENCODE');
  return reply;
}

// Only what differs: another program may have changed other limits since.
function changes(before, after) {
  const document = {region: after.region, us: {}, can: {}, dwn: []};
  for (const object of ['us', 'can']) {
    for (const [name, level] of Object.entries(after[object] ?? {})) {
      if (before[object]?.[name] !== level) document[object][name] = level;
    }
  }
  (after.dwn ?? []).forEach((row, index) => {
    if (JSON.stringify(row) === JSON.stringify(before.dwn?.[index])) return;
    while (document.dwn.length < index) document.dwn.push([]);
    document.dwn.push(row);
  });
  return document;
}

/** Sends a command of class PC that sets something; rejects if it fails. */
export async function set(name, keys = {}) {
  const {result} = await protectedCommand({class: 'PC', command: name, ...keys});
  if (result !== 0) throw new ApiError(200, 'refused', name);
}

/** Stores the differences between two documents of a region; asks for the PIN if needed. */
export async function storeLimits(before, after) {
  if (JSON.stringify(before) === JSON.stringify(after)) return;
  await set('STORERATING', changes(before, after));
}
