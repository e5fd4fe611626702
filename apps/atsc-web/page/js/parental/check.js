// Is this rating blocked? Asks the receiver about a rating without a programme.

import {tellError} from '../dialog.js';
import {fill, h, icon} from '../dom.js';
import {choice} from '../parts.js';
import {t} from '../texts.js';
import {ask} from './tables.js';

// Ratings of each system to choose from; the receiver knows more, such as TV-PG-D-L.
const systems = {
  'USA-TV': ['TV-Y', 'TV-Y7', 'TV-Y7-FV', 'TV-G', 'TV-PG', 'TV-PG-D-L', 'TV-14', 'TV-14-D-V',
    'TV-MA', 'TV-MA-L-S-V'],
  'USA-MPAA': ['G', 'PG', 'PG-13', 'R', 'NC-17', 'X', 'NR'],
  'CAN-ENG': ['E', 'C', 'C8+', 'G', 'PG', '14+', '18+'],
  'CAN-FRA': ['E', 'G', '8 ans+', '13 ans+', '16 ans+', '18 ans+'],
};

/** A panel with the check. */
export function ratingCheck() {
  const offered = h('datalist', {id: 'pc-ratings'});
  const offer = (system) => fill(offered, systems[system].map((value) => h('option', {value})));
  const answer = h('p', {class: 'pc-answer', role: 'status', 'data-test': 'check-result'});
  const system = choice({
    label: t('parental.checkSystem'), test: 'check-system', value: 'USA-TV',
    options: Object.keys(systems).map((each) => [each, t(`parental.system.${each}`)]),
    onChange: (chosen) => {
      offer(chosen);
      fill(answer);
    },
  });
  const rating = h('input', {class: 'field', type: 'text', list: 'pc-ratings', value: 'TV-14-D-V',
    'aria-label': t('parental.checkRating'), 'data-test': 'check-rating', spellcheck: 'false',
    autocomplete: 'off',
    // A rating that is known is checked as soon as it is typed.
    oninput: () => (systems[system.value].includes(rating.value.trim()) ? check() : fill(answer))});
  offer('USA-TV');

  async function check(event) {
    event?.preventDefault();
    try {
      const {blocked} = await ask('CHECKRAT', {system: system.value, rating: rating.value.trim()});
      answer.classList.toggle('is-blocked', blocked);
      fill(answer, icon(blocked ? 'lock' : 'check'),
          t(blocked ? 'parental.checkBlocked' : 'parental.checkAllowed',
              {rating: rating.value.trim()}));
    } catch (error) {
      tellError(error);
    }
  }

  return h('form', {class: 'panel pc-section', onsubmit: check},
      h('h2', {}, t('parental.check')), h('p', {class: 'dim'}, t('parental.checkMore')), system,
      h('div', {class: 'pc-actions'}, rating, offered,
          h('button', {type: 'submit', class: 'button primary', 'data-test': 'check-send'},
              t('parental.checkSend'))), answer);
}
