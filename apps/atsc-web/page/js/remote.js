// The remote control on the screen, for mouse and finger: at the side, on a phone from below.

import {h, icon} from './dom.js';
import {enterDigits, isTyping, typeDigit} from './digits.js';
import {openLayer} from './layers.js';
import {navigate} from './navigate.js';
import {channelDown, channelUp, lastChannel, switchSource, toggleStandby} from './television.js';
import {t} from './texts.js';

let close = null;
let before = null;  // what had the focus before the remote control took it

/** Keys of the remote control act as the keyboard's would on what has the focus elsewhere. */
function press(key) {
  const target = before?.isConnected ? before : document.getElementById('view');
  // A question for the PIN that is on the screen gets the digits, unless a number is being typed.
  const pin = [...document.querySelectorAll('.pin')].findLast((pad) => !pad.closest('[inert]'));
  if (pin && /^[0-9-]$/.test(key) && !isTyping()) {
    pin.press(key);
    return;
  }
  if (pin && key === 'Enter' && !isTyping()) {
    pin.enter();
    return;
  }
  if (key.startsWith('Arrow')) {
    target.focus({preventScroll: true});
    const event = new KeyboardEvent('keydown', {key, bubbles: true, cancelable: true});
    target.dispatchEvent(event);
    return;
  }
  if (key === 'Enter' && !enterDigits()) {
    if (target.matches('button, a')) target.click();
    else target.dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true, cancelable: true}));
  } else if (/^[0-9-]$/.test(key)) {
    typeDigit(key);
  }
}

function key(label, content, action, kind = '', test) {
  return h('button', {type: 'button', class: `remote-key ${kind}`, 'aria-label': label,
    'data-test': test, onclick: action}, content);
}

function build() {
  const digit = (value) =>
    key(t('remote.digit', {digit: value}), value, () => press(value), 'digit');
  const arrow = (name, event) =>
    key(t(`remote.${name}`), icon(name), () => press(event), `arrow ${name}`);
  return h('aside', {class: 'remote', 'aria-label': t('remote.title'), 'data-test': 'remote'},
      h('div', {class: 'remote-top'},
          key(t('remote.power'), icon('power'), toggleStandby, 'power'),
          key(t('remote.source'), icon('source'), switchSource),
          key(t('common.close'), icon('close'), () => close?.(), 'quiet')),
      h('div', {class: 'remote-pad'},
          arrow('up', 'ArrowUp'), arrow('left', 'ArrowLeft'),
          key(t('remote.ok'), t('remote.ok'), () => press('Enter'), 'ok'),
          arrow('right', 'ArrowRight'), arrow('down', 'ArrowDown')),
      h('div', {class: 'remote-row'},
          key(t('remote.back'), icon('back'), () => send('BrowserBack')),
          key(t('remote.menu'), icon('menu'), () => import('./menu.js').then((m) => m.openMenu())),
          key(t('remote.guide'), icon('guide'), () => navigate('guide'))),
      h('div', {class: 'remote-row'},
          h('div', {class: 'remote-rocker'},
              key(t('remote.channelUp'), icon('up'), channelUp, 'rock', 'remote-up'),
              h('span', {'aria-hidden': 'true'}, t('remote.ch')),
              key(t('remote.channelDown'), icon('down'), channelDown, 'rock', 'remote-down')),
          h('div', {class: 'remote-column'},
              key(t('remote.info'), icon('info'), () => send('i')),
              key(t('remote.last'), icon('last'), lastChannel)),
          h('div', {class: 'remote-column'},
              key(t('remote.audio'), icon('audio'), () =>
                import('./menu.js').then((m) => m.openAudio())),
              key(t('remote.captions'), t('remote.captionsShort'), () =>
                import('./menu.js').then((m) => m.openCaptions()), 'small'))),
      h('div', {class: 'remote-digits'},
          ['1', '2', '3', '4', '5', '6', '7', '8', '9'].map(digit),
          key(t('remote.dash'), '–', () => press('-'), 'digit'), digit('0'),
          key(t('remote.enter'), icon('check'), () => press('Enter'), 'digit')));
}

/** A key that means the same wherever the focus is. */
function send(key) {
  dispatchEvent(new KeyboardEvent('keydown', {key, cancelable: true}));
}

/** Opens or closes the remote control. */
export function toggleRemote(open = !close) {
  if (open === Boolean(close)) return;
  if (!open) {
    close();
    return;
  }
  const element = build();
  // Not the first key, which is standby.
  const focus = element.querySelector('.ok');
  document.addEventListener('focusin', remember);
  before = document.activeElement;
  close = openLayer(element, {modal: false, level: 5, focus, onClose: () => {
    close = null;
    document.removeEventListener('focusin', remember);
  }});
}

function remember(event) {
  if (!event.target.closest('.remote')) before = event.target;
}

