import {h} from '../dom.js';
export const view = {name: 'screen', mount(box) { box.append(h('div', {})); }};
