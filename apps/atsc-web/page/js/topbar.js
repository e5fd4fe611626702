// The head of every view but the screen: its name, the channel that plays, the receiver's clock.

import {h, icon, setAirText, setText, airText} from './dom.js';
import {onPart} from './live.js';
import {openMenu} from './menu.js';
import {navigate} from './navigate.js';
import {t} from './texts.js';
import {clockText, dayText, everySecond} from './time.js';

const title = h('h1', {class: 'topbar-title'});
const number = h('span', {class: 'topbar-number'});
const name = airText('');
const channel = h('button', {type: 'button', class: 'topbar-channel', hidden: true,
  onclick: () => navigate('screen')},
icon('screen'), h('span', {class: 'visually-hidden'}, t('menu.screen')), number, name);
const clock = h('time', {class: 'topbar-clock'});
const day = h('span', {class: 'topbar-day'});

/** Names the view. */
export function drawTopbar(view) {
  setText(title, t(`menu.${view}`));
}

/** Fills the head. Once a page. */
export function startTopbar() {
  document.getElementById('topbar').append(
      h('button', {type: 'button', class: 'icon-button', 'aria-label': t('menu.title'),
        'data-test': 'menu-button', onclick: openMenu}, icon('menu')),
      title, channel, h('div', {class: 'topbar-time'}, day, clock));
  onPart((state) => state.channel && [state.channel.number, state.channel.name], (part) => {
    channel.hidden = !part;
    if (!part) return;
    setText(number, part[0]);
    setAirText(name, part[1]);
  });
  everySecond((utc) => {
    setText(clock, clockText(utc));
    setText(day, dayText(utc));
  });
}
