// The menu over the picture: large entries, the views above, what acts on the television below.

import {h, icon, setText, show} from './dom.js';
import {openDialog} from './dialog.js';
import {openLayer} from './layers.js';
import {onState, state} from './live.js';
import {navigate} from './navigate.js';
import {toggleRemote} from './remote.js';
import {lockAgain, selectTrack, switchSource, toggleStandby} from './television.js';
import {languageName, sourceName, t} from './texts.js';

/** "English AC-3, described"; brief leaves the coding out. */
export function trackText(track, brief = false) {
  const language = track.language ? languageName(track.language) :
      t('screen.track', {track: track.index + 1});
  const parts = [t('screen.trackOf', {language, coding: brief ? '' : track.coding ?? ''}).trim()];
  if (track.described) parts.push(t('screen.described'));
  return parts.join(', ');
}

/** The choice of the audio track. */
export function openAudio() {
  const audio = state()?.audio;
  const tracks = audio?.tracks ?? [];
  return openDialog({
    title: t('screen.chooseAudio'),
    test: 'audio-dialog',
    body: (close) => tracks.length === 0 ? h('p', {class: 'dim'}, t('screen.noAudio')) :
      h('div', {class: 'list'}, tracks.map((track) => h('button', {
        type: 'button', class: 'list-item', 'data-focus': track.index === audio.playing,
        'aria-pressed': String(track.index === audio.playing), 'data-test': 'audio-track',
        onclick: () => {
          selectTrack(track.index);
          close();
        },
      }, icon(track.index === audio.playing ? 'check' : 'audio'),
      h('span', {}, trackText(track))))),
  });
}

/** What the captions of the programme were made for. */
export function openCaptions() {
  const aspect = state()?.captions?.aspect;
  return openDialog({
    title: t('screen.captionsTitle'),
    body: h('p', {}, aspect ? t('screen.captionsText', {aspect}) : t('screen.captionsNone')),
    actions: [{text: t('common.ok'), kind: 'primary'}],
  });
}

const views = ['screen', 'guide', 'channels', 'scan', 'parental', 'settings', 'developer'];
const viewIcons = {parental: 'lock'};

let closeMenu = null;

/** Opens the menu; closes it if it is open. */
export function openMenu() {
  if (closeMenu) {
    closeMenu();
    return;
  }
  const current = document.body.dataset.view;
  const run = (action) => () => {
    closeMenu?.();
    action();
  };
  const entry = (iconName, text, action, properties = {}) => h('button', {
    type: 'button', class: 'menu-item', onclick: run(action), ...properties,
  }, icon(iconName), h('span', {class: 'menu-text'}, text));
  const label = (element) => element.querySelector('.menu-text');
  const audio = entry('audio', '', openAudio);
  const captions = entry('captions', '', openCaptions);
  const source = entry('source', '', switchSource, {'data-test': 'menu-source'});
  const standby = entry('power', '', toggleStandby, {'data-test': 'menu-standby'});
  const again = entry('lock', t('menu.lockAgain'), lockAgain);
  const remote = entry('remote', t('menu.remote'), () => toggleRemote(true));
  const menu = h('div', {class: 'menu', 'aria-label': t('menu.title'), 'data-test': 'menu',
    role: 'dialog', 'aria-modal': 'true'},
  h('h2', {class: 'menu-title'}, t('menu.title')),
  h('div', {class: 'menu-views'}, views.map((name) =>
    entry(viewIcons[name] ?? name, t(`menu.${name}`), () => navigate(name), {
      'data-test': `menu-${name}`, 'aria-current': name === current ? 'page' : null,
      'data-focus': name === current,
    }))),
  h('div', {class: 'menu-actions'}, audio, captions, source, again, remote, standby));
  const end = onState((now) => {
    const track = now.audio?.tracks?.find((item) => item.index === now.audio.playing);
    setText(label(audio), track ? t('menu.audio', {track: trackText(track)}) : t('menu.audioNone'));
    setText(label(captions), now.captions?.aspect ?
        t('menu.captions', {aspect: now.captions.aspect}) : t('menu.captionsNone'));
    setText(label(source), t('menu.source', {source: sourceName(now.source)}));
    setText(label(standby), t(now.standby ? 'menu.standbyOff' : 'menu.standby'));
    show(again, now.unlocked);
  });
  const shade = h('div', {class: 'shade menu-shade', onclick: (event) => {
    if (event.target === shade) closeMenu();
  }}, menu);
  closeMenu = openLayer(shade, {onClose: () => {
    closeMenu = null;
    end();
  }});
}
