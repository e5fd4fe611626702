// Dark or light: as the browser asks, or as the viewer chose for this browser.

const key = 'theme';

/** 'auto', 'dark' or 'light'. */
export function theme() {
  try {
    const stored = localStorage.getItem(key);
    return stored === 'dark' || stored === 'light' ? stored : 'auto';
  } catch {
    return 'auto';  // storage is switched off
  }
}

export function setTheme(value) {
  try {
    localStorage.setItem(key, value);
  } catch {
    // It then lasts as long as this page.
  }
  applyTheme(value);
}

export function applyTheme(value = theme()) {
  if (value === 'auto') delete document.documentElement.dataset.theme;
  else document.documentElement.dataset.theme = value;
}

addEventListener('storage', (event) => {
  if (event.key === key) applyTheme();
});
