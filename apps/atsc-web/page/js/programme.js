// A programme: its marks, and the dialog that tells all about it.

import {get} from './api.js';
import {openDialog} from './dialog.js';
import {airText, h, icon} from './dom.js';
import {genreHue, namedGenres} from './genres.js';
import {playChannel} from './television.js';
import {t} from './texts.js';
import {dateTimeText, dayText, now, spanText} from './time.js';

/** The title of a programme as an element. */
export function titleText(programme) {
  return airText(programme.title || t('guide.noTitle'));
}

/** "8:00 – 9:00 PM", with the day if it is not today's. */
export function whenText(programme) {
  const span = spanText(programme.start, programme.duration);
  const day = dayText(programme.start);
  return day === dayText(now()) ? span : `${day}, ${span}`;
}

/** Rating, captions and whether it is blocked, as badges. */
export function badges(programme) {
  return [
    programme.blocked &&
        h('span', {class: 'badge blocked'}, icon('lock'), t('guide.blocked')),
    programme.rating && airText(programme.rating, {class: 'badge'}),
    programme.cc && h('span', {class: 'badge'}, h('span', {'aria-hidden': 'true'}, t('guide.cc')),
        h('span', {class: 'visually-hidden'}, t('guide.captioned'))),
  ].filter(Boolean);
}

/** The genres of a programme by name. */
export function genreChips(programme) {
  return namedGenres([...new Set(programme.genres ?? [])]).map(([code, name]) =>
    h('span', {class: `genre-chip ${genreHue([code])}`}, name));
}

/** Number and name of a channel. */
export function channelLabel(channel) {
  return [h('span', {class: 'guide-number'}, channel.number), ' ', airText(channel.name)];
}

/** Reads a programme with its description; null if the guide no longer has it. */
export async function readProgramme(src, row, start) {
  try {
    return await get('/api/programme', {src, row, start});
  } catch (error) {
    if (error.status === 404) return null;
    throw error;
  }
}

/**
 * Opens a programme: {src, channel, programme, onShow}. onShow(), if there is one, shows it in the
 * grid.
 */
export function openProgramme({src, channel, programme, onShow}) {
  const description = h('p', {'class': 'programme-description', 'tabindex': '0',
    'data-test': 'programme-description'});
  readProgramme(src, channel.row, programme.start).then((whole) => {
    if (whole?.description) description.append(airText(whole.description));
    else description.replaceWith(h('p', {class: 'dim'}, t('guide.noDescription')));
  }).catch(() => description.replaceWith(h('p', {class: 'dim'}, t('guide.noDescription'))));
  const from = now();
  const running = programme.start <= from && from < programme.start + programme.duration;
  const actions = [{
    text: t(running ? 'guide.watch' : 'guide.watchChannel'), kind: 'primary',
    test: 'programme-play',
    onclick: () => playChannel({...channel, src}),
  }];
  if (onShow) actions.push({text: t('guide.show'), onclick: onShow});
  return openDialog({
    title: titleText(programme),
    test: 'programme',
    wide: true,
    body: [
      h('p', {class: 'programme-channel'}, channelLabel(channel)),
      h('p', {class: 'programme-when'}, t('guide.when', {
        when: whenText(programme), minutes: t('common.minutes',
            {n: Math.round(programme.duration / 60)}),
      }), running && h('span', {class: 'badge on'}, t('guide.onNow'))),
      running && h('div', {class: 'programme-bar', 'aria-hidden': 'true'}, bar(programme, from)),
      h('p', {class: 'programme-badges'}, badges(programme), genreChips(programme)),
      programme.blocked && h('p', {class: 'dim'}, t('guide.blockedMore')),
      description,
    ],
    actions,
  });
}

function bar(programme, utc) {
  const element = h('div', {class: 'programme-over'});
  element.style.width = `${Math.round(100 * (utc - programme.start) / programme.duration)}%`;
  return element;
}

/** A programme in a list of results: the elements of a row. */
export function resultRow() {
  const number = h('span', {class: 'guide-number'});
  const name = h('span', {class: 'result-channel'});
  const title = h('span', {class: 'result-title'});
  const when = h('span', {class: 'result-when'});
  const marks = h('span', {class: 'result-marks'});
  return {
    element: h('div', {class: 'result'}, number, name, title, when, marks),
    show({channel, programme}) {
      number.textContent = channel.number;
      name.replaceChildren(airText(channel.name));
      title.replaceChildren(titleText(programme));
      when.textContent = `${dateTimeText(programme.start)} · ` +
          t('common.minutes', {n: Math.round(programme.duration / 60)});
      marks.replaceChildren(...badges(programme));
    },
  };
}
