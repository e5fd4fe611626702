// The channel list: sorted, searched and edited.

import {get} from '../api.js';
import {megahertz} from '../band.js';
import {change, ChannelEditor, showMarks} from '../channel-editor.js';
import {channelList, flags, onChannels} from '../channels.js';
import {choose} from '../choose.js';
import {confirmDialog, openDialog, tellError, toast} from '../dialog.js';
import {airText, h, setAirText, setText, show} from '../dom.js';
import {noChannels} from '../no-channels.js';
import {onPart, onState, state} from '../live.js';
import {button, choice} from '../parts.js';
import {sourceName, t} from '../texts.js';
import {VirtualList} from '../virtual-list.js';

const kOrders = {
  number: (a, b) => a.major - b.major || a.minor - b.minor || a.freq - b.freq,
  name: (a, b) => collator.compare(a.name, b.name) || kOrders.number(a, b),
  type: (a, b) => kTypes.indexOf(a.type) - kTypes.indexOf(b.type) || kOrders.number(a, b),
  freq: (a, b) => a.freq - b.freq || kOrders.number(a, b),
};
const kTypes = ['TV', 'RADIO', 'DATA'];
const kFilters = {
  all: () => true,
  favourites: (channel) => channel.fav !== 0,
  locked: (channel) => (channel.flags & flags.locked) !== 0,
  skipped: (channel) => (channel.flags & flags.skipped) !== 0,
  deleted: (channel) => (channel.flags & flags.deleted) !== 0,
};
const collator = new Intl.Collator('en', {sensitivity: 'base', numeric: true});

/** Without case and accents, as a viewer types. */
function plain(text) {
  return text.normalize('NFKD').replace(/\p{M}/gu, '').toLowerCase();
}

/** Order and filter stay while the page is open. */
const kept = {src: null, order: 'number', filter: 'all'};

/** A row of the list. */
function channelRow(playing) {
  const number = h('span', {class: 'channel-number'});
  const name = airText('', {class: 'channel-name'});
  const type = h('span', {class: 'channel-type dim'});
  const freq = h('span', {class: 'channel-freq dim'});
  const marks = h('span', {class: 'channel-marks'});
  const element = h('div', {class: 'channel'}, number, name, marks, type, freq);
  return {
    element,
    show(channel) {
      number.textContent = channel.number;
      setAirText(name, channel.name);
      setText(type, t(`channels.type.${channel.type}`));
      setText(freq, channel.rf ? t('scan.rf', {rf: channel.rf}) : megahertz(channel.freq));
      showMarks(marks, channel);
      for (const [name, mark] of [['skipped', flags.skipped], ['locked', flags.locked],
        ['deleted', flags.deleted]]) {
        if (channel.flags & mark) element.dataset[name] = 'true';
        else delete element.dataset[name];
      }
      element.classList.toggle('playing', channel.key === playing());
    },
  };
}

class ChannelsView {
  constructor(container) {
    this.src_ = kept.src ?? (state()?.source === 'QAM' ? 'QAM' : 'VSB');
    this.all_ = [];
    this.closed_ = false;
    this.turn_ = 0;
    this.editor_ = new ChannelEditor();
    this.list_ = new VirtualList({
      label: t('channels.title'), className: 'channels-list', test: 'channel-row',
      row: () => channelRow(() => state()?.channel?.key), keyOf: (channel) => channel.key,
      onOpen: () => this.open_(), onSelect: () => this.edit_(),
    });
    this.build_(container);
    this.closers_ = [
      onChannels(() => this.turn_ && this.load_()),
      // The source and the channel that play decide what is shown first.
      onState((current) => {
        if (this.turn_) return;
        if (!kept.src && current.source === 'QAM') this.sources_.set(this.src_ = 'QAM');
        this.load_(true);
      }),
      onPart((current) => current.channel?.key, () => this.draw_()),
    ];
  }

  close() {
    this.closed_ = true;
    this.closers_.forEach((end) => end());
    this.list_.close();
  }

  build_(container) {
    this.search_ = h('input', {'class': 'field channels-search', 'type': 'search',
      'placeholder': t('channels.search'), 'aria-label': t('channels.search'),
      'autocomplete': 'off', 'spellcheck': 'false', 'maxlength': '60',
      'data-test': 'channel-search', 'oninput': () => this.draw_(), 'onkeydown': (event) => {
        if (event.key !== 'ArrowDown' && event.key !== 'Enter') return;
        event.preventDefault();
        event.stopPropagation();
        this.list_.focus();
      }});
    this.sources_ = choice({label: t('channels.source'), value: this.src_, test: 'channel-source',
      options: [['VSB', sourceName('VSB')], ['QAM', sourceName('QAM')]],
      onChange: (src) => {
        kept.src = src;
        this.src_ = src;
        this.load_(true);
      }});
    this.order_ = button({test: 'channel-order',
      run: () => this.pick_('order', Object.keys(kOrders))});
    this.filter_ = button({test: 'channel-filter',
      run: () => this.pick_('filter', Object.keys(kFilters))});
    const add = button({test: 'channel-add', text: t('channels.add'), run: () => this.add_()});
    const reset = button({test: 'channel-reset', text: t('channels.reset'),
      run: () => this.reset_()});
    this.empty_ = noChannels();
    this.status_ = h('p', {class: 'channels-status dim', role: 'status'});
    this.side_ = h('aside', {'class': 'channels-side', 'aria-label': t('channels.edit'),
      'onkeydown': (event) => {
        if (event.key !== 'Escape') return;
        event.preventDefault();
        event.stopPropagation();
        this.list_.focus();
      }}, this.editor_.element);
    container.append(h('div', {class: 'channels'},
        h('div', {class: 'tools'}, this.search_, this.sources_,
            h('div', {class: 'strip'}, this.order_, this.filter_, add, reset)),
        h('div', {class: 'channels-main'}, this.list_.element, this.side_, this.empty_),
        this.status_));
    this.label_();
  }

  label_() {
    setText(this.order_, t('channels.order', {by: t(`channels.order.${kept.order}`)}));
    setText(this.filter_, t(`channels.filter.${kept.filter}`));
    this.filter_.classList.toggle('active', kept.filter !== 'all');
  }

  async pick_(what, names) {
    const value = await choose({title: t(`channels.${what}Title`), value: kept[what],
      options: names.map((name) => [name, t(`channels.${what}.${name}`)])});
    if (value === undefined) return;
    kept[what] = value;
    this.label_();
    this.draw_();
  }

  async load_(first = false) {
    const turn = ++this.turn_;
    const {src_: src} = this;
    try {
      const list = await channelList(src);
      if (this.closed_ || turn !== this.turn_) return;
      this.all_ = list.map((channel) => ({...channel, src, plain: plain(channel.name)}));
      this.draw_();
      if (first) {
        const playing = this.shown_.findIndex((entry) => entry.key === state()?.channel?.key);
        this.list_.choose(Math.max(0, playing));
        if (!this.search_.matches(':focus')) this.list_.focus();
      }
    } catch (error) {
      if (!this.closed_) tellError(error);
    }
  }

  draw_() {
    const q = plain(this.search_.value.trim());
    this.shown_ = this.all_.filter((channel) => kFilters[kept.filter](channel) &&
        (q === '' || channel.plain.includes(q) || channel.number.startsWith(q)))
        .sort(kOrders[kept.order]);
    const none = this.all_.length === 0;
    this.list_.set(this.shown_, none ? '' : t('channels.noneFound'));
    this.empty_.say(none ? t('guide.empty') : '', true);
    setText(this.status_, none ? '' : t('channels.count', {n: this.shown_.length,
      all: this.all_.length}));
    this.edit_();
  }

  edit_() {
    const channel = this.list_.chosen();
    show(this.side_, Boolean(channel));
    if (channel) this.editor_.set(channel);
  }

  /** Into the editor: beside the list where there is room, else in a dialog. */
  open_() {
    if (getComputedStyle(this.side_).position !== 'fixed') {
      this.editor_.element.querySelector('button:not([hidden])').focus();
      return;
    }
    const {element} = this.editor_;
    openDialog({title: t('channels.edit'), body: element, test: 'channel-dialog'}).then(() => {
      this.side_.append(element);
      if (!this.closed_) this.list_.focus();
    });
  }

  async add_() {
    const {src_: src} = this;
    const plan = await get('/api/plan', {src}).then((answer) => answer.channels).catch(() => []);
    const field = (name, attributes) => {
      const input = h('input', {'class': 'field', 'autocomplete': 'off', 'data-test': `add-${name}`,
        ...attributes});
      return [input, h('label', {class: 'add-field'},
          h('span', {}, t(`channels.add.${name}`)), input)];
    };
    const whole = {type: 'number', inputmode: 'numeric', min: '0'};
    const [major, majorField] = field('major', {...whole, min: '1',
      max: src === 'QAM' ? '16383' : '1023'});
    const [minor, minorField] = field('minor', {...whole, max: '1023'});
    const [rf, rfField] = field('rf', {...whole, min: plan[0]?.rf ?? 1,
      max: plan[plan.length - 1]?.rf ?? 135, oninput: () => {
        const entry = plan.find((other) => other.rf === Number(rf.value));
        if (entry) mhz.value = String(entry.freq / 1e6);
      }});
    const [mhz, mhzField] = field('freq', {type: 'number', inputmode: 'decimal', step: 'any',
      min: '40', max: '1100'});
    const [name, nameField] = field('name', {maxlength: '20'});
    await openDialog({
      title: t('channels.addTitle', {source: sourceName(src)}),
      test: 'channel-add-dialog',
      body: (close) => h('form', {'class': 'add', 'onsubmit': async (event) => {
        event.preventDefault();
        const worked = await change({class: 'FW', command: 'CHANNELADD', src,
          major: Number(major.value), minor: Number(minor.value),
          freq: Math.round(Number(mhz.value) * 1e6), name: name.value.trim()});
        if (!worked) return;
        toast(t('channels.added'));
        close();
      }}, h('div', {class: 'add-fields'}, majorField, minorField, rfField, mhzField, nameField),
      h('button', {'type': 'submit', 'class': 'button primary', 'data-test': 'add-save'},
          t('channels.addNow'))),
    });
  }

  async reset_() {
    const {src_: src} = this;
    const source = sourceName(src);
    if (!(await confirmDialog(t('channels.resetMore', {source}), {
      title: t('channels.resetTitle', {source}), yes: t('channels.resetYes'), danger: true,
    }))) return;
    if (await change({class: 'SRV', command: 'RESET', src})) {
      toast(t('channels.resetDone', {source}));
    }
  }
}

export const view = {
  name: 'channels',
  mount(container) {
    const channels = new ChannelsView(container);
    return () => channels.close();
  },
};
