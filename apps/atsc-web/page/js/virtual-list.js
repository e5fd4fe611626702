// A long list of which only what is in sight has elements. One stop of the focus: the arrow keys
// move the chosen item, Enter opens it.

import {drawSoon, h, setText} from './dom.js';
import {moveFocus} from './focus.js';

const kBeside = 4;
let nextId = 0;

export class VirtualList {
  /**
   * row(): a new {element, show(item, index)}; keyOf(item): what stays the same when an item is
   * read anew; onOpen(item), onSelect(item).
   */
  constructor({label, className, test, row, keyOf, onOpen, onSelect}) {
    Object.assign(this, {row_: row, keyOf_: keyOf, onOpen_: onOpen, onSelect_: onSelect,
      test_: test});
    this.items_ = [];
    this.rows_ = new Map();
    this.spare_ = [];
    this.index_ = 0;
    this.schedule_ = drawSoon(() => this.draw_());
    this.probe_ = h('div', {'class': 'virtual-probe', 'aria-hidden': 'true'});
    this.canvas_ = h('div', {class: 'virtual-canvas', role: 'presentation'});
    this.empty_ = h('p', {class: 'virtual-empty', role: 'status'});
    this.list_ = h('div', {
      'class': 'virtual-list', 'role': 'listbox', 'tabindex': '0', 'data-keys': 'own',
      'aria-label': label,
    }, this.canvas_);
    this.element = h('div', {class: `virtual-frame ${className}`}, this.probe_, this.list_,
        this.empty_);
    this.list_.addEventListener('scroll', () => this.schedule_(), {passive: true});
    this.list_.addEventListener('keydown', (event) => this.key_(event));
    this.list_.addEventListener('click', (event) => this.click_(event));
    this.observer_ = new ResizeObserver(() => this.measure_());
    this.observer_.observe(this.element);
  }

  close() {
    this.observer_.disconnect();
    this.schedule_.end();
  }

  /** Shows other items; the chosen one stays in its place. `empty`: said if there are none. */
  set(items, empty) {
    const held = this.items_[this.index_];
    const key = held === undefined ? undefined : this.keyOf_(held);
    const offset = this.index_ * (this.rowHeight_ ?? 0) - this.list_.scrollTop;
    this.items_ = items;
    setText(this.empty_, items.length ? '' : empty);
    this.list_.hidden = items.length === 0;
    const index = items.findIndex((item) => this.keyOf_(item) === key);
    this.index_ = Math.max(0, Math.min(index >= 0 ? index : this.index_, items.length - 1));
    this.stale_ = true;
    if (!this.rowHeight_) return;
    this.resize_();
    if (index >= 0) this.list_.scrollTop = index * this.rowHeight_ - offset;
    this.schedule_();
  }

  /** The chosen item; undefined in an empty list. */
  chosen() {
    return this.items_[this.index_];
  }

  choose(index) {
    this.index_ = Math.max(0, Math.min(this.items_.length - 1, index));
    this.reveal_();
    this.schedule_();
    this.onSelect_?.(this.chosen());
  }

  focus() {
    this.list_.focus({preventScroll: true});
  }

  reveal_() {
    if (!this.rowHeight_) return;
    const top = this.index_ * this.rowHeight_;
    const {scrollTop} = this.list_;
    if (top < scrollTop) this.list_.scrollTop = top;
    else if (top > scrollTop + this.height_ - this.rowHeight_) {
      this.list_.scrollTop = top - this.height_ + this.rowHeight_;
    }
  }

  measure_() {
    const rowHeight = this.probe_.offsetHeight;
    if (!rowHeight) return;
    this.height_ = this.element.clientHeight;
    const first = !this.rowHeight_;
    const top = first ? 0 : this.list_.scrollTop / this.rowHeight_;
    this.rowHeight_ = rowHeight;
    this.resize_();
    if (first) this.reveal_();
    else this.list_.scrollTop = top * rowHeight;
    this.stale_ = true;
    this.schedule_();
  }

  resize_() {
    this.canvas_.style.height = `${this.items_.length * this.rowHeight_}px`;
  }

  draw_() {
    if (!this.rowHeight_) return;
    const {scrollTop} = this.list_;
    const first = Math.max(0, Math.floor(scrollTop / this.rowHeight_) - kBeside);
    const last = Math.min(this.items_.length - 1,
        Math.ceil((scrollTop + this.height_) / this.rowHeight_) + kBeside);
    for (const [index, row] of this.rows_) {
      if (index >= first && index <= last) continue;
      this.rows_.delete(index);
      this.spare_.push(row);
    }
    for (let index = first; index <= last; ++index) {
      const before = this.rows_.get(index);
      if (before && !this.stale_) continue;
      const row = before ?? this.spare_.pop() ?? this.newRow_();
      this.rows_.set(index, row);
      row.index = index;
      row.element.hidden = false;
      row.element.style.top = `${index * this.rowHeight_}px`;
      row.element.setAttribute('aria-posinset', index + 1);
      row.element.setAttribute('aria-setsize', this.items_.length);
      row.show(this.items_[index], index);
    }
    for (const row of this.spare_) row.element.hidden = true;
    this.stale_ = false;
    for (const row of this.rows_.values()) {
      row.element.setAttribute('aria-selected', String(row.index === this.index_));
    }
    const chosen = this.rows_.get(this.index_);
    if (chosen) this.list_.setAttribute('aria-activedescendant', chosen.element.id);
    else this.list_.removeAttribute('aria-activedescendant');
  }

  newRow_() {
    const row = this.row_();
    row.element.id = `virtual-${++nextId}`;
    row.element.setAttribute('role', 'option');
    row.element.classList.add('virtual-row');
    if (this.test_) row.element.dataset.test = this.test_;
    this.canvas_.append(row.element);
    return row;
  }

  click_(event) {
    const element = event.target.closest('.virtual-row');
    const row = [...this.rows_.values()].find((entry) => entry.element === element);
    if (!row) return;
    this.choose(row.index);
    this.onOpen_(this.chosen(), event);
  }

  key_(event) {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    const page = Math.max(1, Math.floor((this.height_ ?? 0) / (this.rowHeight_ || 1)) - 1);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page,
      Home: -this.items_.length, End: this.items_.length};
    if (event.key === 'ArrowUp' && this.index_ === 0) moveFocus('ArrowUp');
    else if (event.key in steps) this.choose(this.index_ + steps[event.key]);
    else if (event.key === 'ArrowLeft' || event.key === 'ArrowRight') moveFocus(event.key);
    else if (event.key === 'Enter' || event.key === ' ') {
      if (this.chosen() !== undefined) this.onOpen_(this.chosen(), event);
    } else return;
    event.preventDefault();
    event.stopPropagation();
  }
}
