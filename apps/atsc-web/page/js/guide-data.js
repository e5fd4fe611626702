// The programmes that the page has: by channel and slice of time, fetched where one looks and
// ahead of it. What is out of date stays visible until its successor has arrived.

import {get} from './api.js';

/** Length of a slice in seconds. */
export const kSlice = 4 * 3600;
/** Time without a programme is shown in pieces of this length. */
const kGap = 2 * 3600;
/** What a programme without a length takes, so that it can be seen and reached. */
const kShortest = 300;
const kRowsAtOnce = 32;
const kRequests = 3;
const kKept = 8000;
const kRetryMs = 1000;
const kSlicesPerRow = 1e7;

/** Appends what is shown between two programmes. */
function fillGap(cells, from, to) {
  while (from < to) {
    const end = Math.min(to, (Math.floor(from / kGap) + 1) * kGap);
    cells.push({start: from, end, programme: null, pending: false});
    from = end;
  }
}

/**
 * Returns the cells of a slice in order: each programme, cut where the next one begins, and the
 * gaps between them. A broadcast may announce programmes that overlap, or the same time twice.
 */
function arrange(programmes, from, to) {
  const cells = [];
  let at = from;
  let last = null;
  for (const programme of [...programmes].sort((a, b) => a.start - b.start)) {
    if (last && programme.start === last.start) continue;
    const end = programme.start + Math.max(programme.duration, kShortest);
    if (last && last.end > programme.start) last.end = programme.start;
    if (programme.start > at) fillGap(cells, at, programme.start);
    last = {start: programme.start, end, programme, pending: false};
    cells.push(last);
    at = Math.max(at, end);
  }
  fillGap(cells, at, to);
  return cells;
}

export class GuideData {
  /** Calls onArrival when programmes have come that a drawing may lack. */
  constructor(src, onArrival) {
    this.src_ = src;
    this.onArrival_ = onArrival;
    this.slices_ = new Map();
    this.fetching_ = new Map();
    this.queue_ = [];
    this.requests_ = 0;
    this.generation_ = 0;
    this.closed_ = false;
  }

  close() {
    this.closed_ = true;
    this.queue_ = [];
  }

  /** What is here may be out of date: it is fetched anew where one looks. */
  invalidate() {
    ++this.generation_;
  }

  /** Returns the cells of a row that overlap the time from `from` to `to`, without holes. */
  cells(row, from, to) {
    const cells = [];
    for (let slice = Math.floor(from / kSlice); slice * kSlice < to; ++slice) {
      const kept = this.slices_.get(row * kSlicesPerRow + slice);
      if (!kept) {
        this.append_(cells, {
          start: slice * kSlice, end: (slice + 1) * kSlice, programme: null, pending: true,
        });
        continue;
      }
      for (const cell of kept.cells) {
        if (cell.end > from && cell.start < to) this.append_(cells, cell);
      }
    }
    return cells;
  }

  /** Appends a cell of the next slice: a programme across midnight of two slices is in both. */
  append_(cells, cell) {
    const last = cells[cells.length - 1];
    if (last && last.end > cell.start) {
      if (last.start >= cell.start || (last.programme && !cell.programme)) return;
      cells[cells.length - 1] = {...last, end: cell.start};
    }
    cells.push(cell);
  }

  /**
   * Says what is needed, the most important first: [{rows, from, to}…]. Replaces what was asked
   * before and is not on its way yet.
   */
  want(windows) {
    this.queue_ = [];
    const queued = new Set();
    for (const {rows, from, to} of windows) {
      for (let slice = Math.floor(from / kSlice); slice * kSlice < to; ++slice) {
        let batch = [];
        for (const row of rows) {
          const key = row * kSlicesPerRow + slice;
          const fresh = this.slices_.get(key)?.generation === this.generation_;
          if (fresh || queued.has(key) || this.fetching_.get(key) === this.generation_) continue;
          queued.add(key);
          batch.push(row);
          if (batch.length === kRowsAtOnce) {
            this.queue_.push({slice, rows: batch});
            batch = [];
          }
        }
        if (batch.length) this.queue_.push({slice, rows: batch});
      }
    }
    this.pump_();
  }

  pump_() {
    while (!this.closed_ && this.requests_ < kRequests && this.queue_.length) {
      this.fetch_(this.queue_.shift());
    }
  }

  async fetch_({slice, rows}) {
    const generation = this.generation_;
    const from = slice * kSlice;
    const keys = rows.map((row) => row * kSlicesPerRow + slice);
    keys.forEach((key) => this.fetching_.set(key, generation));
    ++this.requests_;
    try {
      const answer = await get(
        `/api/guide?src=${this.src_}&rows=${rows.join()}&from=${from}&to=${from + kSlice}`);
      rows.forEach((row, i) => {
        const cells = arrange(answer.rows?.[row] ?? [], from, from + kSlice);
        this.slices_.delete(keys[i]);
        this.slices_.set(keys[i], {cells, generation});
      });
      for (const key of this.slices_.keys()) {
        if (this.slices_.size <= kKept) break;
        this.slices_.delete(key);
      }
      if (!this.closed_) this.onArrival_();
    } catch {
      if (!this.closed_) setTimeout(() => this.closed_ || this.onArrival_(), kRetryMs);
    } finally {
      --this.requests_;
      for (const key of keys) {
        if (this.fetching_.get(key) === generation) this.fetching_.delete(key);
      }
      this.pump_();
    }
  }
}
