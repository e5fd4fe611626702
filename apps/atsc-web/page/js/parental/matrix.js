// The matrix of a rating region: a row for each dimension, a cell for each of its values.

import {airString, airText, h, icon, setText} from '../dom.js';
import {t} from '../texts.js';
import {affected, isBlocked, isKept} from './limits.js';

/**
 * Draws a rating table. onToggle(dimension, value, blocked) is called for a chosen cell, with
 * whether it is blocked now. The element has update({limits, groups, playing}), which only changes
 * what differs, so that the focus stays, and preview(wanted), which marks the cells that would
 * change: a function (dimension, value) => true, false or undefined, or null for none.
 */
export function ratingMatrix(table, {onToggle}) {
  const cells = [];  // {dimension, value, element}
  let now = {limits: {}, groups: [], playing: []};

  const hint = h('p', {class: 'pc-hint', 'aria-live': 'polite', 'data-test': 'matrix-hint'});

  function blockedNow({dimension, value}) {
    if (value.group !== null) return now.groups[value.group] === true;
    return value.limit && isBlocked(now.limits, table.number, dimension.number, value.number);
  }

  function preview(wanted) {
    for (const cell of cells) {
      const next = wanted?.(cell.dimension, cell.value);
      const changes = next !== undefined && next !== blockedNow(cell);
      cell.element.classList.toggle('will-block', changes && next);
      cell.element.classList.toggle('will-allow', changes && !next);
    }
  }

  // Says what choosing the cell does, before it is done; with the full text of the value.
  function explain(cell) {
    const {dimension, value} = cell;
    const text = value.text !== '' && value.text !== value.name ?
      `${airString(value.name)}: ${airString(value.text)}. ` : '';
    const say = (key, values) => setText(hint, text + t(key, values));
    const block = !blockedNow(cell);
    if (value.group !== null) {
      say(block ? 'parental.hintGroupBlock' : 'parental.hintGroupAllow',
          {value: airString(value.name)});
      preview((other, each) => (each === value ? block : undefined));
      return;
    }
    if (!block && isKept(now.limits, table.number, dimension.number)) {
      say('parental.hintKept', {value: airString(value.name)});
      return;
    }
    const changes = affected(table.number, dimension, value, block);
    preview((other, each) => (each.limit && changes(other, each.number) ? block : undefined));
    const names = cells.filter((each) => each.value.limit && each.dimension === dimension &&
        changes(dimension, each.value.number)).map((each) => airString(each.value.name));
    const key = names.length < 2 ? '' : 's';
    say((block ? 'parental.hintBlock' : 'parental.hintAllow') + key,
        {value: airString(value.name), names: names.join(', ')});
  }

  function leave() {
    preview(null);
    setText(hint, t('parental.hint'));
  }

  // `more`: the name of the dimension, where it does not stand beside the cell.
  function cellOf(dimension, value, more = '') {
    const content = [
      h('span', {class: 'pc-name'}, airText(value.name)),
      more !== '' && h('span', {class: 'pc-text'}, airText(more)),
    ];
    if (!value.limit && value.group === null) {
      return h('div', {class: 'pc-cell fixed'}, content,
          h('span', {class: 'pc-state'}, t('parental.never')));
    }
    const word = h('span', {});
    const playing = h('span', {class: 'visually-hidden'});
    const cell = {dimension, value, word, playing};
    cell.element = h('button', {
      type: 'button', class: 'pc-cell', 'data-test': 'rating-value',
      'data-dimension': dimension.number, 'data-value': value.number,
      onclick: () => {
        leave();
        onToggle(dimension, value, blockedNow(cell));
      },
      onfocus: () => explain(cell),
      onblur: leave,
      onpointerenter: () => explain(cell),
      onpointerleave: () => (document.activeElement?.closest?.('.pc-cell') ? null : leave()),
    }, content, h('span', {class: 'pc-state'}, icon('lock'), word),
    more === '' && h('span', {class: 'visually-hidden'}, `, ${airString(nameOf(dimension))}`),
    playing);
    cells.push(cell);
    return cell.element;
  }

  // The first value says that the dimension does not apply, unless it has a name.
  function shownValues(dimension) {
    return dimension.values.filter((value) =>
      value.name !== '' && (value.number > 0 || value.limit || value.group !== null));
  }

  function nameOf(dimension) {
    return dimension.name || t('parental.dimension', {n: dimension.number + 1});
  }

  function rowOf(name, kind, content, ordered = false) {
    return h('div', {class: `pc-row ${ordered ? 'ordered' : ''}`, role: 'group',
      'aria-label': airString(name)},
    h('div', {class: 'pc-dimension'}, airText(name), h('span', {class: 'pc-kind'}, t(kind))),
    h('div', {class: 'pc-values'}, content));
  }

  // Kinds of content with a single value, such as violence, share a row.
  const rows = [];
  const flags = table.dimensions.filter((dimension) => shownValues(dimension).length === 1);
  for (const dimension of table.dimensions) {
    if (dimension === flags[0]) {
      rows.push(rowOf(t('parental.contents'), 'parental.contentsMore', flags.map((each) =>
        cellOf(each, shownValues(each)[0], nameOf(each)))));
    }
    const values = shownValues(dimension);
    if (values.length < 2) continue;
    rows.push(rowOf(nameOf(dimension), dimension.ordered ? 'parental.levels' : 'parental.content',
        values.map((value) => cellOf(dimension, value)), dimension.ordered));
  }

  const element = h('div', {class: 'pc-matrix', 'data-test': 'rating-matrix'}, hint, rows,
      rows.length === 0 && h('p', {class: 'dim'}, t('parental.noTable')));
  leave();

  function update(next) {
    now = {...now, ...next};
    for (const cell of cells) {
      const {dimension, value} = cell;
      const blocked = blockedNow(cell);
      const kept = blocked && isKept(now.limits, table.number, dimension.number);
      const playing = now.playing.some((each) => each.value === value);
      cell.element.setAttribute('aria-pressed', String(blocked));
      cell.element.classList.toggle('blocked', blocked);
      cell.element.classList.toggle('kept', kept);
      cell.element.classList.toggle('playing', playing);
      setText(cell.word, t(blocked ? 'parental.blocked' : 'parental.allowed'));
      setText(cell.playing, playing ? t('parental.cellPlaying') : '');
    }
  }

  element.update = update;
  element.preview = preview;
  return element;
}
