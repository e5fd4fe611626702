// Addresses of the views.

/** Goes to a view: navigate('guide'), navigate('developer/rows'). */
export function navigate(path) {
  location.hash = `#/${path === 'screen' ? '' : path}`;
}
