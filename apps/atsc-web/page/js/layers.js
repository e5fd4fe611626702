// What lies above the view: menu, dialogs, the remote control, a blocking alert. The topmost modal
// layer has the keyboard; what is below it is inert.

const stack = [];

function host() {
  return document.getElementById('layers');
}

/** The element in which the focus moves: the topmost layer that has it or keeps it, or the view. */
export function topLayer() {
  for (let index = stack.length - 1; index >= 0; --index) {
    const {element, modal} = stack[index];
    if (modal || element.contains(document.activeElement)) return element;
  }
  return document.getElementById('view');
}

export function hasLayer() {
  return stack.length > 0;
}

/** Whether a layer keeps the view from being used. */
export function hasModal() {
  return stack.some((entry) => entry.modal);
}

function refreshInert() {
  let covered = false;
  for (let index = stack.length - 1; index >= 0; --index) {
    stack[index].element.inert = covered;
    covered = covered || stack[index].modal;
  }
  for (const id of ['view', 'topbar']) document.getElementById(id).inert = covered;
}

function isTop(level) {
  return stack.every((entry) => entry.level <= level || !entry.modal);
}

/**
 * Puts an element above the others. A higher level stays above a lower one, whenever it came.
 * onBack: what Escape does (closes the layer if absent, nothing if null). Returns close().
 */
export function openLayer(element, {modal = true, level = 0, onBack, onClose, focus} = {}) {
  const entry = {element, modal, level, onBack, returnTo: document.activeElement};
  const top = isTop(level);
  let index = stack.length;
  while (index > 0 && stack[index - 1].level > level) --index;
  host().insertBefore(element, index < stack.length ? stack[index].element : null);
  stack.splice(index, 0, entry);
  refreshInert();
  let open = true;
  entry.close = () => {
    if (!open) return;
    open = false;
    const hadFocus = element.contains(document.activeElement);
    stack.splice(stack.indexOf(entry), 1);
    element.remove();
    refreshInert();
    if (hadFocus) {
      const usable = document.contains(entry.returnTo) && !entry.returnTo.closest('[inert]');
      (usable && entry.returnTo !== document.body ? entry.returnTo : topLayer())
          .focus({preventScroll: true});
    }
    onClose?.();
  };
  if (top) (focus ?? element.querySelector('[data-focus]') ?? firstFocusable(element))?.focus();
  return entry.close;
}

/** Closes dialogs and the menu, as another view comes; an alert and the remote control stay. */
export function closeDialogs() {
  for (const {level, close} of [...stack]) if (level === 0) close();
}

/** Escape: closes or asks the topmost layer. False if there is none. */
export function back() {
  const entry = stack.findLast((item) => item.modal) ?? stack[stack.length - 1];
  if (!entry) return false;
  if (entry.onBack === null) return true;
  if (entry.onBack) entry.onBack();
  else entry.close();
  return true;
}

const focusableSelector =
  'a[href], button:not([disabled]), input:not([disabled]), select:not([disabled]), ' +
  'textarea:not([disabled]), [tabindex]:not([tabindex="-1"])';

/** What can have the focus inside an element, in the order of the document. */
export function focusables(element) {
  return [...element.querySelectorAll(focusableSelector)].filter(
      (item) => item.tabIndex >= 0 && item.getClientRects().length > 0 && !item.closest('[inert]'));
}

function firstFocusable(element) {
  return focusables(element)[0] ?? element;
}
