// The command console: every command of the library, its keys as fields, and what it answers.

import {post} from '../api.js';
import {airString, airText, fill, h, icon, setText, show} from '../dom.js';
import {tellError, toast} from '../dialog.js';
import {onPart} from '../live.js';
import {t, textOr} from '../texts.js';
import {copyText, prettyJson} from './json.js';
import {commands, keyList, prose} from './reference.js';
import {commandFields} from './fields.js';

const keptHistory = 50;
const history = [];  // {text, result, ms, at}, the newest first; for all visits in this page

// The object of a text, or null. The service ignores what follows it.
function parsed(text) {
  for (const part of [text, text.slice(0, text.lastIndexOf('}') + 1)]) {
    try {
      const value = JSON.parse(part);
      return value !== null && typeof value === 'object' && !Array.isArray(value) ? value : null;
    } catch {
      // The next.
    }
  }
  return null;
}

// Why a text is no command, or ''. {class, command} may come from a text that is no JSON yet.
function fault(text, table) {
  if (text === '') return t('developer.rawEmpty');
  const message = parsed(text);
  if (message === null) {
    try {
      JSON.parse(text);
      return t('developer.rawNoObject');
    } catch (error) {
      return t('developer.rawBad', {error: error.message});
    }
  }
  const of = table.filter((each) => each.class === message.class);
  const name = (value) => airString(value === undefined ? '' : String(value));
  if (of.length === 0) {
    return t('developer.rawNoClass', {name: name(message.class),
      names: [...new Set(table.map((each) => each.class))].join(', ')});
  }
  if (of.some((each) => each.command === message.command)) return '';
  return t('developer.rawNoCommand', {group: message.class, name: name(message.command)});
}

// The row of the command that a text names, also while its JSON is not complete.
function rowOf(text, table) {
  const named = (key) => new RegExp(`"${key}"\\s*:\\s*"([^"]*)"`).exec(text)?.[1];
  const message = parsed(text) ?? {class: named('class'), command: named('command')};
  return table.find((each) =>
    each.class === message.class && each.command === message.command) ?? null;
}

const texts = ['string', 'number', 'boolean'];
const accepted = {
  integer: ['number', 'boolean'], boolean: ['number', 'boolean'], string: texts,
  object: ['object'], array: ['array'],
};

// What the table says against the keys of a message, as texts.
function problems(row, message) {
  return row.keys.flatMap(({name, type, required}) => {
    const value = message[name];
    if (value === undefined) {
      return required ? [t('developer.problemMissing', {name})] : [];
    }
    const given = Array.isArray(value) ? 'array' : typeof value;
    if (value === null || accepted[type].includes(given)) return [];
    return [t('developer.problemType', {name, type: t(`developer.type.${type}`),
      given: t(`developer.type.${given === 'number' ? 'integer' : given}`)})];
  });
}

export function mountConsole(container) {
  let table = [];
  let chosen = null;  // row of the table
  let fields = null;
  let rawShown = false;
  let last = null;    // the last answer

  const disabled = h('p', {class: 'panel dev-notice', 'data-test': 'console-off', role: 'status'},
      icon('lock'), h('span', {}, t('developer.consoleOff')));
  const search = h('input', {class: 'field', type: 'search', spellcheck: 'false',
    placeholder: t('developer.find'), 'aria-label': t('developer.findCommand'),
    'data-test': 'console-search', oninput: () => drawList()});
  const list = h('div', {class: 'dev-commands', 'data-test': 'console-commands'});
  const about = h('div', {class: 'dev-about', 'aria-live': 'polite'});
  const form = h('div', {class: 'dev-fields'});
  const raw = h('textarea', {class: 'field dev-raw', rows: '3', spellcheck: 'false',
    'aria-label': t('developer.raw'), 'data-test': 'console-text', oninput: () => readRaw(),
    onkeydown: (event) => {
      if (event.key !== 'Enter' || !(event.ctrlKey || event.metaKey)) return;
      event.preventDefault();
      send();
    }});
  const rawNote = h('p', {class: 'dim dev-raw-note', role: 'status'});
  const sendButton = h('button', {type: 'button', class: 'button primary', 'data-test':
    'console-send', onclick: () => send()}, t('developer.send'));
  const answer = h('section', {class: 'panel dev-answer', 'data-test': 'console-reply',
    'aria-live': 'polite', 'aria-label': t('developer.answer')},
  h('p', {class: 'dim'}, t('developer.noAnswer')));
  const past = h('ol', {class: 'dev-history'});

  function drawList() {
    const wanted = search.value.trim().toLowerCase();
    const found = table.filter((each) => wanted === '' ||
        `${each.class} ${each.command}`.toLowerCase().includes(wanted) ||
        each.about.toLowerCase().includes(wanted) ||
        each.keys.some(({name}) => name.toLowerCase().includes(wanted)));
    const classes = [...new Set(found.map((each) => each.class))];
    fill(list, classes.map((name) => h('div', {class: 'dev-class', role: 'group',
      'aria-label': t('developer.class', {name})},
    h('h2', {}, h('code', {}, name), ' ',
        h('span', {class: 'dim'}, t(`developer.class.${name}`))),
    found.filter((each) => each.class === name).map((each) => h('button', {
      type: 'button', class: 'dev-command', 'data-test': 'console-command',
      'data-command': `${each.class} ${each.command}`,
      'aria-label': `${each.class} ${each.command}`,
      'aria-pressed': String(each === chosen),
      onclick: () => choose(each, {class: each.class, command: each.command}),
    }, each.command)))),
    found.length === 0 && h('p', {class: 'dim'}, t('developer.noCommand')));
  }

  function mark() {
    for (const button of list.querySelectorAll('.dev-command')) {
      const same = chosen !== null &&
          button.dataset.command === `${chosen.class} ${chosen.command}`;
      button.setAttribute('aria-pressed', String(same));
    }
  }

  // Shows a command with the keys of a message.
  function choose(row, message, {keepRaw = false} = {}) {
    if (chosen !== row) {
      chosen = row;
      mark();
      fill(about,
          h('h2', {}, h('code', {}, row.class), ' ', h('code', {}, row.command), ' ',
              row.who !== 'viewer' && h('span', {class: 'badge'}, t(`developer.who.${row.who}`))),
          h('p', {}, prose(row.about)),
          row.fails && h('p', {class: 'dim'}, h('strong', {}, t('developer.fails')), ' ',
              prose(row.fails)),
          row.reply.length > 0 && h('details', {class: 'dev-reply-keys'},
              h('summary', {}, t('developer.replyKeys', {n: row.reply.length})),
              keyList(row.reply)));
      fields = commandFields(row, (keys) =>
        write({class: row.class, command: row.command, ...keys}));
      fill(form, row.keys.length > 0 ? fields : h('p', {class: 'dim'}, t('developer.noKeys')));
    }
    fields.fill(message);
    if (!keepRaw) {
      // What must be there is there from the beginning.
      const keys = fields.keys();
      write({class: row.class, command: row.command, ...keys});
    }
  }

  function write(message) {
    // One line that may break between the keys.
    raw.value = JSON.stringify(message, null, 1).replace(/\n\s*/g, ' ');
    setText(rawNote, '');
    raw.classList.remove('bad');
  }

  function readRaw() {
    const message = parsed(raw.value);
    const wrong = fault(raw.value, table);
    const row = rowOf(raw.value, table);
    raw.classList.toggle('bad', message === null);
    fill(rawNote, wrong !== '' ? wrong : prose(problems(row, message).join(' ')));
    if (row === null) chooseNone();
    else if (message !== null) choose(row, message, {keepRaw: true});
    else if (row !== chosen) choose(row, {}, {keepRaw: true});
  }

  function chooseNone() {
    chosen = null;
    mark();
    fill(about, h('p', {class: 'dim'}, t('developer.rawNone')));
    fill(form);
  }

  function drawAnswer() {
    if (!last) return;
    const {result, text, reply, ms, sent, noCommand} = last;
    const row = table.find((each) => each.class === sent?.class && each.command === sent?.command);
    const wrong = row ? problems(row, sent) : [];
    const meaning = result === 0 ? (text !== null ? 'developer.ok' :
      row && row.reply.length > 0 && sent.op !== 'set' ? 'developer.okEmpty' :
        'developer.okSilent') :
      'developer.refused';
    const toggle = h('button', {type: 'button', class: 'button', 'aria-pressed': String(rawShown),
      'data-test': 'console-raw-reply', onclick: () => {
        rawShown = !rawShown;
        drawAnswer();
        answer.querySelector('[data-test="console-raw-reply"]')?.focus();
      }}, t('developer.rawReply'));
    fill(answer,
        h('div', {class: 'dev-result'},
            h('span', {class: `badge ${result === 0 ? 'good' : 'bad'}`,
              'data-test': 'console-result'}, t('developer.result', {result})),
            h('span', {class: 'dim'}, t('developer.took', {ms: ms < 10 ? ms.toFixed(2) :
              Math.round(ms)})),
            text !== null && toggle,
            text !== null && h('button', {type: 'button', class: 'button', onclick: async () => {
              const done = await copyText(text);
              toast(t(done ? 'developer.copiedReply' : 'error.failed'));
            }}, t('developer.copy'))),
        h('p', {}, t(meaning)),
        result !== 0 && noCommand !== '' && h('p', {class: 'dev-error'}, noCommand),
        result !== 0 && wrong.map((problem) => h('p', {class: 'dev-error'}, prose(problem))),
        result !== 0 && wrong.length === 0 && row?.fails && h('p', {}, prose(row.fails)),
        result !== 0 && noCommand === '' &&
          h('p', {class: 'dim'}, prose(t('developer.refusedMore'))),
        text === null ? null : reply === null || rawShown ?
          h('pre', {class: 'json', tabindex: '0', 'aria-label': t('developer.reply')},
              airText(text)) :
          prettyJson(reply, {'aria-label': t('developer.reply')}),
        text !== null && row?.reply.length > 0 && reply !== null && typeof reply === 'object' &&
          h('details', {}, h('summary', {}, t('developer.whatIsThis')), keyList(row.reply)));
  }

  function drawHistory() {
    show(past.parentElement, history.length > 0);
    fill(past, history.map((each) => h('li', {}, h('button', {
      type: 'button', class: 'dev-past', 'data-test': 'console-history',
      onclick: () => {
        raw.value = each.text;
        readRaw();
        raw.focus();
      },
    }, h('span', {class: `badge ${each.result === 0 ? 'good' : 'bad'}`}, String(each.result)),
    airText(each.text, {class: 'mono'})))));
  }

  async function send() {
    const text = raw.value;
    sendButton.disabled = true;
    try {
      const reply = await post('/api/console', text);
      last = {...reply, text: reply.text ?? null, sent: parsed(text),
        noCommand: fault(text, table)};
      history.unshift({text, result: reply.result});
      history.splice(keptHistory);
      drawHistory();
      drawAnswer();
    } catch (error) {
      fill(answer, h('p', {class: 'dev-error'},
          textOr(`error.${error.code}`, error.message || t('error.failed'))));
    }
    sendButton.disabled = false;
  }

  container.append(disabled,
      h('div', {class: 'dev-console'},
          h('div', {class: 'panel dev-side'}, search, list),
          h('div', {class: 'panel dev-request'}, about, form),
          h('div', {class: 'dev-main'},
              h('div', {class: 'panel dev-raw-box'}, h('h2', {}, t('developer.raw')), raw, rawNote,
                  h('div', {class: 'dev-send'}, sendButton,
                      h('span', {class: 'dim'}, t('developer.sendKey')))),
              answer,
              h('section', {class: 'panel dev-past-box'}, h('h2', {}, t('developer.history')),
                  past))));
  drawHistory();
  commands().then((read) => {
    table = read;
    drawList();
    const first = table.find((each) => each.class === 'SRV' && each.command === 'GETCUR');
    choose(first ?? table[0], {});
  }, tellError);
  return onPart((state) => state.console !== false, (allowed) => {
    show(disabled, !allowed);
    show(sendButton.parentElement, allowed);
  });
}
