// One of many values in a dialog of large buttons.

import {openDialog} from './dialog.js';
import {h, icon} from './dom.js';

/**
 * Opens a choice: {title, options: [[value, node or text]…], value}. Resolves with the chosen
 * value, or undefined when it was left.
 */
export function choose({title, options, value, test}) {
  return openDialog({
    title,
    test,
    body: (close) => h('div', {class: 'list choose'}, options.map(([key, text]) => h('button', {
      'type': 'button', 'class': 'list-item', 'data-value': key, 'data-test': 'option',
      'aria-pressed': String(key === value), 'data-focus': key === value,
      'onclick': () => close(key),
    }, icon(key === value ? 'check' : ''), h('span', {}, text)))),
  });
}
