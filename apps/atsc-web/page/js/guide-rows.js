// One row of the guide's grid: a channel and its programmes. The elements are used again for the
// next channel that comes into sight.

import {flags} from './channels.js';
import {airText, h, icon, setAirText} from './dom.js';
import {genreHue} from './genres.js';
import {t} from './texts.js';
import {spanText} from './time.js';

let nextId = 0;
const cellOf = new WeakMap();

/** The drawn {index, start, end, programme, pending} at an element; undefined without one. */
export function drawnCell(element) {
  const cell = element.closest('.guide-cell');
  return cell ? cellOf.get(cell) : undefined;
}

/** A programme, a gap or something that is still to come. */
class Cell {
  constructor() {
    this.title_ = airText('');
    this.times_ = h('span', {class: 'guide-times'});
    this.marks_ = h('span', {class: 'guide-marks'});
    this.text_ = h('div', {class: 'guide-text'},
        h('div', {class: 'guide-title'}, this.title_),
        h('div', {class: 'guide-sub'}, this.times_, this.marks_));
    this.element = h('div', {
      'class': 'guide-cell', 'role': 'gridcell', 'id': `guide-cell-${++nextId}`,
      'data-test': 'guide-cell',
    }, this.text_);
    this.className_ = 'guide-cell';
    this.shown_ = null;
    this.shift_ = 0;
    this.blocked_ = false;
  }

  /** Places and fills the cell; only what differs from before is touched. */
  show(index, cell, grid) {
    this.start = cell.start;
    this.end = cell.end;
    cellOf.set(this.element, {...cell, index});
    const left = Math.round(grid.x(cell.start));
    const width = Math.round(grid.x(cell.end)) - left;
    if (left !== this.left_ || width !== this.width_) {
      this.left_ = left;
      this.width_ = width;
      this.element.style.left = `${left}px`;
      this.element.style.width = `${Math.max(3, width - grid.gap)}px`;
    }
    if (this.shown_ !== cell && !(cell.pending && this.shown_?.pending)) this.fill_(cell);
    this.classes_(cell, grid);
  }

  fill_(cell) {
    this.shown_ = cell;
    const {programme, pending} = cell;
    if (programme) {
      setAirText(this.title_, programme.title || t('guide.noTitle'));
      this.times_.textContent = spanText(cell.start, cell.end - cell.start);
    } else {
      setAirText(this.title_, pending ? '' : t('guide.nothing'));
      this.times_.textContent = '';
    }
    this.marks_.textContent = '';
    this.block_(Boolean(programme?.blocked));
    if (!programme) return;
    if (programme.blocked) {
      this.marks_.append(h('span', {class: 'guide-mark blocked'}, t('guide.blocked')));
    }
    if (programme.rating) {
      this.marks_.append(airText(programme.rating, {class: 'guide-mark'}));
    }
    if (programme.cc) this.marks_.append(h('span', {class: 'guide-mark'}, t('guide.cc')));
  }

  block_(blocked) {
    if (blocked === this.blocked_) return;
    this.blocked_ = blocked;
    if (blocked) {
      this.element.dataset.blocked = 'true';
      this.title_.before(icon('lock'));
    } else {
      delete this.element.dataset.blocked;
      this.title_.previousSibling?.remove();
    }
  }

  classes_({start, end, programme, pending}, grid) {
    let name = 'guide-cell';
    if (pending) name += ' pending';
    else if (!programme) name += ' gap';
    else {
      name += ` ${genreHue(programme.genres ?? [])}`;
      if (programme.blocked) name += ' blocked';
      if (grid.genre && !programme.genres?.includes(grid.genre)) name += ' other';
    }
    if (end <= grid.time) name += ' past';
    else if (start <= grid.time) name += ' current';
    if (end - start < 900) name += ' short';
    this.current = start <= grid.time && grid.time < end;
    if (this.current) this.now(grid);
    if (name !== this.className_) {
      this.className_ = name;
      this.element.className = name + (this.focused ? ' focused' : '');
    }
  }

  /** Puts the line of the time where it is now. */
  now(grid) {
    this.element.style.setProperty('--now', `${Math.round(grid.x(grid.time)) - this.left_}px`);
  }

  focus(focused) {
    if (focused === Boolean(this.focused)) return;
    this.focused = focused;
    this.element.classList.toggle('focused', focused);
    if (focused) this.element.setAttribute('aria-selected', 'true');
    else this.element.removeAttribute('aria-selected');
  }

  /** Keeps the text of a programme that began left of the window in sight. */
  shift(by) {
    if (by === this.shift_) return;
    this.shift_ = by;
    this.text_.style.transform = by ? `translateX(${by}px)` : '';
    this.text_.style.width = by ? `calc(100% - ${by}px)` : '';
  }
}

/** A row of the grid. */
export class Row {
  constructor() {
    this.number_ = h('span', {class: 'guide-number'});
    this.name_ = airText('', {class: 'guide-name'});
    this.marks_ = h('span', {class: 'guide-channel-marks'});
    this.head = h('div', {
      'class': 'guide-channel', 'role': 'rowheader', 'id': `guide-head-${++nextId}`,
      'data-test': 'guide-row',
    }, this.number_, this.name_, this.marks_);
    this.element = h('div', {class: 'guide-row', role: 'row'}, this.head);
    this.cells_ = new Map();
    this.spare_ = [];
    this.channel_ = null;
  }

  /** Draws the row; `window` is {from, to}. */
  show(index, channel, window, grid) {
    if (index !== this.index) {
      this.index = index;
      this.element.style.top = `${index * grid.rowHeight}px`;
      this.element.setAttribute('aria-rowindex', index + 1);
    } else if (this.rowHeight_ !== grid.rowHeight) {
      this.element.style.top = `${index * grid.rowHeight}px`;
    }
    this.rowHeight_ = grid.rowHeight;
    this.show_(channel, grid);
    const cells = grid.data.cells(channel.row, window.from, window.to);
    const before = this.cells_;
    const drawn = new Map();
    const missing = [];
    for (const cell of cells) {
      const old = before.get(cell.start);
      if (old) {
        before.delete(cell.start);
        drawn.set(cell.start, old);
        old.show(index, cell, grid);
      } else {
        missing.push(cell);
      }
    }
    for (const old of before.values()) this.spare_.push(old);
    for (const cell of missing) {
      let fresh = this.spare_.pop();
      if (!fresh) {
        fresh = new Cell();
        this.element.append(fresh.element);
      }
      drawn.set(cell.start, fresh);
      fresh.show(index, cell, grid);
    }
    for (const old of this.spare_.splice(0)) old.element.remove();
    this.cells_ = drawn;
  }

  show_(channel, grid) {
    const playing = channel.key === grid.playing;
    if (channel === this.channel_ && playing === this.playing_) return;
    this.channel_ = channel;
    this.playing_ = playing;
    this.number_.textContent = channel.number;
    setAirText(this.name_, channel.name);
    this.head.classList.toggle('playing', playing);
    this.marks_.textContent = '';
    if (playing) this.marks_.append(h('span', {class: 'visually-hidden'}, t('guide.playing')));
    if (channel.flags & flags.locked) {
      this.marks_.append(icon('lock'), h('span', {class: 'visually-hidden'}, t('guide.locked')));
    }
    if (channel.fav) {
      this.marks_.append(icon('star'), h('span', {class: 'visually-hidden'}, t('guide.favourite')));
    }
  }

  /** Moves the text of the cell at the left edge; `left` is the edge on the time axis in pixels. */
  edge(left, grid) {
    for (const cell of this.cells_.values()) {
      const hidden = left - grid.x(cell.start);
      const room = grid.x(cell.end) - grid.x(cell.start) - grid.leastText;
      cell.shift(hidden > 0 && room > 0 ? Math.min(hidden, room) : 0);
    }
  }

  /** The line of the time has moved. */
  now(grid) {
    for (const cell of this.cells_.values()) {
      if (cell.current) cell.now(grid);
    }
  }

  /** Marks the cell that contains the time; returns the id of its element, or of the channel's. */
  focus(time) {
    let id = this.head.id;
    for (const cell of this.cells_.values()) {
      const focused = time !== null && cell.start <= time && time < cell.end;
      if (focused) id = cell.element.id;
      cell.focus(focused);
    }
    return id;
  }
}
