// Limits for the age of a child. A guess at what parents want, with the ages that the rating
// systems name; every cell of the matrix can be changed afterwards.

import {encode, isBlocked, isFixed} from './limits.js';

/** Ages of the presets; 0 stands for adults, for whom nothing is blocked. */
export const ages = [6, 8, 10, 13, 14, 17, 0];

// The lowest blocked value of each dimension, by region and age. Region 1: TV-PG is 3, TV-14 4,
// TV-MA 5; D, L, S and V are dimensions 1 to 4; TV-Y7 is 2 of dimension 5; FV is dimension 6; PG,
// PG-13, R and NC-17 are 3 to 6 of dimension 7. TV-Y7 is for children from 7, with its fantasy
// violence for older ones. Region 2: English C8+ is 2, PG 4, 14+ 5, 18+ 6; French 8 ans+ is 2,
// 13 ans+ 3, 16 ans+ 4, 18 ans+ 5.
const fixedPresets = {
  1: {
    6: {0: 3, 1: 1, 2: 1, 3: 1, 4: 1, 5: 2, 6: 1, 7: 3},
    8: {0: 3, 1: 1, 2: 1, 3: 1, 4: 1, 6: 1, 7: 3},
    10: {0: 4, 3: 1, 4: 1, 7: 4},
    13: {0: 4, 7: 5},
    14: {0: 5, 7: 5},
    17: {7: 6},
    0: {},
  },
  2: {
    6: {0: 2, 1: 2},
    8: {0: 4, 1: 3},
    10: {0: 5, 1: 3},
    13: {0: 5, 1: 4},
    14: {0: 6, 1: 4},
    17: {0: 6, 1: 5},
    0: {},
  },
};

const grownUp = 18;

function ageIn(value) {
  const match = /\d{1,2}/.exec(value.name) ?? /\d{1,2}/.exec(value.text);
  return match ? Number(match[0]) : null;
}

// Other regions: a value that names an age is blocked for younger children. Levels without ages
// are shared out in their order. Kinds of content without ages stay as they are.
function downloaded(dimension, age) {
  const limits = dimension.values.filter(({limit}) => limit);
  if (age === 0) return new Map(limits.map(({number}) => [number, false]));
  const named = limits.map(ageIn);
  if (named.some((each) => each !== null)) {
    const first = named.findIndex((each) => each !== null && each > age);
    return new Map(limits.map(({number}, index) => [number, dimension.ordered ?
        first >= 0 && index >= first : named[index] !== null && named[index] > age]));
  }
  if (!dimension.ordered) return new Map();
  const allowed = Math.max(1, Math.round(limits.length * age / grownUp));
  return new Map(limits.map(({number}, index) => [number, index >= allowed]));
}

function wanted(region, dimension, age) {
  if (!isFixed(region)) return downloaded(dimension, age);
  const first = fixedPresets[region][age][dimension.number] ?? Infinity;
  return new Map(dimension.values.filter(({limit}) => limit)
      .map(({number}) => [number, number >= first]));
}

/** What a preset wants: number of a dimension -> number of a value -> whether it is blocked. */
export function presetOf(table, age) {
  return new Map(table.dimensions.map((dimension) =>
    [dimension.number, wanted(table.number, dimension, age)]));
}

/** Whether the limits of a region are those of a preset. */
export function isPreset(table, limits, age) {
  for (const [dimension, values] of presetOf(table, age)) {
    for (const [value, blocked] of values) {
      if (isBlocked(limits, table.number, dimension, value) !== blocked) return false;
    }
  }
  return true;
}

/** The limits of a region changed to those of a preset. Stores nothing. */
export async function withPreset(table, limits, age) {
  let document = limits;
  for (const {number: dimension, ordered} of table.dimensions) {
    const values = [...presetOf(table, age).get(dimension) ?? []];
    const differs = ([value, blocked]) =>
      isBlocked(document, table.number, dimension, value) !== blocked;
    if (!values.some(differs)) continue;
    // Freeing a level frees those below, blocking one blocks those above.
    const free = values.filter(([, blocked]) => !blocked).reverse();
    const blocked = values.filter(([, each]) => each);
    for (const [value] of ordered ? free.slice(0, 1) : free) {
      if (differs([value, false])) document = await encode(document, dimension, value, false);
    }
    for (const [value] of ordered ? blocked.slice(0, 1) : blocked) {
      if (differs([value, true])) document = await encode(document, dimension, value, true);
    }
  }
  return document;
}
