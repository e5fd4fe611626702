// The banner of a channel: number, name, now and next, and what can be heard and read.

import {favouriteGroups, flags} from './channels.js';
import {airString, airText, fill, h, icon, setAirText, setText, show} from './dom.js';
import {trackText} from './menu.js';
import {t, sourceName} from './texts.js';
import {clockText, dayText, now, spanText} from './time.js';

const maxTracks = 4;
const maxGroups = 4;
// Numbers such as 16383 or 1023-1023 are too wide for the large size.
const longNumber = 6;

function title(programme) {
  return programme.title === '' ? t('screen.noTitle') : programme.title;
}

function badge(text, kind = '', label) {
  return h('span', {class: `badge ${kind}`, title: label}, text);
}

/** The facts of a programme and its channel as badges; only what there is. */
function badges(state) {
  const {channel, now: programme, audio} = state;
  const tracks = audio?.tracks ?? [];
  const groups = favouriteGroups(channel.fav);
  const groupText = groups.length > maxGroups ?
    `${groups.slice(0, maxGroups).join(', ')} +${groups.length - maxGroups}` : groups.join(', ');
  return [
    channel.type === 'RADIO' && badge(t('screen.radio')),
    channel.type === 'DATA' && badge(t('screen.data')),
    programme?.rating && h('span', {class: 'badge rating', 'data-test': 'banner-rating'},
        airText(programme.rating)),
    (programme?.cc || state.captions) && h('span', {class: 'badge', 'data-test': 'banner-captions'},
        state.captions ? `${t('screen.captions')} ${state.captions.aspect}` : t('screen.captions')),
    tracks.slice(0, maxTracks).map((track) => {
      const playing = track.index === audio.playing;
      return h('span', {class: playing ? 'badge playing' : 'badge', 'data-test': 'banner-audio',
        'aria-current': playing ? 'true' : null},
      playing && icon('audio'), airText(trackText(track, !playing)));
    }),
    tracks.length > maxTracks && badge(`+${tracks.length - maxTracks}`),
    groups.length > 0 && h('span', {class: 'badge', 'data-test': 'banner-favourites'}, icon('star'),
        t('screen.favourite', {n: groupText})),
    Boolean(channel.flags & flags.locked) && h('span', {class: 'badge'}, icon('lock'),
        t(state.unlocked ? 'screen.unlocked' : 'screen.locked')),
  ];
}

/** Makes the banner: {element, draw(state), tick(), visible(), open(milliseconds), close()}. */
export function makeBanner() {
  const number = h('span', {class: 'banner-number', 'data-test': 'banner-number'});
  const name = airText('', {class: 'banner-name', 'data-test': 'banner-name'});
  const source = h('span', {class: 'banner-source'});
  const clock = h('time', {class: 'banner-clock'});
  const day = h('span', {class: 'banner-day'});
  const nowTitle = airText('', {class: 'banner-title', 'data-test': 'banner-now'});
  const nowSpan = h('span', {class: 'banner-span'});
  const left = h('span', {class: 'banner-left'});
  const bar = h('div', {class: 'banner-bar-fill'});
  const progress = h('div', {class: 'progress banner-bar', role: 'progressbar', 'aria-valuemin': 0,
    'aria-valuemax': 100, 'data-test': 'banner-progress'}, bar);
  const facts = h('div', {class: 'banner-facts'});
  const description = airText('', {class: 'banner-description', 'data-test': 'banner-description'});
  const nextTitle = airText('', {'data-test': 'banner-next'});
  const nextTime = h('span', {class: 'banner-next-time'});
  const next = h('p', {class: 'banner-next'},
      h('span', {class: 'banner-next-label'}, t('screen.next')), nextTime, nextTitle);
  const element = h('section', {class: 'banner', 'aria-label': t('screen.info'),
    'data-test': 'banner', hidden: true},
  h('div', {class: 'banner-channel'}, number, h('div', {class: 'banner-names'}, name, source)),
  h('div', {class: 'banner-programme'},
      h('p', {class: 'banner-head'}, nowTitle, nowSpan), progress,
      facts, description, next),
  h('div', {class: 'banner-time'}, clock, day, left));
  let programme = null;
  let drawnFacts = '';
  let drawnProgramme = '';
  let timer = 0;

  function tick() {
    if (element.hidden) return;
    const utc = now();
    setText(clock, clockText(utc));
    setText(day, dayText(utc));
    if (!programme || !(programme.duration > 0)) return;
    const part = Math.min(1, Math.max(0, (utc - programme.start) / programme.duration));
    bar.style.transform = `scaleX(${part.toFixed(4)})`;
    const percent = String(Math.floor(part * 100));
    if (progress.getAttribute('aria-valuenow') !== percent) {
      progress.setAttribute('aria-valuenow', percent);
    }
    const minutes = Math.max(0, Math.ceil((programme.start + programme.duration - utc) / 60));
    setText(left, t('common.minutesLeft', {n: minutes}));
  }

  function draw(state) {
    const {channel} = state;
    if (!channel) {
      element.hidden = true;
      return;
    }
    setText(number, channel.number);
    number.classList.toggle('long', String(channel.number).length >= longNumber);
    setAirText(name, channel.name);
    setText(source, sourceName(channel.src));
    programme = state.now;
    const programmeText = JSON.stringify([state.now, state.next, state.clock?.offset]);
    if (programmeText !== drawnProgramme) {
      drawnProgramme = programmeText;
      setAirText(nowTitle, programme ? title(programme) : t('screen.noProgramme'));
      nowTitle.classList.toggle('dim', !programme);
      setText(nowSpan, programme ? spanText(programme.start, programme.duration) : '');
      setAirText(description, programme?.description ?? '');
      show(description, Boolean(programme?.description));
      show(progress, Boolean(programme));
      show(left, Boolean(programme));
      if (programme) progress.setAttribute('aria-label', airString(title(programme)));
      if (show(next, Boolean(state.next))) {
        setText(nextTime, clockText(state.next.start));
        setAirText(nextTitle, title(state.next));
      }
    }
    const factsText = JSON.stringify([state.now?.rating, state.now?.cc, state.captions, state.audio,
      channel.fav, channel.flags, channel.type, state.unlocked]);
    if (factsText !== drawnFacts) {
      drawnFacts = factsText;
      fill(facts, badges(state));
    }
    tick();
  }

  const banner = {
    element,
    draw,
    tick,
    visible: () => !element.hidden,
    /** Shows it; details adds the description. It hides by itself after that time. */
    open: (milliseconds, details = false) => {
      clearTimeout(timer);
      element.classList.toggle('details', details);
      element.hidden = false;
      tick();
      timer = setTimeout(banner.close, milliseconds);
    },
    details: () => element.classList.contains('details'),
    close: () => {
      clearTimeout(timer);
      element.hidden = true;
    },
  };
  return banner;
}
