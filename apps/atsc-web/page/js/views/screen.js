// The screen: what a set draws over the picture. There is no picture here, so what would be one is
// the calm stage of the page, in a colour of its own for each channel.

import {unlock} from '../api.js';
import {makeBanner} from '../banner.js';
import {channelList, onChannels} from '../channels.js';
import {choosePin, tellError} from '../dialog.js';
import {typeDigit} from '../digits.js';
import {airString, airText, fill, h, icon, setText} from '../dom.js';
import {onPart, onState, state} from '../live.js';
import {openMenu} from '../menu.js';
import {navigate} from '../navigate.js';
import {pinPad, pinProblem} from '../parts.js';
import {toggleRemote} from '../remote.js';
import {channelDown, channelUp, play, setStandby} from '../television.js';
import {t} from '../texts.js';
import {clockText, everySecond, now} from '../time.js';

const bannerMilliseconds = 6000;
const detailsMilliseconds = 15000;
const dockMilliseconds = 4000;
// A change that is quicker than this shows no "Tuning".
const tuningMilliseconds = 600;

function message(kind, {iconName, title, more, actions = [], test, clock = false}) {
  return h('div', {class: `screen-message ${kind}`, 'data-test': test},
      iconName && icon(iconName),
      clock && h('time', {class: 'screen-clock'}, clockText(now())),
      h('p', {class: 'screen-title'}, title),
      more && h('p', {class: 'screen-more'}, more),
      actions.length > 0 && h('div', {class: 'screen-actions'}, actions.map((action, index) =>
        h('button', {type: 'button', class: `button big ${index === 0 ? 'primary' : ''}`,
          'data-test': action.test, onclick: action.run}, action.text))));
}

function megahertz(frequency) {
  return `${Math.round(frequency / 1e5) / 10} MHz`;
}

// Who has just chosen the PIN need not enter it a third time.
async function chooseAndUnlock() {
  try {
    const pin = await choosePin();
    if (pin !== '') await unlock(pin);
  } catch (error) {
    tellError(error);
  }
}

// Out of the question for the PIN: what was typed is the beginning of a channel number.
function typeNumber(number) {
  document.getElementById('view').focus({preventScroll: true});
  for (const key of number.replaceAll('.', '-').match(/[0-9-]/g)) typeDigit(key);
}

function blockMessage(block, hasPin) {
  const titles = {locked: 'screen.blockLocked', unrated: 'screen.blockUnrated'};
  const reasons = (block.reasons ?? []).filter((reason) => reason !== '');
  const why = !block.rating || block.kind === 'locked' ? null : reasons.length > 0 ?
    t('screen.blockRating', {rating: airString(block.rating),
      reasons: reasons.map(airString).join(', ')}) :
    t('screen.blockRatingOnly', {rating: airString(block.rating)});
  const pad = hasPin && pinPad({
    label: t('pin.enter'),
    describedBy: 'block-why',
    onNumber: typeNumber,
    onEnter: async (pin) => {
      const answer = await unlock(pin);
      if (!answer.ok) return pinProblem(answer);
      return answer.unlocked === false ? t('pin.notUnlocked') : undefined;
    },
  });
  if (pad && state().pin.wait > 0) pad.say({wait: state().pin.wait});
  return h('div', {class: 'screen-message block', 'data-test': 'block', 'data-kind': block.kind},
      h('div', {class: 'block-why', id: 'block-why'},
          icon('lock'),
          h('p', {class: 'screen-title'}, t(titles[block.kind] ?? 'screen.blockProgramme')),
          block.title && h('p', {class: 'block-title'}, airText(block.title)),
          why && h('p', {class: 'screen-more', 'data-test': 'block-reason'}, why),
          pad && h('p', {class: 'block-number dim'}, t('screen.blockNumber'))),
      pad || h('div', {class: 'block-choose'},
          h('p', {class: 'screen-more'}, t('pin.none')),
          h('button', {type: 'button', class: 'button big primary', 'data-test': 'block-choose',
            onclick: chooseAndUnlock}, t('pin.choose'))));
}

/** What stands in the middle of the screen, as {key, make}: the same key is not drawn again. */
function whichMessage(current, known) {
  const {scan} = current;
  if (current.standby) {
    return {key: 'standby', make: () => message('standby', {test: 'standby',
      title: t('screen.standby'), more: t('screen.standbyMore'), clock: true,
      actions: [{text: t('screen.switchOn'), run: () => setStandby(false), test: 'standby-off'}]})};
  }
  if (scan?.running) {
    return {key: 'scan', make: () => message('scanning', {iconName: 'scan', test: 'scanning',
      title: t('screen.scanning'), more: ' ',
      actions: [{text: t('screen.scanOpen'), run: () => navigate('scan')}]})};
  }
  if (!current.channel && known.empty) {
    return {key: 'first', make: () => message('first', {iconName: 'screen', test: 'first-start',
      title: t('screen.firstStart'), more: t('screen.firstStartMore'), actions: [
        {text: t('screen.firstScan'), run: () => navigate('scan'), test: 'first-scan'}]})};
  }
  if (current.block) {
    const hasPin = Boolean(current.pin?.set);
    return {key: JSON.stringify([current.block, hasPin, current.channel?.key]), own: true,
      make: () => blockMessage(current.block, hasPin)};
  }
  if (current.playing === 'noSignal') {
    const frequency = current.channel?.freq;
    return {key: `signal ${frequency}`, make: () => message('no-signal', {iconName: 'signal',
      test: 'no-signal', title: t('screen.noSignal'),
      more: frequency ? t('screen.noSignalMore', {frequency: megahertz(frequency)}) :
        t('screen.noSignalPlain'),
      actions: [{text: t('common.retry'), run: play}]})};
  }
  if (current.playing === 'stopped' || (current.playing === 'none' && known.read)) {
    return {key: 'stopped', make: () => message('stopped', {iconName: 'screen', test: 'stopped',
      title: t('screen.stopped'), more: t('screen.stoppedMore'),
      actions: [{text: t('screen.play'), run: play, test: 'play'}]})};
  }
  if (current.playing === 'changing') {
    return {key: 'changing', late: true, make: () => message('changing', {test: 'changing',
      title: t('screen.changing')})};
  }
  if (current.channel?.type === 'RADIO') {
    return {key: 'radio', make: () => message('radio', {iconName: 'audio', test: 'radio',
      title: t('screen.radioPlaying')})};
  }
  if (current.channel?.type === 'DATA') {
    return {key: 'data', make: () => message('radio', {iconName: 'info', test: 'data',
      title: t('screen.data'), more: t('screen.dataMore')})};
  }
  return {key: '', make: () => null};
}

// Teal to violet, which go with the rest; neighbours on the dial are far apart (the golden ratio).
function hue(channel) {
  return Math.round(185 + ((channel.major * 0.618 + channel.minor * 0.382) % 1) * 95);
}

const keys = {handle: null};

function mount(container) {
  const banner = makeBanner();
  const centre = h('div', {class: 'screen-centre'});
  const dockButton = (name, text, action, test) => h('button', {
    type: 'button', class: 'dock-button', 'data-test': test, onclick: action,
  }, icon(name), h('span', {}, text));
  const dock = h('nav', {class: 'dock', 'aria-label': t('screen.controls')},
      dockButton('menu', t('remote.menu'), openMenu, 'menu-button'),
      dockButton('guide', t('remote.guide'), () => navigate('guide')),
      dockButton('info', t('remote.info'), () => toggleBanner()),
      dockButton('remote', t('remote.short'), () => toggleRemote(), 'remote-open'));
  const live = h('p', {class: 'visually-hidden', 'aria-live': 'polite'});
  const section = h('section', {class: 'screen', 'aria-label': t('screen.label')},
      h('h1', {class: 'visually-hidden'}, t('screen.label')), centre, banner.element, dock, live);
  container.append(section);

  const known = {read: false, empty: false};
  let drawn = null;
  let lateTimer = 0;
  let dockTimer = 0;
  let sayTimer = 0;

  function drawMessage(current) {
    const next = whichMessage(current, known);
    if (next.key !== drawn) {
      clearTimeout(lateTimer);
      drawn = next.key;
      if (next.late) {
        fill(centre);
        lateTimer = setTimeout(() => drawn === next.key && put(next), tuningMilliseconds);
      } else {
        put(next);
      }
    }
    if (current.scan?.running && drawn === 'scan') {
      setText(centre.querySelector('.screen-more'), t('screen.scanningMore',
          {progress: current.scan.progress, services: current.scan.services}));
    }
  }

  function put(next) {
    const had = centre.contains(document.activeElement);
    fill(centre, next.make());
    const title = centre.querySelector('.screen-title')?.textContent;
    if (title) setText(live, title);
    section.dataset.message = next.own ? 'block' : next.key.split(' ')[0];
    // What the viewer has to answer gets the keys, unless he is somewhere else.
    const free = had || document.activeElement === document.body ||
        document.activeElement === container;
    const target = centre.querySelector('.pin-field, .button');
    if (free && !container.inert) (target ?? container).focus({preventScroll: true});
  }

  function readLists() {
    Promise.all(['VSB', 'QAM'].map(channelList)).then((lists) => {
      known.read = true;
      known.empty = lists.every((list) => list.length === 0);
      if (state()) drawMessage(state());
    }, () => {});
  }

  function say(current) {
    clearTimeout(sayTimer);
    // After the programme is known, and once for a viewer who steps through many channels.
    sayTimer = setTimeout(() => {
      const {channel, now: programme} = state();
      if (channel) {
        setText(live, t('screen.live', {number: channel.number, name: airString(channel.name),
          title: programme ? airString(programme.title || t('screen.noTitle')) :
            t('screen.noProgramme')}));
      }
    }, 900);
    return current;
  }

  function toggleBanner() {
    if (!state()?.channel || state().standby) return;
    if (!banner.visible()) banner.open(bannerMilliseconds);
    else if (!banner.details()) banner.open(detailsMilliseconds, true);
    else banner.close();
  }

  function wakeDock() {
    section.classList.add('awake');
    clearTimeout(dockTimer);
    dockTimer = setTimeout(() => section.classList.remove('awake'), dockMilliseconds);
  }

  section.addEventListener('pointermove', wakeDock);
  section.addEventListener('click', (event) => {
    wakeDock();
    if (event.target.closest('button, input, .dock, .block')) return;
    toggleBanner();
  });

  keys.handle = (event) => {
    const elsewhere = event.target.closest?.('.pin-pad, .dock, .remote, .screen-actions');
    if (event.key === 'i' || event.key === 'I') {
      toggleBanner();
      return true;
    }
    if ((event.key === 'ArrowUp' || event.key === 'ArrowDown') && !elsewhere && state()?.channel) {
      if (event.key === 'ArrowUp') channelUp(event);
      else channelDown(event);
      return true;
    }
    if (event.key === 'Enter' && !event.target.closest?.('button, input, a')) {
      if (state()?.standby) setStandby(false);
      else toggleBanner();
      return true;
    }
    return false;
  };
  keys.back = () => {
    // Out of the question for the PIN: digits are a channel number again.
    if (centre.contains(document.activeElement)) {
      container.focus({preventScroll: true});
      return true;
    }
    if (!banner.visible()) return false;
    banner.close();
    return true;
  };

  // The banner comes with the state that names the channel, in the same frame.
  let shownChannel = null;
  const ends = [
    onState((current) => {
      drawMessage(current);
      banner.draw(current);
      const channel = current.channel && `${current.channel.src} ${current.channel.key}`;
      if (channel !== shownChannel) {
        shownChannel = channel;
        if (channel && !current.standby) {
          banner.open(bannerMilliseconds);
          say(current);
        }
      }
      if (current.standby) banner.close();
    }),
    // Seen again when the picture would come: after a change, a block, standby; and with the next
    // programme.
    onPart((current) => [current.playing, Boolean(current.block), current.standby,
      current.now?.start], (part, current) => {
      const {playing} = current;
      if (playing === 'playing' && !current.standby && current.channel) {
        banner.open(bannerMilliseconds);
      }
    }),
    onPart((current) => current.channel && hue(current.channel), (angle) => {
      document.documentElement.style.setProperty('--hue', angle ?? 215);
    }),
    everySecond((utc) => {
      banner.tick();
      const clock = drawn === 'standby' && centre.querySelector('.screen-clock');
      if (clock) setText(clock, clockText(utc));
    }),
    onChannels(readLists),
  ];
  readLists();
  wakeDock();
  return () => {
    ends.forEach((end) => end());
    for (const timer of [lateTimer, dockTimer, sayTimer]) clearTimeout(timer);
    banner.close();
    keys.handle = null;
    keys.back = null;
  };
}

export const view = {
  name: 'screen',
  mount,
  onKey: (event) => keys.handle?.(event) ?? false,
  onBack: () => keys.back?.() ?? false,
};
