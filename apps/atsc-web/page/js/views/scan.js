// The channel search: what is received on which frequency.

import {command, get} from '../api.js';
import {Band, megahertz} from '../band.js';
import {channelList, flags, onChannels} from '../channels.js';
import {openDialog, tellError} from '../dialog.js';
import {airText, fill, h, setText, show} from '../dom.js';
import {onPart, state} from '../live.js';
import {button, choice} from '../parts.js';
import {playChannel, send} from '../television.js';
import {sourceName, t} from '../texts.js';

/**
 * What follows the search that runs, as {src, back}: the source that is searched then, if any, and
 * the channel to which the receiver returns at the end. Kept over a reload of this page.
 */
const kThen = 'scan.then';
const kSources = ['VSB', 'QAM'];
// A lineup that was made up can have more than one looks through.
const kMostCarriers = 200;
const kMostChannels = 60;

function following() {
  try {
    return JSON.parse(sessionStorage.getItem(kThen));
  } catch {
    return null;
  }
}

function setFollowing(next) {
  try {
    sessionStorage.setItem(kThen, JSON.stringify(next));
  } catch {
    // Without storage only one source is searched.
  }
}

function startScan(src, rf) {
  return send(rf === undefined ? {class: 'SCAN', command: 'start', mode: 'auto', src} :
    {class: 'SCAN', command: 'start', mode: 'manual', freq: rf, src});
}

/** Plays what played before both sources were searched, else the first channel of the antenna. */
async function goBack(channel) {
  if (state()?.standby) return;
  if (channel) {
    const {src: input, major, minor} = channel;
    const {result} = await command({class: 'FW', command: 'CHANNELCHANGE', input, major, minor});
    if (result === 0) return;
  }
  if ((await channelList('VSB')).length === 0) return;
  await command({class: 'FW', command: 'PLAYSRC', src: 'VSB'});
}

// Both sources were asked for: the other one follows, whatever the page shows by then.
onPart((current) => current.scan, (scan) => {
  const then = scan && !scan.running ? following() : null;
  if (!then) return;
  setFollowing(null);
  if (!scan.over || scan.stopped) return;
  if (!then.src) {
    goBack(then.back).catch(tellError);
  } else if (scan.src !== then.src) {
    setFollowing({back: then.back});
    startScan(then.src);
  }
});

class ScanView {
  constructor(container) {
    this.src_ = state()?.scan?.src ?? state()?.source ?? 'VSB';
    this.band_ = new Band((entry) => this.openField_(entry));
    this.listed_ = [];
    this.closed_ = false;
    this.build_(container);
    this.closers_ = [
      onPart((current) => current.scan, (scan) => this.scan_(scan)),
      onChannels(() => this.list_()),
    ];
    this.source_(this.src_);
    this.draw_();
    (this.stop_.hidden ? this.start_ : this.stop_).focus({preventScroll: true});
  }

  close() {
    this.closed_ = true;
    this.closers_.forEach((end) => end());
  }

  build_(container) {
    this.sources_ = choice({
      label: t('scan.source'), value: this.src_, test: 'scan-source',
      options: kSources.map((src) => [src, sourceName(src)]),
      onChange: (src) => this.source_(src),
    });
    this.start_ = button({test: 'scan-start', kind: 'primary', run: () => startScan(this.src_)});
    this.both_ = button({test: 'scan-both', text: t('scan.both'), run: async () => {
      const {channel} = state();
      setFollowing({src: 'QAM', back: channel});
      if (!(await startScan('VSB'))) setFollowing(null);
    }});
    this.stop_ = button({test: 'scan-stop', text: t('scan.stop'), kind: 'primary', run: () => {
      setFollowing(null);
      send({class: 'SCAN', command: 'stop'});
    }});
    this.headline_ = h('p', {'class': 'scan-headline', 'role': 'status',
      'data-test': 'scan-services'});
    this.where_ = h('p', {class: 'scan-where'});
    this.bar_ = h('div', {class: 'scan-over'});
    this.progress_ = h('div', {'class': 'scan-progress', 'role': 'progressbar',
      'aria-label': t('scan.progress'), 'aria-valuemin': '0', 'aria-valuemax': '100',
      'data-test': 'scan-progress'}, this.bar_);
    for (const option of this.sources_.children) {
      option.dataset.test = `scan-source-${option.dataset.value}`;
    }
    const total = (key) => {
      const number = h('span', {'class': 'scan-number', 'data-test': `scan-${key}`}, '0');
      return [number, h('div', {class: 'scan-total'}, number,
          h('span', {class: 'scan-kind'}, t(`scan.${key}`)))];
    };
    const totals = ['carriers', 'tv', 'radio', 'data'].map((key) => [key, ...total(key)]);
    this.totals_ = Object.fromEntries(totals.map(([key, number]) => [key, number]));
    this.found_ = h('section', {'class': 'scan-found', 'aria-label': t('scan.found')});
    container.append(h('div', {class: 'scan'},
        h('div', {class: 'scan-tools'}, this.sources_, this.start_, this.both_, this.stop_),
        h('div', {class: 'scan-top'},
            h('div', {class: 'scan-state'}, this.headline_, this.where_, this.progress_),
            h('div', {class: 'scan-totals'}, totals.map(([, , element]) => element))),
        this.band_.element,
        h('p', {'class': 'band-legend'},
            ['carrier', 'listed', 'empty', 'unknown'].map((kind) => h('span', {},
                h('i', {'class': `band-sample ${kind}`, 'aria-hidden': 'true'}),
                t(`scan.legend.${kind}`)))),
        this.found_));
  }

  async source_(src) {
    this.src_ = src;
    this.sources_.set(src);
    setText(this.start_, t(src === 'QAM' ? 'scan.startCable' : 'scan.startAir'));
    try {
      const {channels} = await get('/api/plan', {src});
      if (this.closed_ || src !== this.src_) return;
      this.band_.plan(channels);
      await this.list_();
    } catch (error) {
      if (!this.closed_) tellError(error);
    }
  }

  async list_() {
    const src = this.src_;
    const list = await channelList(src).catch(() => []);
    if (this.closed_ || src !== this.src_) return;
    this.listed_ = list;
    this.draw_();
  }

  scan_(scan) {
    if (scan?.running && scan.src !== this.src_) this.source_(scan.src);
    this.draw_();
  }

  draw_() {
    const current = state()?.scan ?? null;
    const scan = current?.src === this.src_ ? current : null;
    const running = Boolean(scan?.running);
    const anywhere = Boolean(current?.running);
    const held = document.activeElement;
    show(this.stop_, anywhere);
    show(this.start_, !anywhere);
    show(this.both_, !anywhere);
    // The focus stays on what starts and stops.
    if ([this.stop_, this.start_, this.both_].includes(held) && held.hidden) {
      (anywhere ? this.stop_ : this.start_).focus();
    }
    show(this.progress_, running);
    this.band_.element.classList.toggle('running', running);
    const counts = new Map();
    for (const channel of this.listed_) {
      if (channel.flags & flags.deleted) continue;
      counts.set(channel.freq, (counts.get(channel.freq) ?? 0) + 1);
    }
    const found = new Map((scan?.band ?? []).map((entry) => [entry.freq, entry]));
    this.band_.show(found, scan && scan.rf === null ? new Map() : counts, running ? scan.freq : 0);
    this.drawState_(scan, running);
    this.drawTotals_(scan, counts);
    this.drawFound_(scan, running);
  }

  drawState_(scan, running) {
    const source = sourceName(this.src_);
    if (!scan) {
      const n = this.listed_.filter((channel) => !(channel.flags & flags.deleted)).length;
      setText(this.headline_, t(n ? 'scan.idle' : 'scan.none', {source, n}));
      setText(this.where_, t('scan.idleMore'));
      return;
    }
    const key = running ? 'scan.running' : scan.stopped ? 'scan.stopped' : 'scan.over';
    setText(this.headline_, t(key, {source, n: scan.services}));
    const at = scan.band?.find((entry) => entry.freq === scan.freq)?.rf;
    setText(this.where_, running ? t('scan.where', {
      percent: scan.progress, freq: scan.freq ? megahertz(scan.freq) : '–', rf: at ?? '',
    }) : t('scan.idleMore'));
    this.bar_.style.transform = `scaleX(${Math.min(100, Math.max(0, scan.progress)) / 100})`;
    this.progress_.setAttribute('aria-valuenow', scan.progress);
  }

  drawTotals_(scan, counts) {
    const kinds = {TV: 0, RADIO: 0, DATA: 0};
    for (const channel of this.listed_) {
      if (!(channel.flags & flags.deleted)) ++kinds[channel.type];
    }
    const totals = scan ? {
      carriers: (scan.band ?? []).filter((entry) => entry.carrier).length,
      tv: scan.tv, radio: scan.radio, data: scan.data,
    } : {carriers: counts.size, tv: kinds.TV, radio: kinds.RADIO, data: kinds.DATA};
    for (const [key, value] of Object.entries(totals)) {
      setText(this.totals_[key], String(value ?? 0));
    }
  }

  /** The channels by carrier, with a button that plays them. */
  drawFound_(scan, running) {
    const shown = JSON.stringify([running, this.src_, scan?.band,
      running ? 0 : this.listed_.map((channel) => [channel.key, channel.flags, channel.name])]);
    if (shown === this.drawn_) return;
    this.drawn_ = shown;
    if (running) {
      const carriers = (scan.band ?? []).filter((entry) => entry.carrier).reverse();
      fill(this.found_, carriers.length > 0 && h('ul', {class: 'scan-carriers'}, carriers.map(
          ({rf, freq, services}) => h('li', {class: 'scan-carrier'},
              h('span', {class: 'scan-rf'}, t('scan.rf', {rf})),
              h('span', {class: 'dim'}, megahertz(freq)),
              h('span', {}, t(services === 1 ? 'scan.serviceOne' : 'scan.services',
                  {n: services}))))));
      return;
    }
    const only = scan?.rf ?? null;
    const byFreq = new Map();
    for (const channel of this.listed_) {
      if (channel.flags & flags.deleted) continue;
      if (only !== null && channel.rf !== only) continue;
      if (!byFreq.has(channel.freq)) byFreq.set(channel.freq, []);
      byFreq.get(channel.freq).push(channel);
    }
    const carriers = [...byFreq.entries()].sort((a, b) => a[0] - b[0]);
    fill(this.found_, carriers.length > 0 && h('ul', {class: 'scan-carriers'},
        carriers.slice(0, kMostCarriers).map(([freq, channels]) => h('li', {class: 'scan-carrier'},
            h('span', {class: 'scan-rf'}, t('scan.rf', {rf: channels[0].rf})),
            h('span', {class: 'dim'}, megahertz(freq)),
            this.watchButtons_(channels)))));
  }

  watchButtons_(channels, close = () => {}) {
    return h('span', {class: 'scan-channels'}, channels.slice(0, kMostChannels).map((channel) =>
      h('button', {'type': 'button', 'class': 'chip scan-watch', 'data-test': 'scan-watch',
        'onclick': () => {
          close();
          playChannel({...channel, src: this.src_});
        }}, h('span', {class: 'visually-hidden'}, t('scan.watch')),
      h('b', {}, channel.number), ' ', airText(channel.name))));
  }

  openField_({rf, freq}) {
    const channels = this.listed_.filter((channel) => channel.freq === freq &&
        !(channel.flags & flags.deleted));
    openDialog({
      title: t('scan.fieldTitle', {rf, freq: megahertz(freq)}),
      test: 'scan-field',
      body: (close) => channels.length ? this.watchButtons_(channels, close) :
        h('p', {class: 'dim'}, t('scan.fieldNone')),
      actions: [{
        text: t('scan.only'), kind: 'primary', test: 'scan-only',
        onclick: () => {
          setFollowing(null);
          startScan(this.src_, rf);
        },
      }],
    });
  }
}

export const view = {
  name: 'scan',
  mount(container) {
    const scan = new ScanView(container);
    return () => scan.close();
  },
};
