// The question for the token, when the program listens for more than this machine.

import {h, icon, setText} from './dom.js';
import {t} from './texts.js';
import {applyTheme} from './theme.js';

applyTheme();

const token = h('input', {class: 'field', type: 'password', name: 'token', required: true,
  autocomplete: 'current-password', autocapitalize: 'off', spellcheck: 'false'});
const message = h('p', {class: 'login-message', role: 'alert'});

async function submit(event) {
  event.preventDefault();
  setText(message, '');
  try {
    const answer = await fetch('/login', {
      method: 'POST',
      headers: {'Content-Type': 'application/json'},
      body: JSON.stringify({token: token.value}),
    });
    if (answer.ok) {
      location.reload();
      return;
    }
    setText(message, t(answer.status === 403 ? 'login.wrong' : 'login.failed'));
    token.select();
  } catch {
    setText(message, t('error.lost'));
  }
}

document.getElementById('login').append(
    h('form', {class: 'login', onsubmit: submit}, icon('screen'), h('h1', {}, t('app.title')),
        h('p', {class: 'dim'}, t('login.more')), h('label', {}, t('login.token'), token), message,
        h('button', {class: 'button big primary'}, t('login.open'))));
token.focus();
