// Parental control: what a viewer may see.

import {command} from '../api.js';
import {airString, airText, fill, h, icon, setText, show} from '../dom.js';
import {choosePin, confirmDialog, tellError, toast} from '../dialog.js';
import {onCallback, onPart, state} from '../live.js';
import {switchButton} from '../parts.js';
import {ratingCheck} from '../parental/check.js';
import {encode, isKept, set, storeLimits} from '../parental/limits.js';
import {ratingMatrix} from '../parental/matrix.js';
import {ages, isPreset, presetOf, withPreset} from '../parental/presets.js';
import {
  ask, forgetTables, knownRegions, ratingTable, readLimits, valuesOf,
} from '../parental/tables.js';
import {t} from '../texts.js';

const groupNames = ['unrated', 'films', 'exempt'];
const refreshed = ['PARENTAL_UPDATE', 'RRT_UPDATE', 'RRT_DL_UPDATE'];

let remembered = null;  // what was read last, to be shown until it is read again
let pinOffered = false;

function mount(container) {
  let regions = [];       // {table, limits} of each known region
  let inForce = 1;
  let shown = null;       // number of the region whose matrix is drawn
  let matrix = null;
  let drawn = null;       // the table of the matrix
  let groups = [];
  let open = true;

  const now = h('p', {class: 'pc-now', 'data-test': 'parental-now'});
  const enabled = switchButton({
    label: t('parental.enabled'), test: 'parental-on',
    onChange: (on) => change(() => set('SETPRTDETAIL', {pc_enable: on ? 1 : 0})),
  });
  const pin = h('button', {type: 'button', class: 'button', 'data-test': 'parental-pin',
    onclick: () => choosePin().catch(tellError)}, icon('lock'), h('span', {}));
  const presets = h('div', {class: 'pc-presets', role: 'group', 'aria-label': t('parental.ages')});
  const presetHint = h('p', {class: 'dim pc-preset-hint', 'aria-live': 'polite'});
  const tabs = h('div', {class: 'pc-tabs', role: 'group', 'aria-label': t('parental.regions')});
  const stage = h('div', {class: 'pc-stage', 'data-test': 'parental-stage'});
  const force = h('button', {type: 'button', class: 'button', 'data-test': 'region-use',
    onclick: () => change(() => set('SETCURRREG', {region: shown}))}, t('parental.useRegion'));
  const groupSwitches = groupNames.map((name, index) => switchButton({
    label: t(`parental.group.${name}`), test: `group-${name}`,
    onChange: (block) => change(() => set('SETUNRATEDGRP', {unrat_grp: index, block})),
  }));

  const region = () => regions.find(({table}) => table.number === shown);

  // Changes settings, stores them for the next start, and shows what applies then. One at a time:
  // a document is made from the one before.
  let work = Promise.resolve();
  function change(action) {
    work = work.then(async () => {
      stage.setAttribute('aria-busy', 'true');
      try {
        await action();
        await set('STOREALL');
      } catch (error) {
        tellError(error);
      }
      stage.removeAttribute('aria-busy');
      await refresh();
    });
    return work;
  }

  // After a first limit: parental control on, and a PIN that keeps it.
  async function switchOn() {
    const {pc_enable: on} = await ask('GETPRTDETAIL');
    if (on !== 1) await set('SETPRTDETAIL', {pc_enable: 1});
    if (!pinOffered && state()?.pin?.set === false) {
      pinOffered = true;
      choosePin({reason: t('parental.choosePin')}).catch(tellError);
    } else if (on !== 1) {
      toast(t('parental.switchedOn'));
    }
  }

  function toggle(dimension, value, blocked) {
    const number = shown;
    change(async () => {
      if (value.group !== null) {
        await set('SETUNRATEDGRP', {unrat_grp: value.group, block: !blocked});
      } else {
        const before = await readLimits(number);
        if (blocked && isKept(before, number, dimension.number)) {
          toast(t('parental.hintKept', {value: airString(value.name)}));
          return;
        }
        await storeLimits(before, await encode(before, dimension.number, value.number, !blocked));
      }
      if (!blocked) await switchOn();
    });
  }

  function applyPreset(age) {
    change(async () => {
      for (const number of await knownRegions()) {
        const before = await readLimits(number);
        await storeLimits(before, await withPreset(await ratingTable(number), before, age));
      }
      if (age !== 0) await switchOn();
    });
  }

  const presetButtons = ages.map((age) => {
    const look = () => {
      if (!drawn) return;
      const wanted = presetOf(drawn, age);
      const blocks = (dimension, value) => wanted.get(dimension.number)?.get(value.number);
      matrix.preview(blocks);
      const names = drawn.dimensions.flatMap((dimension) => dimension.values
          .filter((value) => blocks(dimension, value)).map(({name}) => airString(name)));
      setText(presetHint, names.length === 0 ? t('parental.presetNothing', {region: drawn.number}) :
        t('parental.presetHint', {age, region: drawn.number, names: names.join(', ')}));
    };
    const leave = () => {
      matrix?.preview(null);
      setText(presetHint, t('parental.presetsHint'));
    };
    return h('button', {
      type: 'button', class: 'pc-age', 'data-test': 'preset', 'data-age': age,
      onclick: () => {
        leave();
        applyPreset(age);
      },
      onfocus: look, onblur: leave, onpointerenter: look, onpointerleave: leave,
    }, h('span', {class: 'visually-hidden'}, `${t('parental.preset')} `),
    h('span', {class: 'pc-age-number'}, age === 0 ? t('parental.adult') : String(age)),
    age !== 0 && h('span', {class: 'pc-age-years'}, ` ${t('parental.years')}`));
  });
  fill(presets, presetButtons);
  setText(presetHint, t('parental.presetsHint'));

  // Tabs and matrix are only made anew when they are others: the focus stays where it is.
  let tabsDrawn = '';
  function drawTabs() {
    const names = JSON.stringify(regions.map(({table}) => [table.number, table.name]));
    if (names !== tabsDrawn) {
      tabsDrawn = names;
      fill(tabs, regions.map(({table}) => h('button', {
        type: 'button', class: 'tab', 'data-test': 'region-tab', 'data-region': table.number,
        onclick: () => {
          shown = table.number;
          draw();
        },
      }, h('span', {class: 'pc-tab-number'}, `${table.number} `), airText(table.name),
      h('span', {class: 'badge'}, t('parental.inForce')))));
    }
    regions.forEach(({table}, index) => {
      const tab = tabs.children[index];
      tab.setAttribute('aria-pressed', String(table.number === shown));
      show(tab.lastChild, table.number === inForce);
    });
  }

  function playing(table) {
    const rating = state()?.now?.rating ?? '';
    return rating.split(', ').flatMap((part) => valuesOf(table, part));
  }

  function draw() {
    if (!open) return;
    if (!region()) shown = regions.find(({table}) => table.number === inForce)?.table.number ??
        regions[0]?.table.number ?? null;
    drawTabs();
    const current = region();
    show(force, current && shown !== inForce);
    groups.forEach((blocked, index) => groupSwitches[index].set(blocked));
    ages.forEach((age, index) => {
      const same = regions.length > 0 &&
          regions.every(({table, limits}) => isPreset(table, limits, age));
      presetButtons[index].setAttribute('aria-pressed', String(same));
    });
    if (!current) {
      drawn = null;
      matrix = null;
      fill(stage, h('p', {class: 'dim'}, t('parental.noRegions')));
      return;
    }
    if (JSON.stringify(drawn) !== JSON.stringify(current.table)) {
      drawn = current.table;
      matrix = ratingMatrix(drawn, {onToggle: toggle});
      fill(stage, matrix);
    }
    matrix.update({limits: current.limits, groups, playing: playing(drawn)});
  }

  async function read() {
    const [details, numbers, ...blocked] = await Promise.all([
      ask('GETPRTDETAIL'), knownRegions(),
      ...groupNames.map((_, index) => ask('GETUNRATEDGRP', {unrat_grp: index})),
    ]);
    remembered = {
      details,
      groups: blocked.map(({block}) => block),
      regions: await Promise.all(numbers.map(async (number) => {
        const [table, limits] = await Promise.all([ratingTable(number), readLimits(number)]);
        return {table, limits};
      })),
    };
    take();
  }

  function take() {
    const {details} = remembered;
    enabled.set(details.pc_enable === 1);
    root.classList.toggle('pc-off', details.pc_enable !== 1);
    inForce = details.region;
    ({regions, groups} = remembered);
    draw();
  }

  // Callbacks come several at a time: one more reading is enough for all that came meanwhile.
  let reading = null;
  let again = false;
  function refresh() {
    again = true;
    reading ??= (async () => {
      while (again && open) {
        again = false;
        try {
          await read();
        } catch (error) {
          if (open && state()?.service?.running) tellError(error);
        }
      }
      reading = null;
    })();
    return reading;
  }

  function drawNow(current) {
    const {block, now: programme, unlocked, channel} = current;
    const title = block?.title || programme?.title;
    const what = title ? airText(title, {class: 'pc-now-title'}) : null;
    const rating = block?.rating || programme?.rating;
    const rated = rating ? h('span', {class: 'badge'}, airText(rating)) : null;
    const word = !channel ? 'nothing' : block ? `block.${block.kind}` :
      unlocked ? 'unlocked' : programme && !rating ? 'unrated' : 'allowed';
    now.classList.toggle('is-blocked', Boolean(block));
    fill(now, icon(block ? 'lock' : channel ? 'check' : 'screen'),
        h('span', {}, t(`parental.now.${word}`)), what, rated,
        (block?.reasons ?? []).length > 0 && h('span', {class: 'pc-reasons'},
            t('parental.reasons'), ' ', block.reasons.map((reason) =>
              h('span', {class: 'badge bad'}, airText(reason)))));
    if (matrix) matrix.update({playing: playing(drawn)});
  }

  async function clear(name, question) {
    const yes = await confirmDialog(t(question), {title: t(`parental.${name}`), danger: true,
      yes: t(`parental.${name}`)});
    if (yes) await change(() => set(name));
  }

  async function collect() {
    try {
      const {result} = await command({class: 'PC', command: 'COLLECTRRT'});
      toast(t(result === 0 ? 'parental.collecting' : 'error.failed'));
    } catch (error) {
      tellError(error);
    }
  }

  const root = h('div', {class: 'parental'},
      h('div', {class: 'pc-head panel'}, now, enabled, pin,
          h('p', {class: 'pc-off-note'}, t('parental.off'))),
      h('section', {class: 'pc-row'},
          h('h2', {}, t('parental.presets')), h('div', {class: 'pc-section'}, presets, presetHint)),
      h('section', {class: 'pc-section'},
          h('div', {class: 'pc-row'}, h('h2', {}, t('parental.matrix')),
              h('div', {class: 'pc-section-head'}, tabs, force)),
          stage),
      h('div', {class: 'pc-columns'},
          h('section', {class: 'panel pc-section'},
              h('h2', {}, t('parental.groups')), h('p', {class: 'dim'}, t('parental.groupsMore')),
              groupSwitches),
          ratingCheck(),
          h('section', {class: 'panel pc-section'},
              h('h2', {}, t('parental.tables')), h('p', {class: 'dim'}, t('parental.tablesMore')),
              h('div', {class: 'pc-actions'},
                  h('button', {type: 'button', class: 'button', 'data-test': 'rrt-collect',
                    onclick: collect}, t('parental.collect')),
                  h('button', {type: 'button', class: 'button', 'data-test': 'parental-reset',
                    onclick: () => clear('RESET', 'parental.resetMore')}, t('parental.RESET')),
                  h('button', {type: 'button', class: 'button', 'data-test': 'parental-default',
                    onclick: () => clear('DEFAULTSETTING', 'parental.defaultMore')},
                  t('parental.DEFAULTSETTING'))))));
  container.append(root);

  if (remembered) take();
  const ends = [
    onPart((current) => current.pin?.set, (isSet) =>
      setText(pin.lastChild, t(isSet ? 'parental.pinChange' : 'parental.pinChoose'))),
    onPart((current) => [current.block, current.now, current.unlocked, current.channel],
        (_, current) => drawNow(current)),
    onPart((current) => [current.epoch, current.service], (_, current) => {
      if (!current.service?.running) return;
      forgetTables();
      refresh();
    }),
    onCallback(({message}) => {
      if (!refreshed.includes(message?.cbtype)) return;
      if (message.cbtype !== 'PARENTAL_UPDATE') forgetTables();
      refresh();
    }),
  ];
  return () => {
    open = false;
    ends.forEach((end) => end());
  };
}

export const view = {name: 'parental', mount};
