// What can be done with one channel: play, skip, lock, favourite groups, name, delete.

import {protectedCommand} from './api.js';
import {favouriteGroups, flags} from './channels.js';
import {megahertz} from './band.js';
import {choosePin, tellError, toast} from './dialog.js';
import {airText, fill, h, icon, setAirText, setText, show} from './dom.js';
import {state} from './live.js';
import {button, switchButton} from './parts.js';
import {playChannel} from './television.js';
import {sourceName, t} from './texts.js';

const kGroups = 28;
/** What the service keeps of a name. */
const kNameLength = 20;

let pinOffered = false;

/** Sends a command that may need the PIN; says if it did not work. Resolves with whether it did. */
export async function change(message) {
  try {
    const {result} = await protectedCommand(message);
    if (result !== 0) toast(t('error.failed'), {kind: 'bad'});
    return result === 0;
  } catch (error) {
    tellError(error);
    return false;
  }
}

export class ChannelEditor {
  constructor() {
    this.channel_ = null;
    this.number_ = h('span', {class: 'editor-number'});
    this.name_ = airText('');
    this.facts_ = h('p', {class: 'editor-facts dim'});
    this.play_ = button({test: 'channel-play', text: t('channels.play'), kind: 'primary',
      run: () => playChannel(this.channel_)});
    this.skip_ = switchButton({label: t('channels.skip'), test: 'channel-skip',
      onChange: (on) => this.mark_(on ? 'skip' : 'unskip')});
    this.lock_ = switchButton({label: t('channels.lock'), test: 'channel-lock',
      onChange: (on) => this.lockChanged_(on)});
    this.groups_ = Array.from({length: kGroups}, (_, index) => h('button', {
      'type': 'button', 'class': 'chip editor-group', 'aria-pressed': 'false',
      'aria-label': t('channels.group', {n: index + 1}), 'data-test': `channel-fav-${index + 1}`,
      'onclick': () => this.favourite_(index + 1),
    }, index + 1));
    this.field_ = h('input', {'class': 'field', 'maxlength': kNameLength, 'autocomplete': 'off',
      'spellcheck': 'false', 'aria-label': t('channels.name'), 'data-test': 'channel-name'});
    this.delete_ = button({test: 'channel-delete',
      run: () => this.mark_(this.channel_.flags & flags.deleted ? 'undelete' : 'delete')});
    this.element = h('div', {'class': 'editor', 'data-test': 'channel-editor'},
        h('h2', {class: 'editor-title'}, this.number_, this.name_), this.facts_,
        h('div', {class: 'editor-actions'}, this.play_, this.delete_),
        this.skip_, this.lock_,
        h('div', {'role': 'group', 'aria-label': t('channels.favourites')},
            h('h3', {}, icon('star'), t('channels.favourites')),
            h('div', {class: 'editor-groups'}, this.groups_)),
        h('form', {class: 'editor-name', onsubmit: (event) => {
          event.preventDefault();
          this.rename_();
        }}, h('h3', {}, t('channels.name')),
        h('div', {class: 'editor-rename'}, this.field_,
            h('button', {'type': 'submit', 'class': 'button', 'data-test': 'channel-rename'},
                t('channels.rename')))));
  }

  /** Shows a channel ({...entry of the list, src}), or what has become of it. */
  set(channel) {
    const other = channel.key !== this.channel_?.key || channel.src !== this.channel_?.src;
    const named = channel.name !== this.channel_?.name;
    this.channel_ = channel;
    setText(this.number_, channel.number);
    setAirText(this.name_, channel.name);
    if (other || named) this.field_.value = channel.name === 'EMPTY' ? '' : channel.name;
    setText(this.facts_, [
      t(`channels.type.${channel.type}`), sourceName(channel.src),
      channel.rf ? t('scan.rf', {rf: channel.rf}) : '', megahertz(channel.freq),
      channel.manual ? t('channels.manual') : '',
    ].filter(Boolean).join(' · '));
    const deleted = Boolean(channel.flags & flags.deleted);
    this.skip_.set(channel.flags & flags.skipped);
    this.lock_.set(channel.flags & flags.locked);
    show(this.play_, !deleted);
    setText(this.delete_, t(deleted ? 'channels.undelete' : 'channels.delete'));
    const groups = favouriteGroups(channel.fav);
    this.groups_.forEach((button, index) =>
      button.setAttribute('aria-pressed', String(groups.includes(index + 1))));
  }

  target_() {
    const {src, major, minor} = this.channel_;
    return {src, major, minor};
  }

  /** Changes a mark; shows the old one again if that did not work. */
  async mark_(type, more = {}) {
    const channel = this.channel_;
    const worked = await change({class: 'FW', command: 'CHANNELMODIFY', ...this.target_(), type,
      ...more});
    if (!worked && channel === this.channel_) this.set(channel);
    return worked;
  }

  /** The first lock asks for the PIN that it needs. */
  async lockChanged_(on) {
    if (!(await this.mark_(on ? 'lock' : 'unlock')) || !on) return;
    if (pinOffered || state()?.pin?.set !== false) return;
    pinOffered = true;
    choosePin({reason: t('channels.choosePin')}).catch(tellError);
  }

  favourite_(group) {
    const on = favouriteGroups(this.channel_.fav).includes(group);
    this.mark_(on ? 'unfav' : 'fav', {group});
  }

  /** The service takes the marks of a channel that it renames away: they are set again. */
  async rename_() {
    const name = this.field_.value.trim();
    const {freq, flags: marks} = this.channel_;
    if (name === '' || name === this.channel_.name) return;
    const target = this.target_();
    if (!(await change({class: 'FW', command: 'CHANNELADD', ...target, freq, name}))) return;
    const lost = [[flags.skipped, 'skip'], [flags.locked, 'lock'], [flags.deleted, 'delete']];
    for (const [mark, type] of lost) {
      if (marks & mark) await change({class: 'FW', command: 'CHANNELMODIFY', ...target, type});
    }
    toast(t('channels.renamed'));
  }
}

/** The marks of a channel in a list, as elements. */
export function channelMarks(channel) {
  const mark = (name, text) => h('span', {class: 'channel-mark'}, icon(name),
      h('span', {class: 'visually-hidden'}, text));
  const groups = favouriteGroups(channel.fav);
  return [
    groups.length > 0 && h('span', {class: 'channel-mark star'}, icon('star'),
        h('span', {class: 'visually-hidden'}, t('channels.favourites')),
        groups.length > 4 ? `${groups.slice(0, 4).join(' ')}…` : groups.join(' ')),
    channel.flags & flags.locked ? mark('lock', t('channels.locked')) : false,
    channel.flags & flags.skipped ? h('span', {class: 'badge'}, t('channels.skipped')) : false,
    channel.flags & flags.deleted ? h('span', {class: 'badge bad'}, t('channels.deleted')) : false,
    channel.manual && h('span', {class: 'badge'}, t('channels.manual')),
  ].filter(Boolean);
}

/** Replaces the marks of a row only if they are others. */
export function showMarks(element, channel) {
  const shown = `${channel.flags} ${channel.fav} ${channel.manual}`;
  if (element.shownMarks === shown) return;
  element.shownMarks = shown;
  fill(element, channelMarks(channel));
}
