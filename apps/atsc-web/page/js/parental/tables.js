// Rating tables as the commands of class PC return them.

import {ApiError, command} from '../api.js';
import {valueKind, isOrdered} from './limits.js';

const inFlight = 4;        // commands at a time: a browser has six connections for all pages
const maxDimensions = 64;  // of a rating document
const maxValues = 15;

let free = inFlight;
const waiting = [];

/** Sends a command of class PC; resolves with the reply, rejects if there is none. */
export async function ask(name, keys = {}) {
  if (free > 0) --free;
  else await new Promise((go) => waiting.push(go));
  try {
    const {result, reply} = await command({class: 'PC', command: name, ...keys});
    if (result !== 0 || reply === null) throw new ApiError(200, 'refused', name);
    return reply;
  } finally {
    const next = waiting.shift();
    if (next) next();
    else ++free;
  }
}

/** The limits of a region as a rating document. */
export function readLimits(region) {
  return ask('RETREIVERATING', {region});
}

/** The numbers of the rating regions whose tables are known. */
export async function knownRegions() {
  const {reg_lst: numbers} = await ask('GETREGION');
  return Array.isArray(numbers) ? numbers.filter(Number.isInteger) : [];
}

// Calls read(0) to read(count - 1); resolves with the results.
function each(count, read) {
  return Promise.all(Array.from({length: count}, (_, index) => read(index)));
}

async function readValue(region, dimension, number) {
  const reply = await ask('GETVALTXT', {region, rat_dim: dimension, val: number});
  const text = reply.rat_val_txt ?? '';
  const name = reply.abbr_rat_val_txt || text;
  return {number, name, text, ...valueKind(region, dimension, number, name)};
}

async function readDimension(region, number) {
  const reply = await ask('DIMNAME', {region, rat_dim: number});
  return {
    number,
    name: reply.dim_name ?? '',
    ordered: isOrdered(region, number, reply.grad === true),
    values: await each(Math.min(reply.dim_lvl ?? 0, maxValues),
        (value) => readValue(region, number, value)),
  };
}

async function readTable(number) {
  const {reg_name: name, version} = await ask('GETRRTDETAIL', {region: number});
  const {num_dim: count} = await ask('NUMDIM', {region: number});
  const dimensions = await each(Math.min(count, maxDimensions),
      (index) => readDimension(number, index));
  return {number, name: name ?? '', version, dimensions};
}

const cache = new Map();  // number of the region -> table

/**
 * The table of a region: {number, name, version, dimensions: [{number, name, ordered, values:
 * [{number, name, text, limit, group}]}]}. Read again only when its version is another one.
 */
export async function ratingTable(number) {
  const known = cache.get(number);
  if (known) {
    const {version} = await ask('GETRRTDETAIL', {region: number});
    if (known.version === version) return known;
  }
  const table = await readTable(number);
  cache.set(number, table);
  return table;
}

/** Forgets the tables: a station has sent one, or another service runs. */
export function forgetTables() {
  cache.clear();
}

// "TV-PG" and "tv pg" are the same name.
function plain(name) {
  return name.trim().toLowerCase();
}

/**
 * The values of a table that a rating such as "TV-14-D-V" consists of: [{dimension, value}…]; none
 * if the region does not have the rating.
 */
export function valuesOf(table, rating) {
  const parts = rating.split('-');
  for (let end = 1; end <= parts.length; ++end) {
    const name = plain(parts.slice(0, end).join('-'));
    for (const dimension of table.dimensions) {
      const value = dimension.values.find((each) => each.name !== '' && plain(each.name) === name);
      if (!value) continue;
      const found = [{dimension, value}];
      for (const flag of parts.slice(end)) {
        const other = table.dimensions.find((each) => {
          const limits = each.values.filter(({limit}) => limit);
          return limits.length === 1 && plain(limits[0].name) === plain(flag);
        });
        if (other) found.push({dimension: other, value: other.values.find(({limit}) => limit)});
      }
      if (found.length === parts.length - end + 1) return found;
    }
  }
  return [];
}
