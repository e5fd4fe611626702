// Settings of the receiver and of this screen. Each change is sent at once; what another page or
// program changes is shown as it comes.

import {command} from '../api.js';
import {choosePin, openDialog, tellError} from '../dialog.js';
import {h, icon, setText} from '../dom.js';
import {onPart, onState, state} from '../live.js';
import {openAudio, trackText} from '../menu.js';
import {pickRow, switchButton} from '../parts.js';
import {send, setStandby} from '../television.js';
import {setTheme, theme} from '../theme.js';
import {t} from '../texts.js';
import {clockSecondsText, dateText, everySecond} from '../time.js';

const zones = ['NST', 'AST', 'EST', 'CST', 'MST', 'PST', 'AKST', 'HAST', 'HST', 'GMT', 'TST',
  'SKST'];
const languages = ['eng', 'spa', 'fre'];
const themes = ['auto', 'dark', 'light'];
const levels = ['0', '1', '2', '3'];
const duals = ['STEREO', 'LEFT', 'RIGHT', 'MIXED'];
let dualChosen = 'STEREO';

// No callback tells that another program has changed which alerts are wanted.
const alertsMilliseconds = 3000;

function group(title, ...rows) {
  return h('section', {class: 'settings-group', 'aria-label': title}, h('h2', {}, title),
      h('div', {class: 'panel rows'}, rows));
}

function row(label, value, onclick, test) {
  return onclick ? h('button', {type: 'button', class: 'row', onclick, 'data-test': test},
      h('span', {class: 'row-label'}, label), value, icon('right')) :
    h('div', {class: 'row', 'data-test': test}, h('span', {class: 'row-label'}, label), value);
}

// What the keyboard does, as the remote control's keys.
function openKeys() {
  const keys = ['up', 'page', 'digits', 'last', 'info', 'enter', 'guide', 'menu', 'remote', 'back'];
  return openDialog({title: t('settings.keys'), body: h('dl', {class: 'keys', tabindex: '0'},
      keys.map((key) => [h('dt', {}, t(`keys.${key}`)), h('dd', {}, t(`keys.${key}Does`))]))});
}

const named = (prefix, values) => values.map((value) => [value, t(`${prefix}.${value}`)]);

function mount(container) {
  const value = () => h('span', {class: 'row-value'});
  const clock = h('time', {class: 'settings-clock', 'data-test': 'settings-clock'});
  const day = h('span', {class: 'dim'});
  const zone = pickRow({label: t('settings.zone'), options: named('zone', zones), value: '',
    test: 'zone', onChange: (value) => send({class: 'TIME', command: 'SETTIMEZONE', zone: value})});
  const mode = pickRow({label: t('settings.mode'), value: '', test: 'settings-mode',
    options: [['AUTO', t('settings.modeAuto')], ['MANUAL', t('settings.modeManual')]],
    onChange: (value) => send({class: 'TIME', command: 'SETMODE', mode: value})});

  const sendLanguages = () => send({class: 'CN', command: 'SETPREAUD', first: first.chosen,
    second: second.chosen});
  const first = pickRow({label: t('settings.first'), options: named('language', languages),
    value: '', test: 'settings-first', onChange: sendLanguages});
  const second = pickRow({label: t('settings.second'), options: named('language', languages),
    value: '', test: 'settings-second', onChange: sendLanguages});
  // The receiver has no query for it: what was chosen here last is shown.
  const dual = pickRow({label: t('settings.dual'), options: named('settings.dual', duals),
    value: dualChosen, test: 'settings-dual',
    onChange: (mode) => {
      dualChosen = mode;
      send({class: 'AUD', command: 'SETDUAL', mode});
    }});
  const track = value();
  const captions = value();

  const level = pickRow({label: t('settings.level'), options: named('settings.level', levels),
    value: '', test: 'alerts-wanted', onChange: (value) =>
      send({class: 'EAS', command: 'EASUSERSETTING', op: 'set', setting: Number(value)})});
  const alertSwitch = (label, name, test) => switchButton({label, test,
    onChange: (status) => send({class: 'EAS', command: name, op: 'set', status})});
  const repeats = alertSwitch(t('settings.repeats'), 'DISABLEOPTEASCHK', 'settings-repeats');
  const cableOnly = alertSwitch(t('settings.cableOnly'), 'CABLEEASONLY', 'settings-cable-only');

  const pin = value();
  const themeChoice = pickRow({label: t('settings.theme'), options: named('settings.theme', themes),
    value: theme(), test: 'theme', onChange: setTheme});
  const standby = switchButton({label: t('settings.standby'), test: 'standby-on',
    onChange: (on) => setStandby(on)});
  const version = value();

  container.append(h('div', {class: 'settings', 'data-test': 'settings'},
      group(t('settings.time'),
          h('p', {class: 'settings-now'}, clock, day), zone, mode),
      group(t('settings.sound'),
          row(t('screen.chooseAudio'), track, openAudio, 'settings-audio'), first, second, dual,
          row(t('settings.captions'), captions, null, 'settings-captions')),
      group(t('settings.alerts'), level, repeats, cableOnly),
      group(t('settings.look'),
          row(t('settings.pin'), pin, () => choosePin().catch(tellError), 'settings-pin'),
          themeChoice, standby,
          row(t('settings.keys'), value(), openKeys, 'settings-keys'),
          row(t('settings.version'), version))));

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
      setText(track, playing ? trackText(playing) : t('common.none'));
    }),
    onPart((current) => current.captions, (part) => setText(captions,
        part ? t('settings.captionsFor', {aspect: part.aspect}) : t('common.none'))),
    onPart((current) => current.pin, (part) => setText(pin, t(part?.broken ? 'settings.pinBroken' :
      part?.set ? 'settings.pinSet' : 'settings.pinNone'))),
    onState((current) => standby.set(current.standby)),
    onPart((current) => [current.service?.running, current.service?.pid], readAlerts),
    onPart((current) => current.version, (part) => setText(version, part)),
    everySecond((utc) => {
      setText(clock, clockSecondsText(utc));
      setText(day, dateText(utc));
    }),
  ];
  const timer = setInterval(() => state()?.service?.running && readAlerts(), alertsMilliseconds);
  return () => {
    clearInterval(timer);
    ends.forEach((end) => end());
  };
}

export const view = {name: 'settings', mount};
