// Questions and short messages above the view.

import {ApiError, checkPin, setPin} from './api.js';
import {h, icon} from './dom.js';
import {openLayer} from './layers.js';
import {state} from './live.js';
import {pinPad, pinProblem} from './parts.js';
import {t, textOr} from './texts.js';

let count = 0;

/**
 * Opens a dialog: {title, body (node, nodes or text), actions: [{text, kind: 'primary'|'danger',
 * value, keep, onclick}], wide}. Resolves with the value of the action, or undefined when it was
 * left. `keep` leaves the dialog open; close(value) is given to onclick and, as second result of
 * `openDialog.last`, is never needed otherwise: body may be a function that receives close.
 */
export function openDialog({title, body, actions = [], wide = false, test, focus}) {
  return new Promise((resolve) => {
    const id = `dialog-${++count}`;
    let result;
    let closeLayer = () => {};
    const close = (value) => {
      result = value;
      closeLayer();
    };
    const content = typeof body === 'function' ? body(close) : body;
    const buttons = actions.map((action) => h('button', {
      type: 'button', class: `button ${action.kind ?? ''}`, 'data-test': action.test,
      onclick: () => {
        action.onclick?.(close);
        if (!action.keep) close(action.value);
      },
    }, action.text));
    const panel = h('div', {
      class: `dialog ${wide ? 'wide' : ''}`, role: 'dialog', 'aria-modal': 'true',
      'aria-labelledby': id, tabindex: '-1', 'data-test': test ?? 'dialog',
    },
    h('div', {class: 'dialog-head'},
        h('h2', {id}, title),
        h('button', {type: 'button', class: 'icon-button', 'aria-label': t('common.close'),
          onclick: () => close(undefined)}, icon('close'))),
    h('div', {class: 'dialog-body'}, content),
    buttons.length > 0 && h('div', {class: 'dialog-actions'}, buttons));
    const shade = h('div', {class: 'shade', onclick: (event) => {
      if (event.target === shade) close(undefined);
    }}, panel);
    const first = panel.querySelector('.dialog-body [data-focus]') ??
        panel.querySelector('.dialog-body input, .dialog-body button') ??
        buttons.find((button) => button.classList.contains('primary')) ?? buttons[0] ?? panel;
    closeLayer = openLayer(shade, {focus: focus ?? first, onClose: () => resolve(result)});
  });
}

/** A question with yes and no; resolves with true or false. */
export async function confirmDialog(text, {title, yes, danger = false} = {}) {
  return Boolean(await openDialog({
    title: title ?? text,
    body: title ? h('p', {}, text) : null,
    actions: [
      {text: t('common.cancel'), value: false},
      {text: yes ?? t('common.ok'), value: true, kind: danger ? 'danger' : 'primary'},
    ],
  }));
}

/** Asks for a new PIN (and the old one, if one is set); resolves with it, or '' if it was left. */
export async function choosePin({reason} = {}) {
  const hasOld = Boolean(state()?.pin?.set);
  return await openDialog({
    title: hasOld ? t('settings.pinChange') : t('pin.choose'),
    test: 'pin-dialog',
    body: (close) => {
      let old;
      let chosen;
      const pad = pinPad({
        label: hasOld ? t('pin.old') : t('pin.choose'),
        test: hasOld ? 'pin' : 'pin-new',
        onEnter: async (pin) => {
          if (hasOld && old === undefined) {
            const answer = await checkPin(pin);
            if (!answer.ok) return pinProblem(answer);
            old = pin;
            pad.ask(t('pin.choose'), 'pin-new');
            return undefined;
          }
          if (chosen === undefined) {
            chosen = pin;
            pad.ask(t('pin.repeat'), 'pin-repeat');
            return undefined;
          }
          if (pin !== chosen) {
            chosen = undefined;
            pad.ask(t('pin.choose'), 'pin-new');
            return t('pin.differ');
          }
          const answer = await setPin(pin, old);
          if (!answer.ok) return pinProblem(answer);
          toast(t('pin.saved'));
          close(pin);
          return undefined;
        },
      });
      return [h('p', {class: 'dim'}, reason ?? t('pin.chooseMore')), pad];
    },
  }) ?? '';
}

/**
 * Asks for the PIN, which opens the protected commands; asks to choose one if none is set. Resolves
 * with whether it was right.
 */
export async function askPin({reason} = {}) {
  if (state() && !state().pin?.set) {
    if (!(await choosePin({reason: t('pin.none')}))) return false;
    if (state().pin?.set) return true;
  }
  return Boolean(await openDialog({
    title: t('pin.enter'),
    test: 'pin-dialog',
    body: (close) => {
      const pad = pinPad({
        label: t('pin.enter'),
        onEnter: async (pin) => {
          const answer = await checkPin(pin);
          if (!answer.ok) return pinProblem(answer);
          close(true);
          return undefined;
        },
      });
      return [reason && h('p', {class: 'dim'}, reason), pad];
    },
  }));
}

const toastMilliseconds = 4000;

/** A short message that goes by itself. */
export function toast(text, {kind = ''} = {}) {
  const box = document.getElementById('toasts');
  for (const other of [...box.children]) {
    if (other.textContent === text) other.remove();
  }
  const element = h('div', {class: `toast ${kind}`, 'data-test': 'toast'}, text);
  box.append(element);
  while (box.children.length > 3) box.firstChild.remove();
  setTimeout(() => element.remove(), toastMilliseconds);
}

/** Says why something did not work; silent when the viewer left the question for the PIN. */
export function tellError(error) {
  if (error.code === 'cancelled') return;
  if (!(error instanceof ApiError)) console.error(error);
  toast(textOr(`error.${error.code}`, error.message || t('error.failed')), {kind: 'bad'});
}
