// The channel number that the viewer types, large in the corner until it is sent.

import {h, setText} from './dom.js';
import {playNumber} from './television.js';
import {t} from './texts.js';

const pauseMilliseconds = 2000;
const maxLength = 9;  // 16383-1023 is the longest number there is, and never needed in full

let typed = '';
let timer = 0;
const text = h('span', {class: 'digits-text'});
const box = h('div', {class: 'digits', 'data-test': 'digits', hidden: true},
    h('span', {class: 'visually-hidden'}, t('screen.digits')), text);
document.body.append(box);

function clear() {
  clearTimeout(timer);
  typed = '';
  box.hidden = true;
  setText(text, '');
}

function enter() {
  const digits = typed.replace(/-$/, '');
  clear();
  if (digits !== '') playNumber(digits);
}

/** One key of the remote control: '0' to '9' or '-'. */
export function typeDigit(key) {
  if (key === '-' && (typed === '' || typed.includes('-'))) return;
  if (typed.length >= maxLength) return;
  typed += key;
  setText(text, typed);
  box.hidden = false;
  clearTimeout(timer);
  timer = setTimeout(enter, pauseMilliseconds);
}

/** Whether a number has been begun. */
export function isTyping() {
  return typed !== '';
}

/** Sends what was typed; false if nothing was. */
export function enterDigits() {
  if (typed === '') return false;
  enter();
  return true;
}

/** Handles a key of the keyboard; returns whether it was one for the number. */
export function digitKey(event) {
  if (/^[0-9]$/.test(event.key) || ((event.key === '-' || event.key === '.') && typed !== '')) {
    typeDigit(event.key === '.' ? '-' : event.key);
    return true;
  }
  if (typed === '') return false;
  return event.key === 'Enter' && enterDigits();
}

/** Forgets what was typed; false if nothing was. */
export function cancelDigits() {
  const had = typed !== '';
  clear();
  return had;
}
