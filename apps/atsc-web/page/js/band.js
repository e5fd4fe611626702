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
  constructor(entry, onOpen) {
    this.entry = entry;
    this.dots_ = h('span', {'class': 'band-dots', 'aria-hidden': 'true'});
    this.element = h('button', {
      'type': 'button', 'class': 'band-field', 'tabindex': '-1', 'data-rf': entry.rf,
      'onclick': () => onOpen(entry),
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

export class Band {
  /** onOpen({rf, freq}): a field was chosen. */
  constructor(onOpen) {
    this.onOpen_ = onOpen;
    this.fields_ = [];
    this.element = h('div', {
      'class': 'band', 'role': 'group', 'data-keys': 'own', 'aria-label': t('scan.band'),
      'data-test': 'scan-band', 'onkeydown': (event) => this.key_(event),
      'onfocusin': (event) => this.stop_(event.target),
    });
  }

  /** The channels of a plan: [{rf, freq}…]. */
  plan(entries) {
    this.fields_ = entries.map((entry) => new Field(entry, this.onOpen_));
    fill(this.element, this.fields_.map((field) => field.element));
    this.element.classList.toggle('many', entries.length > kMany);
    if (this.fields_.length) this.stop_(this.fields_[0].element);
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

  /** One stop of the Tab key: the field that had the focus last. */
  stop_(element) {
    const target = element.closest('.band-field');
    if (!target || target === this.stopped_) return;
    if (this.stopped_) this.stopped_.tabIndex = -1;
    target.tabIndex = 0;
    this.stopped_ = target;
  }

  key_(event) {
    if (!event.key.startsWith('Arrow')) return;
    event.preventDefault();
    event.stopPropagation();
    const elements = this.fields_.map((field) => field.element);
    const index = elements.indexOf(event.target);
    const top = elements[0]?.offsetTop;
    const columns = Math.max(1, elements.filter((element) => element.offsetTop === top).length);
    const step = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns}[event.key];
    const next = elements[index + step];
    if (next) next.focus();
    else moveFocus(event.key);
  }
}
