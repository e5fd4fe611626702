// JSON to read: coloured, with texts from the air as what they are.

import {airText, h} from '../dom.js';

const indent = '  ';

function scalar(value) {
  if (typeof value === 'string') return airText(JSON.stringify(value), {class: 'json-text'});
  return h('span', {class: value === null ? 'json-null' : 'json-number'}, String(value));
}

function isScalar(value) {
  return value === null || typeof value !== 'object';
}

function nodes(value, depth) {
  if (isScalar(value)) return [scalar(value)];
  const list = Array.isArray(value);
  const entries = list ? value.map((each) => [null, each]) : Object.entries(value);
  const [open, end] = list ? '[]' : '{}';
  // A list of numbers stays on its line.
  const flat = entries.length === 0 || (list && value.every(isScalar));
  const pad = flat ? '' : `\n${indent.repeat(depth + 1)}`;
  return [
    open,
    entries.map(([name, each], index) => [
      index > 0 ? (flat ? ', ' : ',') : '', pad,
      name === null ? '' : [airText(JSON.stringify(name), {class: 'json-key'}), ': '],
      nodes(each, depth + 1),
    ]),
    flat ? '' : `\n${indent.repeat(depth)}`, end,
  ];
}

/** An element that shows a value on several lines. */
export function prettyJson(value, properties = {}) {
  return h('pre', {...properties, class: `json ${properties.class ?? ''}`.trim(), tabindex: '0'},
      nodes(value, 0));
}

/** Puts a text on the clipboard; resolves with whether that worked. */
export async function copyText(text) {
  try {
    await navigator.clipboard.writeText(text);
    return true;
  } catch {
    // Not a secure address: the old way.
    const field = h('textarea', {class: 'dev-clip', 'aria-hidden': 'true'});
    field.value = text;
    document.body.append(field);
    field.select();
    const done = document.execCommand('copy');
    field.remove();
    return done;
  }
}
