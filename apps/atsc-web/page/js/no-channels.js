// What a view of channels shows instead of nothing.

import {h, setText, show} from './dom.js';
import {navigate} from './navigate.js';
import {button} from './parts.js';
import {t} from './texts.js';

/**
 * Returns a hidden element with say(text, search): shows the text, and the way to the channel
 * search; say('') hides it.
 */
export function noChannels() {
  const words = h('p', {role: 'status'});
  const search = button({test: 'no-channels-search', text: t('menu.scan'), kind: 'primary big',
    run: () => navigate('scan')});
  const element = h('div', {'class': 'no-channels', 'data-test': 'no-channels', 'hidden': true},
      words, search);
  element.say = (text, withSearch = false) => {
    show(element, text !== '');
    show(search, withSearch);
    setText(words, text);
  };
  return element;
}
