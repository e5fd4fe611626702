// The keys of a command as fields.

import {h, setText} from '../dom.js';
import {t} from '../texts.js';
import {prose} from './reference.js';

// What a field holds as the value of its type; undefined leaves the key out.
function valueOf(key, text) {
  if (text === '') return undefined;
  if (key.type === 'integer') return /^-?\d+$/.test(text.trim()) ? Number(text) : text;
  if (key.type === 'boolean') return text === 'true' ? true : text === 'false' ? false : text;
  if (key.type === 'string') return text;
  try {
    return JSON.parse(text);
  } catch {
    return text;  // sent as a text: the service says what it thinks of it
  }
}

function textOf(value) {
  if (value === undefined) return '';
  return typeof value === 'object' ? JSON.stringify(value) : String(value);
}

// What a required key has before anything is chosen, so that the command can be sent as it stands.
function initial(key) {
  if (!key.required) return undefined;
  const offered = key.values?.[0] ?? key.examples?.[0];
  if (offered !== undefined) return valueOf(key, String(offered));
  return {integer: 0, boolean: true, string: '', object: {}, array: []}[key.type];
}

let count = 0;

function field(key, onChange) {
  const id = `dev-key-${++count}`;
  const otherwise = key.required ? t('developer.required') :
    key.otherwise ? t('developer.otherwise', {value: key.otherwise}) :
      key.default === undefined ? t('developer.noDefault') :
        t('developer.default', {value: JSON.stringify(key.default)});
  const offered = key.type === 'boolean' ? ['true', 'false'] : (key.values ?? []).map(String);
  const common = {id, class: 'field', 'data-test': `key-${key.name}`,
    'aria-describedby': `${id}-w`};
  let input;
  let hints = null;
  if (offered.length > 0) {
    input = h('select', {...common, onchange: onChange},
        h('option', {value: ''}, t('developer.omitted')),
        offered.map((value) => h('option', {value}, value)));
  } else {
    if (key.examples) {
      hints = h('datalist', {id: `${id}-e`},
          key.examples.map((value) => h('option', {value: String(value)})));
    }
    input = h('input', {...common, type: 'text', spellcheck: 'false', autocomplete: 'off',
      inputmode: key.type === 'integer' ? 'numeric' : undefined, oninput: onChange,
      list: hints ? `${id}-e` : undefined, placeholder: t('developer.omitted')});
  }
  const element = h('div', {class: 'dev-field'},
      h('label', {for: id}, h('code', {}, key.name), ' ', h('span', {class: 'dim'}, key.type),
          ' ', h('span', {class: `badge ${key.required ? 'strong' : ''}`}, otherwise)),
      input, hints,
      h('p', {class: 'dim dev-what', id: `${id}-w`}, prose(key.about)));
  return {
    key, element,
    read: () => valueOf(key, input.value),
    write: (value) => {
      const text = textOf(value);
      // A value that is not offered is one more to choose.
      if (input.tagName === 'SELECT' && ![...input.options].some((each) => each.value === text)) {
        input.append(h('option', {value: text}, text));
      }
      if (input.value !== text) input.value = text;
    },
  };
}

/**
 * Fields for the keys of a command. onChange(keys) is called with the keys that are given. The
 * element has keys() and fill(message).
 */
export function commandFields(row, onChange) {
  const extra = h('p', {class: 'dim', role: 'status'});
  let others = {};  // keys of a message that the table does not have
  const all = row.keys.map((key) => field(key, () => onChange(element.keys())));
  const element = h('div', {class: 'dev-field-list'}, all.map((each) => each.element), extra);
  element.keys = () => {
    const keys = {};
    for (const {key, read} of all) {
      const value = read();
      if (value !== undefined) keys[key.name] = value;
    }
    return {...keys, ...others};
  };
  element.fill = (message) => {
    const {class: group, command, ...keys} = message;
    const fresh = Object.keys(keys).length === 0;
    for (const {key, write} of all) {
      write(fresh ? initial(key) : keys[key.name]);
      delete keys[key.name];
    }
    others = keys;
    const names = Object.keys(others);
    setText(extra, names.length > 0 ? t('developer.ignored', {names: names.join(', ')}) : '');
  };
  return element;
}
