// What lies above every view because the television says so: alerts, a service that does not run,
// another television, a lost connection.

import {airString, airText, fill, h, icon, setAirText} from './dom.js';
import {openLayer} from './layers.js';
import {onConnection, onPart, state, connection} from './live.js';
import {t} from './texts.js';
import {clockText} from './time.js';

/** SCTE 18's alert_priority in words. */
export function priorityText(priority) {
  if (!(priority > 0)) return t('alert.priority.0');
  if (priority < 7) return t('alert.priority.low');
  if (priority < 11) return t('alert.priority.medium');
  if (priority < 15) return t('alert.priority.high');
  return t('alert.priority.maximum');
}

function whichCondition() {
  const current = state();
  if (connection() === 'lost') return current === null ? null : {test: 'lost', kind: 'lost',
    title: t('connection.lost'), more: t('connection.lostMore')};
  if (current === null) return null;
  if (current.otherTv !== null && current.otherTv !== undefined) {
    return {test: 'other-tv', kind: 'other', title: t('service.otherTv'),
      more: t('service.otherTvMore', {pid: current.otherTv.pid ?? '?'})};
  }
  if (!current.service?.running) return {test: 'no-service', kind: 'service',
    title: t('service.missing'), more: t('service.missingMore')};
  return null;
}

function drawCondition() {
  const box = document.getElementById('condition');
  const condition = whichCondition();
  document.body.dataset.condition = condition?.kind ?? '';
  if (!condition) {
    if (box.firstChild) fill(box);
    return;
  }
  const text = condition.title + condition.more;
  if (box.dataset.shown === text && box.firstChild) return;
  box.dataset.shown = text;
  fill(box, h('div', {class: 'condition', 'data-test': condition.test},
      icon('signal'), h('div', {},
          h('p', {class: 'condition-title'}, condition.title),
          h('p', {class: 'condition-more'}, condition.more))));
}

// A short break (the server restarts) is not worth a flash on the screen.
const patienceMilliseconds = 700;
let patience = 0;

function connectionChanged(status) {
  clearTimeout(patience);
  if (status === 'live') drawCondition();
  else patience = setTimeout(drawCondition, patienceMilliseconds);
}

let closeCover = null;

function drawAlert(alert) {
  const bar = document.getElementById('alert-bar');
  if (closeCover) {
    closeCover();
    closeCover = null;
  }
  if (!alert) {
    fill(bar);
    return;
  }
  const text = airText(alert.text || t('alert.noText'), {class: 'alert-text'});
  const facts = h('p', {class: 'alert-facts'}, priorityText(alert.priority), ' · ',
      t('alert.since', {time: clockText(alert.since)}));
  if (alert.blocking) {
    fill(bar);
    const cover = h('div', {class: 'alert-cover', role: 'alert', tabindex: '-1',
      'data-test': 'alert', 'data-blocking': 'true'},
    h('div', {class: 'alert-box'},
        h('p', {class: 'alert-title'}, icon('alert'), t('alert.label')), text, facts));
    closeCover = openLayer(cover, {level: 10, onBack: null, focus: cover});
    return;
  }
  // Long texts run; a text that fits stands still. The copy that follows is for the eye only.
  const run = h('div', {class: 'alert-run'}, text);
  fill(bar, h('div', {class: 'alert-strip', role: 'alert', 'data-test': 'alert',
    'data-blocking': 'false'},
  h('p', {class: 'alert-title'}, icon('alert'), t('alert.label')),
  h('div', {class: 'alert-window'}, run), facts));
  const window = run.parentElement;
  // Without motion a long text is scrolled, by keys too.
  if (window.scrollHeight > window.clientHeight + 1) window.tabIndex = 0;
  if (run.scrollWidth > window.clientWidth && window.clientWidth > 0) {
    const copy = airText('', {class: 'alert-text', 'aria-hidden': 'true'});
    setAirText(copy, alert.text);
    run.append(copy);
    run.classList.add('runs');
    run.style.animationDuration = `${Math.max(12, run.scrollWidth / 110)}s`;
  }
}

/** Begins to watch. Once a page. */
export function startConditions() {
  onPart((current) => [current.service?.running, current.otherTv], drawCondition);
  onConnection(connectionChanged);
  onPart((current) => current.alert, drawAlert);
  onPart((current) => current.channel && [current.channel.number, current.channel.name], (part) => {
    const title = part ? t('app.titleChannel', {number: part[0], name: airString(part[1])}) :
      t('app.title');
    if (document.title !== title) document.title = title;
  });
}

