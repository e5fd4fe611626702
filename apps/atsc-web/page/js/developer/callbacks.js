// The callbacks as they come, each with what it is and asks for.

import {airString, airText, drawSoon, fill, h, setText, show} from '../dom.js';
import {tellError, toast} from '../dialog.js';
import {t} from '../texts.js';
import {copyText, prettyJson} from './json.js';
import {clearLog, kept, logEntries, onLog, startLog} from './log.js';
import {callbacks, keyList, prose} from './reference.js';

const shownRows = 300;  // more can't be read, and a scan sends several a second

function kindOf(entry) {
  return entry.message?.cbtype ?? '';
}

function textOf(entry) {
  return entry.message ? JSON.stringify(entry.message) : entry.text ?? '';
}

// When it came by the clock of this computer: the receiver's may be set meanwhile.
function timeOf(at) {
  const date = new Date(at);
  const two = (n) => String(n).padStart(2, '0');
  return `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}.` +
      String(date.getMilliseconds()).padStart(3, '0');
}

// The keys in one line, those of the table first: "msg “PROGRESS” · progress 12 · …".
function summary(message, keys) {
  const names = Object.keys(message ?? {}).filter((name) => name !== 'class' && name !== 'cbtype');
  const place = (name) => keys.findIndex((key) => key.name === name) >>> 0;
  return names.sort((a, b) => place(a) - place(b)).map((name) => {
    const value = message[name];
    return `${name} ${typeof value === 'string' ? `“${value}”` : JSON.stringify(value)}`;
  }).join(' · ');
}

// A text to compare: as it is written does not matter, neither the case nor blanks around marks.
function squeezed(text) {
  return text.toLowerCase().replace(/[“”]/g, '"').replace(/\s*([{}[\]":,·])\s*/g, '$1').trim();
}

export function mountCallbacks(container) {
  let known = new Map();   // kind -> row of the table
  let paused = null;       // the entries that stay shown, or null
  let chosen = null;       // the entry that is explained
  const rows = new Map();  // entry -> element
  const offered = new Set();  // kinds to choose from

  const kind = h('select', {class: 'field', 'aria-label': t('developer.kind'),
    'data-test': 'callback-kind', onchange: () => draw()},
  h('option', {value: ''}, t('developer.allKinds')));
  const filter = h('input', {class: 'field dev-filter', type: 'search', spellcheck: 'false',
    placeholder: t('developer.filter'), 'aria-label': t('developer.filter'),
    'data-test': 'callback-filter', oninput: () => draw()});
  const pause = h('button', {type: 'button', class: 'button', 'data-test': 'callback-pause',
    'aria-pressed': 'false', onclick: () => {
      paused = paused ? null : [...logEntries()];
      draw();
    }}, t('developer.pause'));
  const copy = h('button', {type: 'button', class: 'button', 'data-test': 'callback-copy',
    onclick: async () => {
      const list = wanted();
      const text = list.map((entry) =>
        (entry.gone ? '' : `${new Date(entry.at).toISOString()} ${textOf(entry)}\n`)).join('');
      const done = await copyText(text);
      toast(t(done ? 'developer.copied' : 'error.failed', {n: list.length}));
    }}, t('developer.copy'));
  const clear = h('button', {type: 'button', class: 'button', onclick: () => {
    paused = null;
    chosen = null;
    clearLog();
    explain();
  }}, t('developer.clear'));
  const since = h('p', {class: 'dim dev-since', 'data-test': 'callback-since'});
  const list = h('div', {class: 'dev-log', role: 'list', 'aria-label': t('developer.callbacks')});
  const empty = h('p', {class: 'dim dev-empty'}, t('developer.noCallbacks'));
  const detail = h('aside', {class: 'panel dev-detail', 'aria-live': 'polite',
    'aria-label': t('developer.whatIsThis')});

  function wanted() {
    const text = squeezed(filter.value);
    return (paused ?? logEntries()).filter((entry) => entry.gone ||
        ((kind.value === '' || kindOf(entry) === kind.value) &&
         (text === '' || searched(entry).includes(text))));
  }

  // What the row shows, and what came.
  function searched(entry) {
    return squeezed(`${timeOf(entry.at)} ${kindOf(entry)} ${shownKeys(entry)}\n${textOf(entry)}`);
  }

  function shownKeys(entry) {
    return summary(entry.message, known.get(kindOf(entry))?.keys ?? []) || entry.text || '';
  }

  function row(entry) {
    if (rows.has(entry)) return rows.get(entry);
    const element = entry.gone ?
      h('div', {class: 'dev-gone', role: 'listitem', 'data-test': 'callback-gone'},
          t(entry.restart ? 'developer.restarted' : 'developer.gone')) :
      h('div', {role: 'listitem'}, h('button', {
        type: 'button', class: 'dev-row', 'data-test': 'callback-row', 'data-kind': kindOf(entry),
        onclick: () => choose(entry), onfocus: () => choose(entry),
      },
      h('span', {class: 'dev-time'}, timeOf(entry.at)),
      h('span', {class: 'dev-kind'}, airText(kindOf(entry) || t('developer.noJson'))),
      airText(shownKeys(entry), {class: 'dev-summary'})));
    rows.set(entry, element);
    return element;
  }

  function choose(entry) {
    if (chosen === entry) return;
    rows.get(chosen)?.firstChild?.classList?.remove('chosen');
    chosen = entry;
    rows.get(entry)?.firstChild?.classList?.add('chosen');
    explain();
  }

  // Without a chosen callback: all kinds, so that a newcomer learns what may come.
  function explain() {
    if (!chosen) {
      fill(detail, h('h2', {}, t('developer.whatIsThis')),
          h('p', {}, prose(t('developer.callbacksMore'))),
          h('p', {class: 'dim'}, t('developer.callbacksChoose')),
          [...known.values()].map((each) => h('details', {class: 'dev-kind-about'},
              h('summary', {}, h('code', {}, each.kind),
                  each.pc !== 'yes' && h('span', {class: 'badge'}, t(`developer.pc.${each.pc}`))),
              about(each))));
      return;
    }
    const each = known.get(kindOf(chosen));
    const value = (name) => (name in (chosen.message ?? {}) ?
      [h('span', {class: 'dev-value'}, airText(JSON.stringify(chosen.message[name]))), ' '] : null);
    fill(detail,
        h('div', {class: 'dev-detail-head'},
            h('h2', {}, airText(kindOf(chosen) || t('developer.noJson'))),
            h('button', {type: 'button', class: 'button', onclick: () => {
              const element = rows.get(chosen)?.firstChild;
              element?.classList.remove('chosen');
              chosen = null;
              explain();
            }}, t('developer.allAbout'))),
        each ? about(each, value) : h('p', {}, t('developer.unknownKind')),
        h('h3', {}, t('developer.received', {time: timeOf(chosen.at), id: chosen.id})),
        chosen.message ? prettyJson(chosen.message, {'aria-label': t('developer.message')}) :
          h('pre', {class: 'json', tabindex: '0'}, airText(chosen.text ?? '')));
  }

  function about(each, value = null) {
    return [
      h('p', {}, prose(each.about)),
      each.do !== '' && h('p', {class: 'dev-do'}, h('strong', {}, t('developer.do')), ' ',
          prose(each.do)),
      each.keys.length > 0 && keyList(each.keys, value),
    ];
  }

  function draw() {
    const all = wanted();
    const visible = all.slice(-shownRows).reverse();  // the newest first
    const stay = new Set(visible);
    for (const [entry, element] of rows) {
      if (stay.has(entry)) continue;
      element.remove();
      rows.delete(entry);
    }
    // Rows that stay are not touched: the focus and a reader's place remain.
    let at = list.firstChild;
    for (const entry of visible) {
      const element = row(entry);
      if (element === at) at = at.nextSibling;
      else list.insertBefore(element, at);
    }
    for (const entry of logEntries()) {
      addKind(kindOf(entry));
    }
    const callbackCount = all.filter((entry) => !entry.gone).length;
    const oldest = logEntries().find((entry) => !entry.gone);
    show(empty, callbackCount === 0);
    setText(pause, t(paused ? 'developer.goOn' : 'developer.pause'));
    pause.setAttribute('aria-pressed', String(paused !== null));
    const before = new Set(paused);
    const waiting = paused ? logEntries().filter((entry) => !before.has(entry)).length : 0;
    setText(since, [
      oldest ? t('developer.since', {n: callbackCount, time: timeOf(oldest.at), kept}) : '',
      callbackCount > shownRows ? t('developer.newest', {n: shownRows}) : '',
      paused ? t('developer.waiting', {n: waiting}) : '',
    ].filter((part) => part !== '').join(' · '));
  }

  function addKind(name) {
    if (name === '' || offered.has(name)) return;
    offered.add(name);
    kind.append(h('option', {value: name}, airString(name)));
  }

  container.append(
      h('div', {class: 'dev-bar'}, kind, filter, pause, copy, clear), since,
      h('div', {class: 'dev-split'}, h('div', {class: 'dev-log-box'}, empty, list), detail));
  startLog();
  explain();
  callbacks().then((table) => {
    known = new Map(table.map((each) => [each.kind, each]));
    for (const {kind: name, pc} of table) {
      if (pc !== 'never') addKind(name);
    }
    rows.clear();
    fill(list);
    draw();
    explain();
  }, tellError);
  const soon = drawSoon(draw);
  const end = onLog(soon);
  draw();
  return () => {
    end();
    soon.end();
  };
}
