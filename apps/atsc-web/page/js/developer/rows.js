// The rows of both databases, as the service wrote them.

import {get} from '../api.js';
import {airText, fill, h, setText} from '../dom.js';
import {tellError} from '../dialog.js';
import {onPart, state} from '../live.js';
import {t} from '../texts.js';
import {columns, prose} from './reference.js';

const pageSize = 50;
const longText = 120;
const tables = [
  ['channels', 'channel_data_t'], ['channels', 'channel_data_c'],
  ['guide', 'event_t'], ['guide', 'event_c'],
];

export function mountRows(container) {
  let [database, table] = tables[state()?.source === 'QAM' ? 1 : 0];
  let offset = 0;
  let total = 0;
  let meanings = {channels: [], guide: []};
  let turn = 0;

  const choose = tables.map(([file, name]) => h('button', {
    type: 'button', class: 'tab', 'data-test': 'rows-table', 'data-table': name,
    onclick: () => {
      [database, table] = [file, name];
      offset = 0;
      read();
    },
  }, h('code', {}, name)));
  const what = h('p', {class: 'dim dev-intro'});
  const place = h('span', {class: 'dev-place', role: 'status', 'data-test': 'rows-place'});
  const end = () => Math.floor(Math.max(0, total - 1) / pageSize) * pageSize;
  const move = (text, to, test) => h('button', {type: 'button', class: 'button', 'data-test': test,
    onclick: () => {
      offset = Math.max(0, Math.min(to(), end()));
      read();
    }}, text);
  const back = [move(t('developer.first'), () => 0, 'rows-first'),
    move(t('developer.previous'), () => offset - pageSize, 'rows-previous')];
  const on = [move(t('developer.next'), () => offset + pageSize, 'rows-next'),
    move(t('developer.last'), () => total - 1, 'rows-last')];
  const box = h('div', {class: 'dev-rows', tabindex: '0', role: 'region',
    'aria-label': t('developer.rows'), 'data-test': 'rows'});
  const about = h('details', {class: 'panel dev-columns'});

  function cellOf(value) {
    if (value === null) return h('td', {class: 'dim'}, 'NULL');
    const text = String(value);
    const cut = text.length > longText;
    return h('td', {class: typeof value === 'number' ? 'number' : ''},
        airText(cut ? `${text.slice(0, longText)}…` : text));
  }

  function draw(answer) {
    const found = new Map(meanings[database].map((each) => [each.name, each]));
    fill(box, h('table', {class: 'table'},
        h('thead', {}, h('tr', {}, answer.columns.map((name) => h('th', {
          scope: 'col', title: found.get(name)?.about.replace(/`/g, '') ?? t('developer.ownColumn'),
        }, airText(name), h('span', {class: 'dev-type'}, found.get(name)?.type ?? ''))))),
        h('tbody', {}, answer.rows.map((row) => h('tr', {'data-test': 'rows-row'},
            row.map(cellOf))))));
    fill(about, h('summary', {}, t('developer.columns', {table})),
        h('dl', {class: 'dev-keys'}, answer.columns.map((name) => [
          h('dt', {}, h('code', {}, airText(name)), ' ',
              h('span', {class: 'dim'}, found.get(name)?.type ?? '')),
          h('dd', {}, prose(found.get(name)?.about ?? t('developer.ownColumn'))),
        ])));
  }

  // They keep the focus, so they are not disabled.
  function markMoves() {
    for (const button of back) button.setAttribute('aria-disabled', String(offset <= 0));
    for (const button of on) button.setAttribute('aria-disabled', String(offset >= end()));
  }

  async function read() {
    const mine = ++turn;
    choose.forEach((button) =>
      button.setAttribute('aria-pressed', String(button.dataset.table === table)));
    setText(what, t(`developer.table.${table}`));
    try {
      meanings = await columns();
      const answer = await get('/api/rows', {db: database, table, offset, count: pageSize});
      if (mine !== turn) return;
      total = answer.total;
      markMoves();
      setText(place, total === 0 ? t('developer.noRows') :
        t('developer.place', {from: offset + 1, to: offset + answer.rows.length, total}));
      draw(answer);
    } catch (error) {
      if (mine !== turn) return;
      total = 0;
      markMoves();
      setText(place, '');
      if (error.status >= 400 && error.status < 500) fill(box, h('p', {class: 'dim'},
          t('developer.noTable')));
      else tellError(error);
    }
  }

  container.append(
      h('div', {class: 'dev-bar', role: 'group', 'aria-label': t('developer.tables')}, choose),
      h('div', {class: 'dev-bar'}, what,
          back, place, on),
      box, about);
  // What a rewrite has changed is shown at once.
  return onPart((current) => [current.epoch, current.versions], () => read());
}
