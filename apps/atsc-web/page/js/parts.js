// Parts that several views are built of.

import {fill, h, icon, setText} from './dom.js';
import {t} from './texts.js';

/**
 * One of several values, all visible: {label, options: [[value, text]…], value, onChange}. The
 * returned element has set(value), which changes nothing that is the same.
 */
export function choice({label, options, value, onChange, test}) {
  const buttons = options.map(([key, text]) => h('button', {
    type: 'button', class: 'choice-option', role: 'radio', 'data-value': key,
    onclick: () => {
      if (element.value === key) return;
      element.set(key);
      onChange(key);
    },
  }, text));
  const element = h('div', {class: 'choice', role: 'radiogroup', 'aria-label': label,
    'data-test': test}, buttons);
  element.set = (key) => {
    element.value = key;
    options.forEach(([other], index) => {
      const checked = String(other === key);
      if (buttons[index].getAttribute('aria-checked') !== checked) {
        buttons[index].setAttribute('aria-checked', checked);
      }
    });
  };
  element.set(value);
  return element;
}

/**
 * A row with its value that opens a list of all values: {label, options, value, onChange}. The
 * returned element has set(value) and `chosen`.
 */
export function pickRow({label, options, value, onChange, test}) {
  const shown = h('span', {class: 'row-value'});
  const element = h('button', {type: 'button', class: 'row', 'data-test': test,
    'aria-haspopup': 'dialog', onclick: async () => {
      const {choose} = await import('./choose.js');
      const key = await choose({title: label, options, value: element.chosen});
      if (key === undefined) return;
      element.set(key);
      onChange(key);
    }}, h('span', {class: 'row-label'}, label), shown, icon('right'));
  element.set = (key) => {
    element.chosen = key;
    setText(shown, options.find(([other]) => other === key)?.[1] ?? String(key ?? ''));
  };
  element.set(value);
  return element;
}

/** A button: {test, text (or nodes), run, kind: 'primary'|'danger'}. */
export function button({test, text, run, kind = ''}) {
  return h('button', {type: 'button', class: `button ${kind}`.trim(), 'data-test': test,
    onclick: run},
      text);
}

/** A switch: {label, checked, onChange}; the returned element has set(checked). */
export function switchButton({label, checked = false, onChange, test}) {
  const element = h('button', {
    type: 'button', class: 'switch', role: 'switch', 'data-test': test,
    onclick: () => {
      element.set(!element.checked);
      onChange(element.checked);
    },
  }, h('span', {class: 'switch-label'}, label), h('span', {class: 'switch-track'}));
  element.set = (on) => {
    if (element.checked === Boolean(on)) return;
    element.checked = Boolean(on);
    element.setAttribute('aria-checked', String(element.checked));
  };
  element.set(checked);
  return element;
}

const maxPin = 8;

/**
 * The question for a PIN: a field, dots, and a pad for mouse and finger. onEnter(pin) resolves with
 * what is wrong ({text, wait} or a text), or nothing when it is done. onNumber(text) gets what was
 * typed if it has a dash: no PIN has one. The element has press(key), enter(), say(what is wrong)
 * and ask(label, test) for the next question in the same field.
 */
export function pinPad({label, onEnter, onNumber, describedBy, test = 'pin'}) {
  const title = h('p', {class: 'pin-label'}, label);
  const field = h('input', {
    class: 'pin-field', type: 'password', inputmode: 'numeric', autocomplete: 'off',
    maxlength: maxPin, 'aria-label': label, 'aria-describedby': describedBy, spellcheck: 'false',
    'data-test': test,
    oninput: () => {
      if (onNumber && /[-.]/.test(field.value)) {
        giveNumber(field.value);
        return;
      }
      const digits = field.value.replace(/\D/g, '').slice(0, maxPin);
      if (digits !== field.value) field.value = digits;
      if (digits !== '') tell();
      draw();
    },
    onkeydown: (event) => {
      if (event.key !== 'Enter') return;
      event.preventDefault();
      event.stopPropagation();
      enter();
    },
  });
  const dots = h('div', {class: 'pin-dots', 'aria-hidden': 'true'});
  const message = h('p', {class: 'pin-message', role: 'alert', 'data-test': 'pin-error'});

  function draw() {
    const count = Math.max(4, field.value.length);
    while (dots.children.length < count) dots.append(h('span', {class: 'pin-dot'}));
    while (dots.children.length > count) dots.lastChild.remove();
    [...dots.children].forEach((dot, index) =>
      dot.classList.toggle('filled', index < field.value.length));
  }

  let countdown = 0;
  function tell(error) {
    clearInterval(countdown);
    if (!(error?.wait > 0)) {
      setText(message, error?.text ?? error ?? '');
      return;
    }
    // The seconds run for the eye; a screen reader hears them once.
    const end = Date.now() + error.wait * 1000;
    const seconds = h('span', {'aria-live': 'off'});
    const step = () => {
      const left = Math.ceil((end - Date.now()) / 1000);
      if (left <= 0 || (!element.isConnected && seconds.isConnected)) tell();
      else setText(seconds, t('pin.wait', {seconds: left}));
    };
    step();
    fill(message, seconds);
    countdown = setInterval(step, 250);
  }

  function empty() {
    field.value = '';
    draw();
  }

  function giveNumber(number) {
    empty();
    onNumber(number);
  }

  let busy = false;
  async function enter() {
    if (busy) return;
    const pin = field.value;
    if (pin.length < 4) {
      empty();
      tell(t('pin.short'));
      return;
    }
    busy = true;
    const error = await onEnter(pin).catch((problem) => problem.message || t('error.failed'));
    busy = false;
    empty();
    tell(error);
    if (element.isConnected && error) field.focus();
  }

  function press(digit) {
    if (digit === '-') {
      if (onNumber) giveNumber(`${field.value}-`);
      return;
    }
    if (field.value.length < maxPin) field.value += digit;
    tell();
    draw();
  }

  const key = (digit) => h('button', {
    type: 'button', class: 'pin-key', 'aria-label': t('pin.digit', {digit}),
    onclick: () => press(digit),
  }, digit);
  const pad = h('div', {class: 'pin-pad'},
      ['1', '2', '3', '4', '5', '6', '7', '8', '9'].map(key),
      h('button', {type: 'button', class: 'pin-key', 'aria-label': t('pin.erase'), onclick: () => {
        field.value = field.value.slice(0, -1);
        draw();
      }}, icon('erase')),
      key('0'),
      h('button', {type: 'button', class: 'pin-key pin-enter', 'data-test': 'pin-ok',
        'aria-label': t('common.ok'), onclick: enter}, icon('check')));
  const element = h('div', {class: 'pin'}, title,
      h('div', {class: 'pin-entry'}, field, dots), message, pad);
  element.press = press;
  element.enter = enter;
  element.say = tell;
  element.ask = (text, name) => {
    field.dataset.test = name;
    setText(title, text);
    field.setAttribute('aria-label', text);
    empty();
  };
  draw();
  return element;
}

/** What to tell after a wrong PIN: {ok: false, wait}. */
export function pinProblem(answer) {
  return {text: t('pin.wrong'), wait: answer.wait};
}
