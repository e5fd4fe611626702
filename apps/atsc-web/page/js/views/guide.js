// The programme guide.

import {get} from '../api.js';
import {channelList, favouriteGroups, flags, onChannels} from '../channels.js';
import {choose} from '../choose.js';
import {tellError} from '../dialog.js';
import {airText, fill, h, icon, setText, show} from '../dom.js';
import {namedGenres, genreName} from '../genres.js';
import {GuideData} from '../guide-data.js';
import {GuideGrid} from '../guide-grid.js';
import {noChannels} from '../no-channels.js';
import {onPart, onState, state} from '../live.js';
import {button, choice} from '../parts.js';
import {
  badges, channelLabel, genreChips, openProgramme, readProgramme, resultRow, titleText, whenText,
} from '../programme.js';
import {playChannel} from '../television.js';
import {sourceName, t} from '../texts.js';
import {dateTimeText, everySecond, now, startOfDay} from '../time.js';
import {VirtualList} from '../virtual-list.js';

const kSources = ['VSB', 'QAM'];
const kHour = 3600;
/** What is shown before now, after the last programme, and at most: 16 days is all of A/65. */
const kBefore = 2 * kHour;
const kLeast = 8 * kHour;
const kMost = 17 * 24 * kHour;
const kEvening = 20 * kHour;
const kResults = 100;
/** What is asked for when a favourite group leaves only some of it. */
const kMostResults = 500;

/** The channels of the guide, each with its source: the rows of both have the same numbers. */
function listed(channels, src) {
  return channels.filter((channel) => (channel.flags &
      (flags.visible | flags.skipped | flags.deleted)) === flags.visible)
      .map((channel) => ({...channel, src}));
}

/** The filters stay while the page is open. */
const kept = {src: null, group: 0, genre: 0};

function inGroup({fav}) {
  return !kept.group || (fav & (0x10 << (kept.group - 1))) !== 0;
}

class GuideView {
  constructor(container) {
    this.closers_ = [];
    this.channels_ = [];
    this.span_ = {first: 0, last: 0, genres: []};
    this.src_ = kept.src ?? (state()?.source === 'QAM' ? 'QAM' : 'VSB');
    this.matching_ = null;
    this.turn_ = 0;
    this.grid_ = new GuideGrid({
      onOpen: (channel, cell) => this.open_(channel, cell),
      onChannel: playChannel,
      onFocus: (channel, cell) => this.detail_(channel, cell),
      onWindow: (from, to) => this.window_(from, to),
    });
    this.results_ = new VirtualList({
      label: t('guide.results'), className: 'results', test: 'search-result', row: resultRow,
      keyOf: ({channel, programme}) => `${channel.src} ${channel.row} ${programme.start}`,
      onOpen: (result) => this.openResult_(result),
    });
    this.build_(container);
    this.closers_.push(
        onPart((current) => current.source, (source) => {
          if (kept.src || !kSources.includes(source)) return;
          if (this.data_ || this.turn_) this.source_(source);
          else this.show_(source);
        }),
        onPart((current) => [current.epoch, current.versions?.guide,
          // The times of all cells are others in another zone.
          current.clock?.offset], () => this.changed_()),
        onPart((current) => current.channel?.key, (key) => {
          this.grid_.playing = key ?? '';
          this.grid_.redraw();
        }),
        // Also while the first read is on its way: it may bring the list of before.
        onChannels(() => this.load_(!this.data_)),
        everySecond((utc) => this.tick_(utc)));
    // The source and the channel that play decide what is shown first.
    const end = onState(() => {
      if (this.data_ || this.turn_ !== 0) return;
      this.load_(true);
    });
    this.closers_.push(end);
    this.grid_.focus();
  }

  close() {
    this.closers_.forEach((end) => end());
    this.grid_.close();
    this.results_.close();
    this.data_?.close();
    clearTimeout(this.searching_);
    clearTimeout(this.describing_);
    this.turn_ = -1;
  }

  build_(container) {
    this.sources_ = choice({
      label: t('guide.source'), test: 'guide-source', value: this.src_,
      options: [['VSB', sourceName('VSB')], ['QAM', sourceName('QAM')]],
      onChange: (src) => {
        kept.src = src;
        this.source_(src);
      },
    });
    this.search_ = h('input', {
      'class': 'field guide-search', 'type': 'search', 'placeholder': t('guide.search'),
      'aria-label': t('guide.searchLabel'), 'autocomplete': 'off', 'spellcheck': 'false',
      'maxlength': '100', 'data-test': 'search', 'oninput': () => this.searchSoon_(),
      'onkeydown': (event) => {
        if (event.key === 'Escape' && this.search_.value !== '') {
          event.stopPropagation();
          event.preventDefault();
          this.endSearch_();
        } else if ((event.key === 'ArrowDown' || event.key === 'Enter') && this.found_) {
          event.preventDefault();
          event.stopPropagation();
          this.results_.focus();
        }
      },
    });
    this.groupButton_ = button({test: 'guide-group', run: () => this.chooseGroup_()});
    this.genreButton_ = button({test: 'guide-genre', run: () => this.chooseGenre_()});
    const go = (key, time) => button({test: `guide-${key}`, text: t(`guide.${key}`),
      run: () => this.go_(time())});
    const step = (name, days) => h('button', {'type': 'button', 'class': 'icon-button',
      'aria-label': t(`guide.${name}`), 'data-test': `guide-${name}`,
      'onclick': () => this.go_(this.grid_.hours()[0] + days * 24 * kHour + 60)},
    icon(days < 0 ? 'left' : 'right'));
    this.detailBox_ = h('section', {'class': 'guide-detail', 'aria-label': t('guide.chosen'),
      'data-test': 'guide-detail'});
    this.status_ = h('p', {class: 'guide-status', role: 'status'});
    this.empty_ = noChannels();
    this.main_ = h('div', {class: 'guide-main'}, this.grid_.element, this.results_.element,
        this.empty_);
    container.append(h('div', {class: 'guide'},
        h('div', {class: 'tools'},
            this.sources_,
            h('div', {class: 'strip'},
                h('div', {class: 'guide-jumps'}, step('dayBefore', -1), go('now', now),
                    go('tonight', () => startOfDay(now()) + kEvening),
                    go('tomorrow', () => startOfDay(now() + 24 * kHour) + 8 * kHour),
                    step('dayAfter', 1)),
                this.groupButton_, this.genreButton_),
            this.search_),
        this.detailBox_, this.main_, this.status_));
    show(this.results_.element, false);
    this.labelFilters_();
  }

  labelFilters_() {
    fill(this.groupButton_, icon('star'),
        kept.group ? t('guide.group', {n: kept.group}) : t('guide.allChannels'));
    this.groupButton_.classList.toggle('active', kept.group > 0);
    setText(this.genreButton_, kept.genre ? genreName(kept.genre) : t('guide.allGenres'));
    this.genreButton_.classList.toggle('active', kept.genre > 0);
  }

  tick_(utc) {
    this.grid_.tick(utc);
    if (this.from_ && this.clockSet_(utc)) {
      this.place_();
      this.grid_.jump(utc);
    }
  }

  show_(src) {
    this.src_ = src;
    this.sources_.set(src);
  }

  source_(src) {
    if (src === this.src_) return;
    this.show_(src);
    this.data_?.close();
    this.data_ = null;
    this.matching_ = null;
    this.load_(true);
    this.searchSoon_(0);
  }

  /** Reads channels and span; `first`: goes to the channel that plays, now. */
  async load_(first = false) {
    const turn = ++this.turn_;
    const src = this.src_;
    try {
      const [channels, span] = await Promise.all(
          [channelList(src), get('/api/guide/span', {src})]);
      if (turn !== this.turn_) return;
      this.channels_ = listed(channels, src);
      this.span_ = span;
      this.data_ ??= new GuideData(src, () => this.grid_.redraw());
      if (first || !this.from_) this.from_ = 0;
      this.place_();
      const playing = state()?.channel;
      if (first) this.grid_.jump(now(), playing?.src === src ? playing.key : undefined);
      if (kept.genre) await this.match_();
    } catch (error) {
      if (turn === this.turn_) tellError(error);
    }
  }

  /** Whether the time axis has to begin elsewhere. */
  clockSet_(utc) {
    return utc < this.from_ || utc > this.placed_ + 24 * kHour;
  }

  /** Whether all programmes are over: a station may send another day's, or another clock. */
  isOver_(utc) {
    return this.span_.last > 0 && this.span_.last <= utc;
  }

  /** Gives the grid its channels and the ends of its time axis. */
  place_() {
    if (!this.data_) return;
    const utc = now();
    const over = this.isOver_(utc);
    if (!this.from_ || this.clockSet_(utc) || over !== this.over_) {
      const before = Math.max(this.span_.first || utc, utc - (over ? kMost : kBefore));
      this.from_ = Math.floor(Math.min(before, utc) / kHour) * kHour;
      this.placed_ = utc;
      this.over_ = over;
    }
    const last = Math.min(this.span_.last || 0, utc + kMost);
    const to = Math.ceil(Math.max(last, utc + kLeast) / kHour) * kHour;
    const channels = this.channels_.filter((channel) => inGroup(channel) &&
        (!this.matching_ || this.matching_.has(channel.row)));
    this.grid_.genre = kept.genre;
    this.grid_.show({data: this.data_, channels, from: this.from_, to});
    this.tell_(channels.length);
  }

  tell_(count) {
    if (this.found_) return;
    show(this.grid_.element, count > 0);
    show(this.detailBox_, count > 0);
    this.status_.classList.toggle('quiet',
        count === 0 || (!kept.genre && !kept.group && !this.over_));
    const key = count === 1 ? 'guide.countOne' : 'guide.count';
    const text = kept.genre ? t('guide.countGenre', {n: count, genre: genreName(kept.genre)}) :
      kept.group && count === 0 ? t('guide.emptyGroup') :
      this.over_ ? t('guide.over', {when: dateTimeText(this.span_.last)}) : t(key, {n: count});
    if (this.channels_.length === 0) this.empty_.say(t('guide.empty'), true);
    else this.empty_.say(count === 0 ? text : '');
    setText(this.status_, count === 0 ? '' : text);
  }

  /** The guide has changed: what is in sight is read anew and drawn when it is there. */
  async changed_() {
    if (!this.data_) return;
    this.data_.invalidate();
    this.grid_.redraw();
    this.detailed_ = null;
    if (this.found_) this.searchNow_();
    try {
      const src = this.src_;
      const span = await get('/api/guide/span', {src});
      if (src !== this.src_ || this.turn_ < 0) return;
      const other = span.last !== this.span_.last;
      this.span_ = span;
      if (kept.genre) await this.match_();
      else if (other) this.place_();
    } catch {
      // The next change tells.
    }
  }

  go_(utc) {
    this.endSearch_();
    this.grid_.jump(Math.max(utc, this.from_ ?? 0));
    this.grid_.focus();
  }

  async chooseGroup_() {
    const groups = [...new Set(this.channels_.flatMap((channel) => favouriteGroups(channel.fav)))]
        .sort((a, b) => a - b);
    const group = await choose({
      title: t('guide.favourites'), value: kept.group, test: 'choose-group',
      options: [[0, t('guide.allChannels')], ...groups.map((n) => [n, t('guide.group', {n})])],
    });
    if (group === undefined) return;
    kept.group = group;
    this.labelFilters_();
    this.place_();
    this.grid_.jump(this.grid_.hours()[0]);
    this.searchSoon_(0);
  }

  async chooseGenre_() {
    const genre = await choose({
      title: t('guide.genre'), value: kept.genre, test: 'choose-genre',
      options: [[0, t('guide.allGenres')], ...namedGenres(this.span_.genres ?? [])],
    });
    if (genre === undefined) return;
    kept.genre = genre;
    this.matching_ = null;
    this.matched_ = null;
    this.labelFilters_();
    if (genre) await this.match_().catch(tellError);
    else this.place_();
    this.searchSoon_(0);
  }

  /** Channels that have the genre in the hours in sight and a little later. */
  async match_() {
    const [left, right] = this.grid_.hours();
    const from = Math.floor(left / kHour) * kHour;
    const to = Math.ceil((right + kHour) / kHour) * kHour;
    const {src_: src} = this;
    const {genre} = kept;
    const {rows} = await get('/api/guide/matching', {src, genre, from, to});
    if (src !== this.src_ || genre !== kept.genre) return;
    this.matching_ = new Set(rows);
    this.matched_ = from;
    this.place_();
  }

  /** Other hours came into sight. */
  window_(left) {
    if (!kept.genre || this.matched_ === Math.floor(left / kHour) * kHour) return;
    this.match_().catch(() => {});
  }

  open_(channel, cell) {
    if (cell.programme) {
      openProgramme({src: channel.src, channel, programme: cell.programme});
    } else {
      playChannel(channel);
    }
  }

  /** Tells about the programme that has the focus. */
  detail_(channel, {programme}) {
    const key = `${channel.src} ${channel.key} ${programme?.start ?? ''} ${programme?.title ?? ''}`;
    if (key === this.detailed_) return;
    this.detailed_ = key;
    const text = h('p', {class: 'guide-detail-text'});
    fill(this.detailBox_,
        h('p', {class: 'guide-detail-channel'}, channelLabel(channel)),
        h('h2', {}, programme ? titleText(programme) : t('guide.nothing')),
        programme && h('p', {class: 'guide-detail-line'}, h('span', {}, whenText(programme)),
            badges(programme), genreChips(programme)),
        programme && text);
    clearTimeout(this.describing_);
    if (!programme) return;
    this.describing_ = setTimeout(async () => {
      const {src, row} = channel;
      const whole = await readProgramme(src, row, programme.start).catch(() => null);
      if (this.detailed_ === key && whole?.description) text.append(airText(whole.description));
    }, 150);
  }

  searchSoon_(milliseconds = 150) {
    clearTimeout(this.searching_);
    this.searching_ = setTimeout(() => this.searchNow_(), milliseconds);
  }

  async searchNow_() {
    const q = this.search_.value.trim();
    if (q === '') {
      this.endSearch_();
      return;
    }
    const src = this.src_;
    const turn = this.searchTurn_ = (this.searchTurn_ ?? 0) + 1;
    try {
      const utc = Math.floor(now());
      const answer = await get('/api/search', {src, q, limit: kept.group ? kMostResults : kResults,
        after: this.isOver_(utc) ? undefined : utc, genre: kept.genre || undefined});
      const channels = await channelList(src);
      if (turn !== this.searchTurn_ || this.turn_ < 0) return;
      const byRow = new Map(listed(channels, src).filter(inGroup)
          .map((channel) => [channel.row, channel]));
      const all = answer.results.filter((entry) => byRow.has(entry.row))
          .map((programme) => ({programme, channel: byRow.get(programme.row)}));
      const results = all.slice(0, kResults);
      this.found_ = true;
      this.empty_.say('');
      this.status_.classList.remove('quiet');
      show(this.grid_.element, false);
      show(this.detailBox_, false);
      show(this.results_.element, true);
      this.results_.set(results, t(answer.more ? 'guide.tooMany' : 'guide.noResults',
          {q, where: this.where_()}));
      const more = answer.more || all.length > results.length;
      setText(this.status_, results.length === 0 ? '' :
        t(more ? 'guide.resultsMore' : results.length === 1 ? 'guide.resultOne' :
          'guide.resultCount', {n: results.length}));
    } catch (error) {
      tellError(error);
    }
  }

  /** What restricts the search. */
  where_() {
    return [sourceName(this.src_), kept.group && t('guide.group', {n: kept.group}),
      kept.genre && genreName(kept.genre)].filter(Boolean).join(' · ');
  }

  endSearch_() {
    clearTimeout(this.searching_);
    this.searchTurn_ = (this.searchTurn_ ?? 0) + 1;
    this.search_.value = '';
    if (!this.found_) return;
    this.found_ = false;
    show(this.results_.element, false);
    this.place_();
  }

  /** Returns whether there was a search. */
  leaveSearch() {
    if (!this.found_) return false;
    this.endSearch_();
    this.grid_.focus();
    return true;
  }

  openResult_({channel, programme}) {
    openProgramme({src: channel.src, channel, programme, onShow: () => {
      kept.group = 0;
      kept.genre = 0;
      this.matching_ = null;
      this.labelFilters_();
      this.endSearch_();
      this.source_(channel.src);
      this.grid_.jump(programme.start, channel.key);
      requestAnimationFrame(() => this.grid_.focus());
    }});
  }
}

let shown = null;

export const view = {
  name: 'guide',
  mount(container) {
    shown = new GuideView(container);
    return () => {
      shown.close();
      shown = null;
    };
  },
  /** Escape leaves the search before it leaves the guide. */
  onBack: () => shown?.leaveSearch(),
};
