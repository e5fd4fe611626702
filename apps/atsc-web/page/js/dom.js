// Building the page. Everything that is shown goes through textContent: a text from the air can't
// become markup, whatever it is.

const svgNamespace = 'http://www.w3.org/2000/svg';

/**
 * Creates an element: h('button', {class: 'button', onclick: f, 'aria-label': 'x'}, 'text', node).
 * null, undefined and false leave an attribute or child out; arrays of children are flattened.
 */
export function h(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else if (name === 'value') element.value = value;
    else if (name === 'checked') element.checked = Boolean(value);
    else element.setAttribute(name, value === true ? '' : value);
  }
  append(element, children);
  return element;
}

function append(element, children) {
  for (const child of children) {
    if (Array.isArray(child)) append(element, child);
    else if (child !== undefined && child !== null && child !== false) element.append(child);
  }
}

/** Replaces the children of an element. */
export function fill(element, ...children) {
  element.textContent = '';
  append(element, children);
  return element;
}

/** Sets a text only if it is another one: an unchanged live region stays silent. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

/** Shows or hides an element; returns whether it is shown. */
export function show(element, shown) {
  if (element.hidden === Boolean(shown)) element.hidden = !shown;
  return Boolean(shown);
}

// Controls, and the marks that turn the direction of what follows. Line breaks and tabs are layout.
const invisible = new RegExp('[\\u0000-\\u0008\\u000b-\\u001f\\u007f-\\u009f\\u061c\\u200b\\u200e' +
    '\\u200f\\u2028-\\u202e\\u2060-\\u206f\\ufeff\\ufff9-\\ufffb]');

function codeName(character) {
  return 'U+' + character.codePointAt(0).toString(16).toUpperCase().padStart(4, '0');
}

/** A text from the air for attributes and titles: invisible characters by their number. */
export function airString(text) {
  return [...String(text ?? '')].map((c) => (invisible.test(c) ? `<${codeName(c)}>` : c)).join('');
}

/**
 * A text from the air as an element of its own direction; invisible characters are shown by their
 * number, so that a mark can't turn or hide what is beside it.
 */
export function airText(text, properties = {}) {
  const element = h('bdi', {...properties, class: `air ${properties.class ?? ''}`.trim()});
  setAirText(element, text);
  return element;
}

/** Changes the text of an element that airText() made. */
export function setAirText(element, text) {
  const shown = String(text ?? '');
  if (element.airText === shown) return;
  element.airText = shown;
  if (!invisible.test(shown)) {
    element.textContent = shown;
    return;
  }
  element.textContent = '';
  let plain = '';
  for (const character of shown) {
    if (!invisible.test(character)) {
      plain += character;
      continue;
    }
    element.append(plain, h('span', {class: 'code-point'}, codeName(character)));
    plain = '';
  }
  element.append(plain);
}

const iconPaths = {
  menu: 'M4 7h16M4 12h16M4 17h16',
  guide: 'M3 5h18v14H3zM3 10h18M9 10v9M15 10v5',
  remote: 'M8 3h8a1 1 0 0 1 1 1v16a1 1 0 0 1-1 1H8a1 1 0 0 1-1-1V4a1 1 0 0 1 1-1z' +
    'M12 7h.01M10 12h.01M14 12h.01M10 16h.01M14 16h.01',
  screen: 'M3 5h18v12H3zM8 21h8',
  scan: 'M12 12h.01M8.5 15.5a5 5 0 0 1 0-7M15.5 8.5a5 5 0 0 1 0 7' +
    'M5.6 18.4a9 9 0 0 1 0-12.8M18.4 5.6a9 9 0 0 1 0 12.8',
  channels: 'M8 6h13M8 12h13M8 18h13M3 6h.01M3 12h.01M3 18h.01',
  lock: 'M6 11h12v10H6zM8.5 11V7.5a3.5 3.5 0 0 1 7 0V11',
  settings: 'M4 7h10M18 7h2M4 17h2M10 17h10M16 4.5v5M8 14.5v5',
  developer: 'M8 7l-5 5 5 5M16 7l5 5-5 5M14 4l-4 16',
  power: 'M12 3v9M6.5 6.5a8 8 0 1 0 11 0',
  audio: 'M4 9v6h4l5 4V5L8 9zM16.5 8.5a5 5 0 0 1 0 7M19 6a8.5 8.5 0 0 1 0 12',
  captions: 'M3 5h18v14H3zM7 12h4M13 12h4M7 15.5h6',
  source: 'M4 8h13l-3-3M20 16H7l3 3',
  up: 'M5 15l7-7 7 7',
  down: 'M5 9l7 7 7-7',
  left: 'M15 5l-7 7 7 7',
  right: 'M9 5l7 7-7 7',
  back: 'M9 7l-5 5 5 5M4 12h11a5 5 0 0 1 5 5v1',
  info: 'M12 11v6M12 7.5h.01M12 3a9 9 0 1 0 .01 0z',
  last: 'M4 5v5h5M4.5 10A8 8 0 1 1 4 14',
  star: 'M12 3.5l2.6 5.4 5.9.8-4.3 4.1 1.1 5.9-5.3-2.9-5.3 2.9 1.1-5.9L3.500 9.700l5.900-.8z',
  close: 'M6 6l12 12M18 6L6 18',
  search: 'M10.500 4a6.500 6.500 0 1 0 .01 0zM15.500 15.500L21 21',
  check: 'M4 12.500l5.500 5.500L20 7',
  alert: 'M12 3.500L2.500 20h19zM12 10v5M12 17.500h.01',
  signal: 'M4 20v-3M9 20v-7M14 20V9M19 20V4',
  erase: 'M9 5h12v14H9l-6-7zM12 9.500l5 5M17 9.500l-5 5',
};

/** A line drawing that takes the colour of the text; hidden from screen readers. */
export function icon(name) {
  const svg = document.createElementNS(svgNamespace, 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('class', 'icon');
  svg.setAttribute('aria-hidden', 'true');
  const path = document.createElementNS(svgNamespace, 'path');
  path.setAttribute('d', iconPaths[name] ?? '');
  svg.append(path);
  return svg;
}

/** A function that lets `draw` run once before the next picture, however often it is called. Its
 *  `end` takes back what is due and stops it for good. */
export function drawSoon(draw) {
  let frame = 0;
  const soon = () => {
    if (frame) return;
    frame = requestAnimationFrame(() => {
      frame = 0;
      draw();
    });
  };
  soon.end = () => {
    cancelAnimationFrame(frame);
    frame = -1;
  };
  return soon;
}
