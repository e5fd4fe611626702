// What the keys of a remote control do.

import {closeGrant, command} from './api.js';
import {channelList, findChannel} from './channels.js';
import {toast, tellError} from './dialog.js';
import {onPart, state} from './live.js';
import {navigate} from './navigate.js';
import {t} from './texts.js';

const memory = 'channels';

function remembered() {
  try {
    return JSON.parse(localStorage.getItem(memory)) ?? {};
  } catch {
    return {};
  }
}

// Every page of the browser writes the same, so that they agree on the last channel.
onPart((current) => current.channel, (channel) => {
  if (!channel) return;
  const {src, major, minor, record, key, number} = channel;
  const stored = remembered();
  if (stored.current?.key === key && stored.current?.src === src) return;
  const next = {current: {src, major, minor, record, key, number}, last: stored.current ?? null};
  try {
    localStorage.setItem(memory, JSON.stringify(next));
  } catch {
    // Without storage there is no last channel.
  }
});

/** Sends a command and says if it fails; resolves with whether it worked. */
export async function send(message) {
  try {
    const {result} = await command(message);
    if (result !== 0) toast(t('error.failed'), {kind: 'bad'});
    return result === 0;
  } catch (error) {
    tellError(error);
    return false;
  }
}

function source() {
  return state()?.source === 'QAM' ? 'QAM' : 'VSB';
}

/** Sends what makes something play, and shows the screen. Nothing plays in standby: ends it. */
async function tune(message) {
  navigate('screen');
  if (state()?.standby && !(await setStandby(false))) return false;
  return send(message);
}

/** Plays a channel of the list. */
export function playChannel(channel) {
  return tune({
    class: 'FW', command: 'CHANNELCHANGE', input: channel.src ?? source(), major: channel.major,
    minor: channel.minor, service_record: channel.record ?? undefined,
  });
}

// The service queues every change: a key that is held must not go on after it is let go.
const heldMilliseconds = 300;
let stepped = 0;

function step(mode, event) {
  const now = performance.now();
  if (event?.repeat && now - stepped < heldMilliseconds) return Promise.resolve(false);
  stepped = now;
  return tune({class: 'FW', command: 'CHANNELCHANGE', mode, input: source()});
}

/** One channel up; the event is that of the key or the click. */
export function channelUp(event) {
  return step('UP', event);
}

export function channelDown(event) {
  return step('DOWN', event);
}

export function lastChannel() {
  const {last} = remembered();
  if (!last) {
    toast(t('screen.noLast'));
    return Promise.resolve(false);
  }
  return playChannel(last);
}

/** Plays the channel of a typed number: on the current source, else on the other one. */
export async function playNumber(digits) {
  const here = source();
  for (const src of [here, here === 'VSB' ? 'QAM' : 'VSB']) {
    const list = await channelList(src).catch(() => []);
    const channel = findChannel(list, digits);
    if (channel) return playChannel({...channel, src});
  }
  toast(t('screen.noChannel', {number: digits}), {kind: 'bad'});
  return false;
}

export function play() {
  return send({class: 'FW', command: 'PLAY'});
}

export function switchSource() {
  return tune({class: 'FW', command: 'PLAYSRC', src: source() === 'VSB' ? 'QAM' : 'VSB'});
}

export function setStandby(standby) {
  return send({class: 'FW', command: 'POWERDOWN', powerdown: standby});
}

export function toggleStandby() {
  return setStandby(!state()?.standby);
}

export function selectTrack(index) {
  return send({class: 'AUD', command: 'CHANGE', index});
}

/** Takes an unlocking back: what is above the limits is blocked again. */
export async function lockAgain() {
  await closeGrant().catch(() => {});
  return send({class: 'PC', command: 'PWDUNLOCK', lock_status: 0});
}
