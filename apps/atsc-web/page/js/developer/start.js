// How a TV application connects, and how it reads the databases.

import {fill, h} from '../dom.js';
import {tellError, toast} from '../dialog.js';
import {t} from '../texts.js';
import {copyText} from './json.js';
import {prose, startSections} from './reference.js';

function section({title, text, code}) {
  return h('section', {class: 'panel dev-start-part', 'data-test': 'start-section'},
      h('h2', {}, title), text.map((paragraph) => h('p', {}, prose(paragraph))),
      code && h('pre', {class: 'json', tabindex: '0', 'aria-label': title}, code.join('\n')),
      code && h('button', {type: 'button', class: 'button', onclick: async () => {
        const done = await copyText(code.join('\n') + '\n');
        toast(t(done ? 'developer.copiedReply' : 'error.failed'));
      }}, t('developer.copy')));
}

export function mountStart(container) {
  const box = h('div', {class: 'dev-start'});
  container.append(box);
  startSections().then((list) => fill(box, list.map(section)), tellError);
}
