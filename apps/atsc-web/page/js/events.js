// The server's events with reconnection. Runs in the shared worker, or in the page without one.

const retryMilliseconds = 500;

/**
 * Calls tell() with {kind: 'state', state, at}, {kind: 'callback', callback}, {kind: 'gone'},
 * {kind: 'connection', connection: 'live'|'lost'} and {kind: 'login'}. Comes back from the last
 * callback seen for as long as it runs.
 */
export function openEvents(tell) {
  let last = '';

  function open() {
    const url = new URL('/api/events', self.location.origin);
    if (last !== '') url.searchParams.set('last', last);
    const source = new EventSource(url);
    source.onopen = () => tell({kind: 'connection', connection: 'live'});
    source.addEventListener('state', (event) => {
      tell({kind: 'state', state: JSON.parse(event.data), at: Date.now()});
    });
    source.addEventListener('callback', (event) => {
      last = event.lastEventId || last;
      tell({kind: 'callback', callback: JSON.parse(event.data)});
    });
    source.addEventListener('gone', () => tell({kind: 'gone'}));
    // The browser's own pause is three seconds, and it gives up after an error answer.
    source.onerror = async () => {
      source.close();
      tell({kind: 'connection', connection: 'lost'});
      try {
        const answer = await fetch('/api/state', {cache: 'no-store'});
        if (answer.status === 401) tell({kind: 'login'});
      } catch {
        // No server at all: the next attempt tells.
      }
      setTimeout(open, retryMilliseconds);
    };
  }

  open();
}
