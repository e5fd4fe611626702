// The arrow keys move the focus to what lies in their direction, as on a remote control.

import {focusables, topLayer} from './layers.js';

const directions = {
  ArrowUp: [0, -1], ArrowDown: [0, 1], ArrowLeft: [-1, 0], ArrowRight: [1, 0],
};

// How far a candidate is in the direction, and how far off its line; infinite if it lies elsewhere.
function distance(from, to, [x, y]) {
  const overlapX = Math.min(from.right, to.right) - Math.max(from.left, to.left);
  const overlapY = Math.min(from.bottom, to.bottom) - Math.max(from.top, to.top);
  const slack = 2;  // neighbours may touch or overlap by a border
  if (x !== 0) {
    const ahead = x > 0 ? to.left - from.right : from.left - to.right;
    if (ahead < -slack) return Infinity;
    const centre = Math.abs((from.top + from.bottom) / 2 - (to.top + to.bottom) / 2);
    // What lies in the same row comes before anything beside it.
    return Math.max(0, ahead) + (overlapY > 0 ? 0 : 10000 - overlapY * 4) + centre * 0.15;
  }
  const ahead = y > 0 ? to.top - from.bottom : from.top - to.bottom;
  if (ahead < -slack) return Infinity;
  const off = overlapX > 0 ? 0 : -overlapX * 1.5;
  const centre = Math.abs((from.left + from.right) / 2 - (to.left + to.right) / 2);
  return Math.max(0, ahead) * 3 + off * 2 + centre * 0.15;
}

/** Whether an element uses the arrow keys of this direction itself. */
function keepsArrows(element, key) {
  if (element.closest('[data-keys="own"]')) return true;
  if (element.tagName === 'TEXTAREA' || element.isContentEditable) return true;
  if (element.tagName === 'SELECT') return key === 'ArrowUp' || key === 'ArrowDown';
  if (element.tagName !== 'INPUT') return false;
  if (['checkbox', 'radio', 'button', 'submit'].includes(element.type)) return false;
  if (element.type === 'range') return key === 'ArrowLeft' || key === 'ArrowRight';
  if (key === 'ArrowUp' || key === 'ArrowDown') return element.type === 'number';
  // At the end of its text the focus leaves the field.
  const at = element.selectionStart;
  if (at === null || at !== element.selectionEnd) return true;
  return key === 'ArrowLeft' ? at > 0 : at < element.value.length;
}

/** Moves the focus within the topmost layer; returns whether something was there. */
export function moveFocus(key, layer = topLayer()) {
  const direction = directions[key];
  const all = focusables(layer);
  if (!direction || all.length === 0) return false;
  const active = document.activeElement;
  if (!layer.contains(active) || active === layer) {
    focusOn(all[0]);
    return true;
  }
  const from = active.getBoundingClientRect();
  let best = null;
  let least = Infinity;
  for (const item of all) {
    if (item === active) continue;
    const length = distance(from, item.getBoundingClientRect(), direction);
    if (length < least) [best, least] = [item, length];
  }
  if (best === null) return false;
  focusOn(best);
  return true;
}

function focusOn(element) {
  element.focus({preventScroll: true});
  element.scrollIntoView({block: 'nearest', inline: 'nearest'});
}

/** Handles a keydown if it is an arrow key that nothing else uses. */
export function handleArrow(event) {
  if (!(event.key in directions) || event.altKey || event.ctrlKey || event.metaKey) return false;
  if (keepsArrows(event.target, event.key)) return false;
  if (!moveFocus(event.key)) return false;
  event.preventDefault();
  return true;
}

/** Whether typed letters and digits belong to the element that has the focus. */
export function takesText(element) {
  if (!element?.matches) return false;
  if (element.isContentEditable || element.matches('textarea, select')) return true;
  return element.matches('input') &&
      !['checkbox', 'radio', 'button', 'submit', 'range'].includes(element.type);
}
