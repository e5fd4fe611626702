// For developers: callbacks as they come, the command console, the rows of both databases, and how
// to begin.

import {fill, h, setText} from '../dom.js';
import {mountCallbacks} from '../developer/callbacks.js';
import {mountConsole} from '../developer/console.js';
import {startLog} from '../developer/log.js';
import {mountRows} from '../developer/rows.js';
import {mountStart} from '../developer/start.js';
import {t} from '../texts.js';

const parts = {callbacks: mountCallbacks, console: mountConsole, rows: mountRows,
  start: mountStart};

let showPart = null;

function mount(container, wanted) {
  let unmount = null;
  let current = null;
  const box = h('div', {class: 'dev-part'});
  const what = h('p', {class: 'dim dev-intro'});
  const tabs = Object.keys(parts).map((name) => h('a', {
    class: 'tab', href: `#/developer/${name}`, 'data-test': `developer-${name}`,
  }, t(`developer.${name}`)));

  showPart = (part) => {
    const name = part in parts ? part : 'callbacks';
    if (name === current) return;
    unmount?.();
    current = name;
    Object.keys(parts).forEach((each, index) => {
      if (each === name) tabs[index].setAttribute('aria-current', 'page');
      else tabs[index].removeAttribute('aria-current');
    });
    setText(what, t(`developer.${name}What`));
    fill(box);
    unmount = parts[name](box) ?? null;
  };

  startLog();
  container.append(h('div', {class: 'developer'},
      h('div', {class: 'dev-bar'},
          h('nav', {class: 'dev-tabs', 'aria-label': t('developer.title')}, tabs), what), box));
  showPart(wanted);
  return () => {
    unmount?.();
    showPart = null;
  };
}

export const view = {name: 'developer', mount, part: (name) => showPart?.(name)};
