// Router, keys and what lies above every view.

import {h, fill} from './dom.js';
import {cancelDigits, digitKey} from './digits.js';
import {back, closeDialogs, hasLayer, hasModal} from './layers.js';
import {handleArrow, takesText} from './focus.js';
import {start} from './live.js';
import {drawTopbar, startTopbar} from './topbar.js';
import {startConditions} from './conditions.js';
import {openMenu} from './menu.js';
import {navigate} from './navigate.js';
import {toggleRemote} from './remote.js';
import {channelDown, channelUp, lastChannel} from './television.js';
import {t} from './texts.js';
import {applyTheme} from './theme.js';

const viewNames = ['screen', 'guide', 'scan', 'channels', 'parental', 'settings', 'developer'];
const container = document.getElementById('view');

let current = null;    // {name, view, unmount}
let turn = 0;          // a view that loads slowly must not replace a later one

function wanted() {
  const [name, ...rest] = location.hash.replace(/^#\/?/, '').split('?')[0].split('/');
  return {name: viewNames.includes(name) ? name : 'screen', part: rest.join('/')};
}

function loadStyle(name) {
  if (document.querySelector(`link[data-view="${name}"]`)) return Promise.resolve();
  return new Promise((resolve) => {
    const link = h('link', {rel: 'stylesheet', href: `css/${name}.css`, 'data-view': name,
      onload: resolve, onerror: resolve});
    document.head.append(link);
  });
}

async function load(name) {
  const [module] = await Promise.all([import(`./views/${name}.js`), loadStyle(name)]);
  return module.view;
}

async function route() {
  const {name, part} = wanted();
  const mine = ++turn;
  // A view that handles its parts itself (developer/console) stays.
  if (current?.name === name && current.view.part) {
    current.view.part(part);
    return;
  }
  let view;
  try {
    view = await load(name);
  } catch (error) {
    console.error(error);
    view = {name, mount: (box) => {
      box.append(h('p', {class: 'notice'}, t('app.viewFailed', {reason: error.message})));
    }};
  }
  if (mine !== turn) return;
  closeDialogs();
  current?.unmount?.();
  fill(container);
  document.body.dataset.view = name;
  drawTopbar(name);
  current = {name, view, unmount: null};
  current.unmount = view.mount(container, part) ?? null;
  if (!hasLayer() && !container.contains(document.activeElement)) {
    container.focus({preventScroll: true});
  }
}

const letterKeys = {
  m: openMenu,
  g: () => navigate('guide'),
  l: lastChannel,
  r: toggleRemote,
};

function onKey(event) {
  if (event.defaultPrevented || event.ctrlKey || event.metaKey || event.altKey) return;
  // A field for a PIN takes digits only: the letters are still keys.
  const letterOfPin = /^[a-z]$/i.test(event.key) && event.target.matches?.('.pin-field');
  const typing = takesText(event.target) && !letterOfPin;
  // The key of a remote control leaves the one on the screen open.
  const remote = event.key === 'BrowserBack';
  if (event.key === 'Escape' || remote || (event.key === 'Backspace' && !typing)) {
    event.preventDefault();
    if (cancelDigits() || ((hasModal() || !remote) && back())) return;
    if (current?.view.onBack?.()) return;
    if (current?.name !== 'screen') navigate('screen');
    return;
  }
  const covered = document.querySelector('.alert-cover') !== null;
  if (!covered && event.key === 'PageUp' && !event.target.closest('[data-keys="own"]')) {
    event.preventDefault();
    channelUp(event);
    return;
  }
  if (!covered && event.key === 'PageDown' && !event.target.closest('[data-keys="own"]')) {
    event.preventDefault();
    channelDown(event);
    return;
  }
  if (!typing && !covered && !hasModal() && digitKey(event)) {
    event.preventDefault();
    return;
  }
  if (!typing && !covered) {
    const letter = letterKeys[event.key.toLowerCase()];
    if (letter && !hasModal()) {
      event.preventDefault();
      letter();
      return;
    }
  }
  if (!hasModal() && current?.view.onKey?.(event)) {
    event.preventDefault();
    return;
  }
  handleArrow(event);
}

applyTheme();
start();
startTopbar();
startConditions();
addEventListener('hashchange', route);
addEventListener('keydown', onKey);
route().then(() => {
  // The other views, so that the first look at them is as fast as the second.
  const idle = window.requestIdleCallback ?? ((run) => setTimeout(run, 500));
  idle(() => viewNames.forEach((name) => load(name).catch(() => {})));
});
