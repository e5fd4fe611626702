// Settings of the receiver and of this screen. Each change is sent at once; what another page or
// program changes is shown as it comes.

import {command} from '../api.js';
import {choosePin, tellError} from '../dialog.js';
import {h, setText} from '../dom.js';
import {onPart, onState} from '../live.js';
import {openAudio, trackText} from '../menu.js';
import {choice, switchButton} from '../parts.js';
import {send, setStandby} from '../television.js';
import {setTheme, theme} from '../theme.js';
import {t} from '../texts.js';
import {clockSecondsText, dateText, everySecond} from '../time.js';

const zones = ['NST', 'AST', 'EST', 'CST', 'MST', 'PST', 'AKST', 'HAST', 'HST', 'GMT', 'TST', 'SKST'];
const languages = ['eng', 'spa', 'fre'];
const themes = ['auto', 'dark', 'light'];
const levels = ['0', '1', '2', '3'];
const duals = ['STEREO', 'LEFT', 'RIGHT', 'MIXED'];

function group(title, ...rows) {
  return h('section', {class: 'settings-group', 'aria-label': title}, h('h2', {}, title), rows);
}

function row(label, ...content) {
  return h('div', {class: 'settings-row'}, h('span', {class: 'settings-label'}, label),
      h('div', {class: 'settings-value'}, content));
}

const named = (prefix, values) => values.map((value) => [value, t(`${prefix}.${value}`)]);

function mount(container) {
  const clock = h('time', {class: 'settings-clock', 'data-test': 'settings-clock'});
  const day = h('span', {class: 'dim'});
  const zone = choice({label: t('settings.zone'), options: named('zone', zones), value: '',
    test: 'settings-zone', onChange: (value) => send({class: 'TIME', command: 'SETTIMEZONE', zone: value})});
  const mode = choice({label: t('settings.mode'), value: '', test: 'settings-mode',
    options: [['AUTO', t('settings.modeAuto')], ['MANUAL', t('settings.modeManual')]],
    onChange: (value) => send({class: 'TIME', command: 'SETMODE', mode: value})});

  const sendLanguages = () => send({class: 'CN', command: 'SETPREAUD', first: first.value,
    second: second.value});
  const first = choice({label: t('settings.first'), options: named('language', languages), value: '',
    test: 'settings-first', onChange: sendLanguages});
  const second = choice({label: t('settings.second'), options: named('language', languages), value: '',
    test: 'settings-second', onChange: sendLanguages});
  // The receiver has no query for it: what was chosen here last is shown.
  const dual = choice({label: t('settings.dual'), options: named('settings.dual', duals), value: '',
    test: 'settings-dual', onChange: (value) => send({class: 'AUD', command: 'SETDUAL', mode: value})});
  const track = h('button', {type: 'button', class: 'button', onclick: openAudio});
  const captions = h('span', {class: 'settings-text', 'data-test': 'settings-captions'});

  const level = choice({label: t('settings.level'), options: named('settings.level', levels), value: '',
    test: 'settings-level', onChange: (value) => send({class: 'EAS', command: 'EASUSERSETTING', op: 'set',
      setting: Number(value)})});
  const alertSwitch = (label, name, test) => switchButton({label, test,
    onChange: (status) => send({class: 'EAS', command: name, op: 'set', status})});
  const repeats = alertSwitch(t('settings.repeats'), 'DISABLEOPTEASCHK', 'settings-repeats');
  const cableOnly = alertSwitch(t('settings.cableOnly'), 'CABLEEASONLY', 'settings-cable-only');

  const pinText = h('span', {class: 'settings-text dim'});
  const pinButton = h('button', {type: 'button', class: 'button', 'data-test': 'settings-pin',
    onclick: () => choosePin().catch(tellError)});
  const themeChoice = choice({label: t('settings.theme'), options: named('settings.theme', themes),
    value: theme(), test: 'settings-theme', onChange: setTheme});
  const standby = switchButton({label: t('settings.standby'), test: 'settings-standby',
    onChange: (on) => setStandby(on)});
  const version = h('p', {class: 'dim'});

  container.append(h('div', {class: 'settings'},
      group(t('settings.time'),
          h('p', {class: 'settings-now'}, clock, day),
          row(t('settings.zone'), zone), row(t('settings.mode'), mode)),
      group(t('settings.sound'),
          row(t('screen.chooseAudio'), track), row(t('settings.first'), first),
          row(t('settings.second'), second), row(t('settings.dual'), dual),
          row(t('settings.captions'), captions)),
      group(t('settings.alerts'), row(t('settings.level'), level), repeats, cableOnly),
      group(t('settings.pin'), row(t('settings.pin'), pinText, pinButton)),
      group(t('settings.look'), row(t('settings.theme'), themeChoice), standby, version)));

  async function readAlerts() {
    try {
      const ask = (name) => command({class: 'EAS', command: name, op: 'get'});
      const [setting, checked, cable] = await Promise.all(
          [ask('EASUSERSETTING'), ask('DISABLEOPTEASCHK'), ask('CABLEEASONLY')]);
      if (setting.reply) level.set(String(setting.reply.setting));
      if (checked.reply) repeats.set(checked.reply.status);
      if (cable.reply) cableOnly.set(cable.reply.status);
    } catch (error) {
      if (error.code !== 'no-service' && error.code !== 'lost') tellError(error);
    }
  }

  const ends = [
    onPart((current) => [current.clock?.zone, current.clock?.automatic], (part, {clock: now}) => {
      zone.set(now?.zone ?? '');
      mode.set(now?.automatic ? 'AUTO' : 'MANUAL');
    }),
    onPart((current) => [current.audio, current.channel?.key], (part, {audio}) => {
      first.set(audio?.first ?? '');
      second.set(audio?.second ?? '');
      const playing = audio?.tracks?.find((item) => item.index === audio.playing);
      setText(track, playing ? trackText(playing) : t('screen.noAudio'));
      track.disabled = !(audio?.tracks?.length > 0);
    }),
    onPart((current) => current.captions, (part) => setText(captions,
        part ? t('screen.captionsText', {aspect: part.aspect}) : t('screen.captionsNone'))),
    onPart((current) => current.pin?.set, (set) => {
      setText(pinText, t(set ? 'settings.pinSet' : 'settings.pinNone'));
      setText(pinButton, t(set ? 'settings.pinChange' : 'settings.pinChoose'));
    }),
    onState((current) => standby.set(current.standby)),
    onPart((current) => [current.service?.running, current.service?.pid], readAlerts),
    onPart((current) => current.version, (part) => setText(version, t('settings.version', {version: part}))),
    everySecond((utc) => {
      setText(clock, clockSecondsText(utc));
      setText(day, dateText(utc));
    }),
  ];
  return () => ends.forEach((end) => end());
}

export const view = {name: 'settings', mount};
