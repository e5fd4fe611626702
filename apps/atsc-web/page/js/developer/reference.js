// What each command, callback and column is, from the tables that a test compares with the
// library.

import {get} from '../api.js';
import {h} from '../dom.js';

const files = new Map();

function table(name) {
  if (!files.has(name)) {
    const read = get(`/data/${name}.json`);
    read.catch(() => files.delete(name));
    files.set(name, read);
  }
  return files.get(name);
}

/** [{class, command, who, about, fails, keys, reply}…] */
export const commands = () => table('commands');

/** [{kind, pc, about, do, keys}…] */
export const callbacks = () => table('callbacks');

/** {channels: [{name, type, about}…], guide: […]} */
export const columns = () => table('columns');

/** [{title, text: [paragraph…], code}…] */
export const startSections = () => table('start');

/** A text of the tables as nodes: what stands between backticks is code. */
export function prose(text) {
  return text.split('`').map((part, index) => (index % 2 === 0 ? part : h('code', {}, part)));
}

/** A list of keys with their types and meanings: [{name, type, about, value}…]. */
export function keyList(keys, valueOf = null) {
  return h('dl', {class: 'dev-keys'}, keys.map((key) => [
    h('dt', {}, h('code', {}, key.name), ' ', h('span', {class: 'dim'}, key.type)),
    h('dd', {}, valueOf?.(key.name), prose(key.about)),
  ]));
}
