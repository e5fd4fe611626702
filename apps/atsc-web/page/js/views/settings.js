import {h} from '../dom.js';
export const view = {name: 'settings', mount(box) { box.append(h('div', {})); }};
