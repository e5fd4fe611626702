// The grid of channels and time. Only what is in sight has elements; they are used again when
// something else comes into sight. The browser scrolls; this only fills.

import {drawSoon, h} from './dom.js';
import {moveFocus} from './focus.js';
import {drawnCell, Row} from './guide-rows.js';
import {t} from './texts.js';
import {clockText, dayText, startOfDay} from './time.js';

const kHalfHour = 1800;
/** Rows drawn above and below the window, and the share of its width drawn beside it. */
const kRowsBeside = 3;
const kWidthBeside = 0.3;
/** Rows fetched ahead in the direction of the scrolling, in windows. */
const kAhead = 3;

export class GuideGrid {
  /**
   * onOpen(channel, cell): a programme was chosen; onChannel(channel): a channel was chosen;
   * onFocus(channel, cell): another one has the focus; onWindow(from, to): other hours are shown.
   */
  constructor({onOpen, onChannel, onFocus, onWindow}) {
    Object.assign(this, {onOpen_: onOpen, onChannel_: onChannel, onFocus_: onFocus,
      onWindow_: onWindow});
    this.channels_ = [];
    this.rows_ = new Map();
    this.spare_ = [];
    this.ticks_ = new Map();
    this.data = null;
    this.genre = 0;
    this.playing = '';
    this.time = 0;
    this.origin_ = 0;
    this.end_ = 0;
    this.index_ = 0;
    this.focusTime_ = 0;
    this.schedule_ = drawSoon(() => this.draw_());
    this.size_ = null;

    this.corner_ = h('div', {class: 'guide-corner'});
    this.nowFlag_ = h('div', {class: 'guide-now-flag'}, clockText(0));
    this.head_ = h('div', {'class': 'guide-head', 'aria-hidden': 'true'},
        this.corner_, this.nowFlag_);
    this.nowLine_ = h('div', {'class': 'guide-now-line', 'data-test': 'guide-now-line',
      'role': 'presentation'});
    this.canvas_ = h('div', {class: 'guide-canvas', role: 'presentation'}, this.nowLine_);
    this.probe_ = h('div', {'class': 'guide-probe', 'aria-hidden': 'true'});
    this.scroller_ = h('div', {
      'class': 'guide-grid', 'role': 'grid', 'tabindex': '0', 'data-keys': 'own',
      'aria-label': t('guide.grid'), 'aria-readonly': 'true', 'data-test': 'guide',
    }, this.head_, this.canvas_);
    this.element = h('div', {class: 'guide-frame'}, this.probe_, this.scroller_);

    this.scroller_.addEventListener('scroll', () => this.schedule_(), {passive: true});
    this.scroller_.addEventListener('click', (event) => this.click_(event));
    this.scroller_.addEventListener('keydown', (event) => this.key_(event));
    this.scroller_.addEventListener('focus', () => this.schedule_());
    this.observer_ = new ResizeObserver(() => this.measure_());
    this.observer_.observe(this.element);
  }

  close() {
    this.observer_.disconnect();
    this.schedule_.end();
    clearTimeout(this.settled_);
  }

  /** Pixels from the left edge of the row to a time. */
  x(utc) {
    return this.columnWidth + (utc - this.origin_) * this.pixels_;
  }

  /** Programmes, channels and span of a source. Keeps the place if the channel is still there. */
  show({data, channels, from, to}) {
    const held = this.channels_[this.index_]?.key;
    const offset = this.index_ * (this.rowHeight ?? 0) - this.scroller_.scrollTop;
    this.data = data;
    this.channels_ = channels;
    this.scroller_.setAttribute('aria-rowcount', channels.length);
    const leftTime = this.left_();
    const moved = this.origin_ !== from;
    this.origin_ = from;
    this.end_ = to;
    const index = channels.findIndex((channel) => channel.key === held);
    this.index_ = Math.max(0, index >= 0 ? index : Math.min(this.index_, channels.length - 1));
    if (!this.size_) return;
    this.resize_();
    if (index >= 0) this.scroller_.scrollTop = index * this.rowHeight - offset;
    if (moved && leftTime) this.scrollToTime_(leftTime);
    this.redraw();
  }

  /** Draws everything anew: programmes, marks or the time have changed. */
  redraw() {
    this.stale_ = true;
    this.schedule_();
  }

  /** The receiver's clock goes on. */
  tick(utc) {
    const minute = Math.floor(utc / 60);
    this.time = utc;
    if (this.size_) this.placeNow_(utc);
    if (minute === this.minute_) return;
    this.minute_ = minute;
    // Who looks at now goes on with it.
    const half = Math.floor(utc / kHalfHour) * kHalfHour;
    if (this.half_ && half === this.half_ + kHalfHour && Math.abs(this.left_() - this.half_) < 60) {
      this.scrollToTime_(half);
      this.focusTime_ = Math.max(this.focusTime_, half);
    }
    this.half_ = half;
    this.redraw();
  }

  /** Goes to a time (and a channel, by its key); the focus goes there too. */
  jump(utc, key) {
    const index = key === undefined ? -1 : this.channels_.findIndex((entry) => entry.key === key);
    if (index >= 0) this.index_ = index;
    this.focusTime_ = Math.min(Math.max(utc, this.origin_), this.end_ - 1);
    if (!this.size_) {
      this.pending_ = [utc, key];
      return;
    }
    this.scrollToTime_(Math.floor(utc / kHalfHour) * kHalfHour);
    if (index >= 0) {
      const above = Math.floor((this.size_.height - this.headHeight_) / this.rowHeight / 3);
      this.scroller_.scrollTop = (index - above) * this.rowHeight;
    }
    this.redraw();
  }

  focus() {
    this.scroller_.focus({preventScroll: true});
  }

  /** The hours in sight: [from, to]. */
  hours() {
    if (!this.size_) return [this.time, this.time + 4 * kHalfHour];
    return [this.left_(), this.right_()];
  }

  left_() {
    return this.size_ ? this.origin_ + this.scroller_.scrollLeft / this.pixels_ : 0;
  }

  right_() {
    return this.left_() + (this.size_.width - this.columnWidth) / this.pixels_;
  }

  scrollToTime_(utc) {
    this.scroller_.scrollLeft = Math.round((utc - this.origin_) * this.pixels_);
  }

  /** Reads the sizes that the style sheet gives; the only place that does. */
  measure_() {
    const leftTime = this.left_();
    const topIndex = this.size_ ? this.scroller_.scrollTop / this.rowHeight : 0;
    const half = this.probe_.offsetWidth;
    const size = {width: this.scroller_.clientWidth, height: this.scroller_.clientHeight};
    if (!half || !size.width) return;
    const first = !this.size_;
    this.size_ = size;
    this.pixels_ = half / kHalfHour;
    this.rowHeight = this.probe_.offsetHeight;
    this.columnWidth = this.corner_.offsetWidth;
    this.headHeight_ = this.head_.offsetHeight;
    this.flagHalf_ = this.nowFlag_.offsetWidth / 2;
    this.gap = Math.max(2, Math.round(this.rowHeight / 22));
    this.leastText = half / 2;
    this.resize_();
    if (first && this.pending_) {
      this.jump(...this.pending_);
    } else if (!first) {
      this.scrollToTime_(leftTime);
      this.scroller_.scrollTop = topIndex * this.rowHeight;
    }
    this.redraw();
  }

  resize_() {
    const width = `${Math.round(this.x(this.end_))}px`;
    this.head_.style.width = width;
    this.canvas_.style.width = width;
    this.canvas_.style.height = `${this.channels_.length * this.rowHeight}px`;
    this.placeNow_(this.time);
  }

  placeNow_(utc) {
    const x = Math.round(this.x(utc));
    const edge = this.columnWidth + this.scroller_.scrollLeft;
    const seen = utc >= this.origin_ && utc < this.end_ && x >= edge;
    // At the edge the time stays readable; the line goes on.
    const flagX = Math.max(x, edge + this.flagHalf_);
    if (flagX !== this.flagX_) {
      this.flagX_ = flagX;
      this.nowFlag_.style.left = `${flagX}px`;
    }
    if (x !== this.nowX_) {
      this.nowX_ = x;
      this.nowLine_.style.left = `${x}px`;
      for (const row of this.rows_.values()) row.now(this);
    }
    if (seen !== this.nowSeen_) {
      this.nowSeen_ = seen;
      this.nowLine_.hidden = !seen;
      this.nowFlag_.classList.toggle('unseen', !seen);
    }
    const text = clockText(utc);
    if (text !== this.nowText_) {
      this.nowText_ = text;
      this.nowFlag_.textContent = text;
    }
  }

  draw_() {
    if (!this.size_ || !this.data) return;
    const {scrollTop, scrollLeft} = this.scroller_;
    const first = Math.max(0, Math.floor(scrollTop / this.rowHeight) - kRowsBeside);
    const last = Math.min(this.channels_.length - 1,
        Math.ceil((scrollTop + this.size_.height) / this.rowHeight) + kRowsBeside);
    const beside = (this.right_() - this.left_()) * kWidthBeside;
    const from = Math.max(this.origin_,
        Math.floor((this.left_() - beside) / kHalfHour) * kHalfHour);
    const to = Math.min(this.end_, Math.ceil((this.right_() + beside) / kHalfHour) * kHalfHour);
    const other = from !== this.from_ || to !== this.to_ || this.stale_;
    const window = {from, to};
    this.stale_ = false;
    for (const [index, row] of this.rows_) {
      if (index >= first && index <= last) continue;
      this.rows_.delete(index);
      this.spare_.push(row);
    }
    for (let index = first; index <= last; ++index) {
      const before = this.rows_.get(index);
      if (before && !other) continue;
      const row = before ?? this.spare_.pop() ?? this.newRow_();
      this.rows_.set(index, row);
      row.element.hidden = false;
      row.show(index, this.channels_[index], window, this);
      row.edge(this.columnWidth + scrollLeft, this);
    }
    for (const row of this.spare_) {
      if (!row.element.hidden) row.element.hidden = true;
    }
    if (scrollLeft !== this.edged_) {
      for (const row of this.rows_.values()) row.edge(this.columnWidth + scrollLeft, this);
    }
    if (other) this.drawTicks_(from, to);
    if (other || scrollLeft !== this.edged_) {
      const day = dayText(this.left_() + kHalfHour);
      if (day !== this.day_) this.corner_.textContent = this.day_ = day;
      this.placeNow_(this.time);
    }
    this.edged_ = scrollLeft;
    this.from_ = from;
    this.to_ = to;
    this.drawFocus_();
    this.fetch_(first, last, from, to);
    clearTimeout(this.settled_);
    this.settled_ = setTimeout(() => this.onWindow_(...this.hours()), 300);
  }

  newRow_() {
    const row = new Row();
    this.canvas_.append(row.element);
    return row;
  }

  drawTicks_(from, to) {
    for (const [utc, tick] of this.ticks_) {
      if (utc >= from && utc < to && this.tickPixels_ === this.pixels_) continue;
      tick.remove();
      this.ticks_.delete(utc);
    }
    this.tickPixels_ = this.pixels_;
    for (let utc = from; utc < to; utc += kHalfHour) {
      let tick = this.ticks_.get(utc);
      if (!tick) {
        tick = h('div', {class: 'guide-tick'});
        this.ticks_.set(utc, tick);
        this.head_.append(tick);
      }
      // A narrow field has room for one of both.
      const words = startOfDay(utc) === utc ? [dayText(utc), clockText(utc)] : [clockText(utc)];
      tick.textContent = words.slice(0, kHalfHour * this.pixels_ < 200 ? 1 : 2).join(' · ');
      tick.style.left = `${Math.round(this.x(utc))}px`;
    }
  }

  drawFocus_() {
    const row = this.rows_.get(this.index_);
    for (const other of this.rows_.values()) {
      if (other !== row) other.focus(null);
    }
    for (const other of this.spare_) other.focus(null);
    if (!row) {
      this.scroller_.removeAttribute('aria-activedescendant');
      return;
    }
    const id = row.focus(this.focusTime_);
    if (this.scroller_.getAttribute('aria-activedescendant') !== id) {
      this.scroller_.setAttribute('aria-activedescendant', id);
    }
    const cell = this.focused_();
    if (!cell || cell.pending) return;
    if (cell.programme === this.told_ && this.index_ === this.toldIndex_) return;
    this.told_ = cell.programme;
    this.toldIndex_ = this.index_;
    this.onFocus_(this.channels_[this.index_], cell);
  }

  /** Asks for what is in sight, then for what comes next in the direction of the scrolling. */
  fetch_(first, last, from, to) {
    const down = first >= (this.fetched_?.first ?? 0);
    const right = from >= (this.fetched_?.from ?? 0);
    this.fetched_ = {first, from};
    const count = last - first + 1;
    const rows = (begin, end) => this.channels_
        .slice(Math.max(0, begin), Math.max(0, end)).map((channel) => channel.row);
    const seen = rows(first, last + 1);
    const beside = (to - from) / 2;
    const ahead = down ? rows(last + 1, last + 1 + kAhead * count)
      : rows(first - kAhead * count, first).reverse();
    this.data.want([
      {rows: seen, from, to},
      {rows: ahead, from, to},
      right ? {rows: seen, from: to, to: Math.min(this.end_, to + beside)}
        : {rows: seen, from: Math.max(this.origin_, from - beside), to: from},
    ]);
  }

  click_(event) {
    const cell = drawnCell(event.target);
    if (cell) {
      this.index_ = cell.index;
      this.focusTime_ = Math.max(cell.start, Math.min(this.left_(), cell.end - 1));
      this.drawFocus_();
      this.open_();
      return;
    }
    const head = event.target.closest('.guide-channel');
    if (!head) return;
    const row = [...this.rows_.values()].find((entry) => entry.head === head);
    if (row) this.onChannel_(this.channels_[row.index]);
  }

  /** The cell that has the focus. */
  focused_() {
    const channel = this.channels_[this.index_];
    if (!channel) return undefined;
    return this.data.cells(channel.row, this.focusTime_, this.focusTime_ + 1)[0];
  }

  open_() {
    const cell = this.focused_();
    if (cell && !cell.pending) this.onOpen_(this.channels_[this.index_], cell);
  }

  key_(event) {
    if (event.altKey || event.ctrlKey || event.metaKey || !this.size_) return;
    const room = this.size_.height - this.headHeight_;
    const page = Math.max(1, Math.floor(room / this.rowHeight) - 1);
    switch (event.key) {
      case 'ArrowDown': this.moveRow_(1); break;
      case 'ArrowUp':
        if (this.index_ === 0) moveFocus('ArrowUp');
        else this.moveRow_(-1);
        break;
      case 'PageDown': this.moveRow_(page); break;
      case 'PageUp': this.moveRow_(-page); break;
      case 'ArrowLeft': this.moveTime_(-1); break;
      case 'ArrowRight': this.moveTime_(1); break;
      case 'Home': this.jump(this.time); break;
      case 'Enter':
      case ' ': this.open_(); break;
      default: return;
    }
    event.preventDefault();
    event.stopPropagation();
  }

  moveRow_(by) {
    this.index_ = Math.max(0, Math.min(this.channels_.length - 1, this.index_ + by));
    const room = this.size_.height - this.headHeight_ - this.rowHeight;
    const top = this.index_ * this.rowHeight;
    const {scrollTop} = this.scroller_;
    if (Math.abs(by) > 1) this.scroller_.scrollTop = scrollTop + by * this.rowHeight;
    if (top < this.scroller_.scrollTop) this.scroller_.scrollTop = top;
    else if (top > this.scroller_.scrollTop + room) {
      // A whole row at the top: the cut one is at the bottom.
      this.scroller_.scrollTop = Math.ceil((top - room) / this.rowHeight) * this.rowHeight;
    }
    // A focus that the window has left comes back into it.
    const [left, right] = this.hours();
    if (this.focusTime_ < left || this.focusTime_ >= right) {
      this.focusTime_ = Math.max(this.origin_, Math.floor(left));
    }
    this.schedule_();
  }

  /** To the programme before or after; a long one is first scrolled through. */
  moveTime_(by) {
    const cell = this.focused_();
    if (!cell) return;
    const left = this.left_();
    const right = this.right_();
    const step = Math.max(kHalfHour, Math.floor((right - left) / kHalfHour - 1) * kHalfHour);
    if (by > 0) {
      if (cell.end > right + 1) {
        this.focusTime_ = Math.min(cell.end - 1, Math.floor(left + step));
        this.scrollToTime_(left + step);
      } else if (cell.end < this.end_) {
        this.focusTime_ = cell.end;
        if (cell.end > right - kHalfHour) {
          this.scrollToTime_((Math.floor(cell.end / kHalfHour) - 1) * kHalfHour);
        }
      }
    } else if (cell.start < left - 1) {
      this.focusTime_ = Math.max(cell.start, Math.ceil(left - step), this.origin_);
      this.scrollToTime_(left - step);
    } else if (cell.start > this.origin_) {
      const channel = this.channels_[this.index_];
      const before = this.data.cells(channel.row, cell.start - 1, cell.start)[0];
      this.focusTime_ = Math.max(before?.start ?? 0, cell.start - step, this.origin_);
      if (this.focusTime_ < left) {
        this.scrollToTime_(Math.max(left - step, Math.min(left,
            Math.floor(this.focusTime_ / kHalfHour) * kHalfHour)));
      }
    }
    this.schedule_();
  }
}
