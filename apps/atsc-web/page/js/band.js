// The picture of a band: one field for each channel of the frequency plan, with what a scan found.

import {fill, h} from './dom.js';
import {moveFocus} from './focus.js';
import {t} from './texts.js';

/** "479 MHz" */
export function megahertz(freq) {
  return t('scan.megahertz', {n: Number((freq / 1e6).toFixed(3))});
}

const kMostDots = 8;
/** From here on the fields are smaller: all of the band is seen at once. */
const kMany = 80;

class Field {
  constructor(entry) {
    this.entry = entry;
    this.dots_ = h('span', {'class': 'band-dots', 'aria-hidden': 'true'});
    this.element = h('div', {
      'class': 'band-field', 'role': 'option', 'id': `band-${entry.rf}`, 'data-rf': entry.rf,
      'aria-selected': 'false',
    }, h('span', {'class': 'band-rf', 'aria-hidden': 'true'}, entry.rf), this.dots_);
    this.shown_ = '';
  }

  /** kind: 'unknown', 'empty', 'carrier' or 'listed'; here: the scan is at this channel. */
  show(kind, services, here) {
    const shown = `${kind} ${services} ${here}`;
    if (shown === this.shown_) return;
    this.shown_ = shown;
    if (kind === 'carrier') this.element.dataset.carrier = 'true';
    else delete this.element.dataset.carrier;
    this.element.className = `band-field ${kind}${here ? ' here' : ''}`;
    const count = Math.min(services, kMostDots);
    fill(this.dots_, services > kMostDots ? String(services) :
      Array.from({length: count}, () => h('i', {class: 'band-dot'})));
    const what = here ? t('scan.field.here') : t(`scan.field.${kind}`, {n: services});
    const {rf, freq} = this.entry;
    this.element.setAttribute('aria-label', t('scan.field', {rf, freq: megahertz(freq), what}));
    this.element.title = t('scan.field', {rf, freq: megahertz(freq), what});
  }
}

/** One stop of the focus; the arrow keys choose a field, Enter opens it. */
export class Band {
  /** onOpen({rf, freq}): a field was chosen. */
  constructor(onOpen) {
    this.onOpen_ = onOpen;
    this.fields_ = [];
    this.index_ = 0;
    this.element = h('div', {
      'class': 'band', 'role': 'listbox', 'tabindex': '0', 'data-keys': 'own',
      'aria-label': t('scan.band'), 'data-test': 'scan-band',
      'onkeydown': (event) => this.key_(event), 'onclick': (event) => this.click_(event),
    });
  }

  /** The channels of a plan: [{rf, freq}…]. */
  plan(entries) {
    this.fields_ = entries.map((entry) => new Field(entry));
    fill(this.element, this.fields_.map((field) => field.element));
    this.element.classList.toggle('many', entries.length > kMany);
    this.choose_(0);
  }

  /**
   * What was found: `found` Map of freq to {carrier, services}; `listed` Map of freq to the number
   * of channels in the list; `here` the frequency at which a scan is, or 0.
   */
  show(found, listed, here) {
    for (const field of this.fields_) {
      const {freq} = field.entry;
      const result = found.get(freq);
      const before = listed.get(freq) ?? 0;
      if (result) {
        const services = result.carrier ? result.services : 0;
        field.show(result.carrier ? 'carrier' : 'empty', services, freq === here);
      } else {
        field.show(before ? 'listed' : 'unknown', before, freq === here);
      }
    }
  }

  choose_(index) {
    this.fields_[this.index_]?.element.setAttribute('aria-selected', 'false');
    this.index_ = index;
    const element = this.fields_[index]?.element;
    if (!element) return;
    element.setAttribute('aria-selected', 'true');
    this.element.setAttribute('aria-activedescendant', element.id);
  }

  click_(event) {
    const element = event.target.closest('.band-field');
    const index = this.fields_.findIndex((field) => field.element === element);
    if (index < 0) return;
    this.choose_(index);
    this.onOpen_(this.fields_[index].entry);
  }

  key_(event) {
    if (event.altKey || event.ctrlKey || event.metaKey) return;
    const field = this.fields_[this.index_];
    if (field && (event.key === 'Enter' || event.key === ' ')) {
      this.onOpen_(field.entry);
    } else if (event.key.startsWith('Arrow')) {
      const top = this.fields_[0]?.element.offsetTop;
      const columns = this.fields_.filter(({element}) => element.offsetTop === top).length;
      const step = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns}[event.key];
      if (!this.fields_[this.index_ + step] || step === 0) {
        moveFocus(event.key);
      } else {
        this.choose_(this.index_ + step);
        this.fields_[this.index_].element.scrollIntoView({block: 'nearest'});
      }
    } else {
      return;
    }
    event.preventDefault();
    event.stopPropagation();
  }
}
