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

  // Says what choosing the cell does, before it is done.
  function explain(cell) {
    const {dimension, value} = cell;
    const block = !blockedNow(cell);
    if (value.group !== null) {
      setText(hint, t(block ? 'parental.hintGroupBlock' : 'parental.hintGroupAllow',
          {value: airString(value.name)}));
      preview((other, each) => (each === value ? block : undefined));
      return;
    }
    if (!block && isKept(now.limits, table.number, dimension.number)) {
      setText(hint, t('parental.hintKept', {value: airString(value.name)}));
      return;
    }
    const changes = affected(table.number, dimension, value, block);
    preview((other, each) => (each.limit && changes(other, each.number) ? block : undefined));
    const names = cells.filter((each) => each.value.limit && each.dimension === dimension &&
        changes(dimension, each.value.number)).map((each) => airString(each.value.name));
    const key = names.length < 2 ? '' : 's';
    setText(hint, t((block ? 'parental.hintBlock' : 'parental.hintAllow') + key,
        {value: airString(value.name), names: names.join(', ')}));
  }

  function leave() {
    preview(null);
    setText(hint, t('parental.hint'));
  }

  function cellOf(dimension, value) {
    const choosable = value.limit || value.group !== null;
    const more = value.text !== value.name && value.text !== '';
    const content = [
      h('span', {class: 'pc-name'}, airText(value.name || t('parental.noValue'))),
      more && h('span', {class: 'pc-text'}, airText(value.text)),
    ];
    if (!choosable) {
      return h('div', {class: 'pc-cell fixed'}, content,
          h('span', {class: 'pc-state'}, t('parental.never')));
    }
    const state = h('span', {class: 'pc-state'});
    const cell = {dimension, value, state};
    cell.element = h('button', {
      type: 'button', class: 'pc-cell', 'data-test': 'rating-value',
      'data-dimension': dimension.number, 'data-value': value.number,
      onclick: () => onToggle(dimension, value, blockedNow(cell)),
      onfocus: () => explain(cell),
      onblur: leave,
      onpointerenter: () => explain(cell),
      onpointerleave: () => (document.activeElement?.closest?.('.pc-cell') ? null : leave()),
    }, content, state, icon('lock'));
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

  // Kinds of content with a single value stand side by side.
  const rows = [];
  let flags = null;
  for (const dimension of table.dimensions) {
    const values = shownValues(dimension);
    const name = nameOf(dimension);
    if (values.length === 1) {
      if (flags === null) rows.push(flags = h('div', {class: 'pc-flags'}));
      flags.append(h('div', {class: 'pc-flag', role: 'group', 'aria-label': airString(name)},
          h('div', {class: 'pc-dimension'}, airText(name)), cellOf(dimension, values[0])));
      continue;
    }
    flags = null;
    const kind = dimension.ordered ? 'parental.levels' : 'parental.content';
    rows.push(h('div', {class: `pc-row ${dimension.ordered ? 'ordered' : ''}`, role: 'group',
      'aria-label': airString(name)},
    h('div', {class: 'pc-dimension'}, airText(name), h('span', {class: 'pc-kind'}, t(kind))),
    h('div', {class: 'pc-values'}, values.map((value) => cellOf(dimension, value)))));
  }

  const element = h('div', {class: 'pc-matrix', 'data-test': 'rating-matrix'}, rows,
      rows.length === 0 && h('p', {class: 'dim'}, t('parental.noTable')), hint);
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
      setText(cell.state, t(blocked ? 'parental.blocked' : 'parental.allowed'));
      cell.element.setAttribute('aria-label', t('parental.cell', {
        value: airString(value.name),
        dimension: airString(nameOf(dimension)),
        playing: playing ? t('parental.cellPlaying') : '',
      }));
    }
    const active = cells.find(({element: each}) => each === document.activeElement);
    if (active) explain(active);
  }

  element.update = update;
  element.preview = preview;
  return element;
}
