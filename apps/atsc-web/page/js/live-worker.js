// The one connection of all pages of a browser to the server's events. A browser opens six
// connections to a host; a stream in each of six pages would leave none for anything else.

import {openEvents} from './events.js';

const ports = new Set();
let newest = null;  // the last state, for a page that comes later
let status = {kind: 'connection', connection: 'lost'};
let opened = false;

function tell(message) {
  if (message.kind === 'state') newest = message;
  if (message.kind === 'connection') status = message;
  for (const port of ports) port.postMessage(message);
}

self.onconnect = (event) => {
  const port = event.ports[0];
  port.onmessage = ({data}) => {
    if (data === 'bye') {
      ports.delete(port);
      return;
    }
    ports.add(port);
    if (newest !== null) port.postMessage(newest);
    port.postMessage(status);
    if (!opened) openEvents(tell);
    opened = true;
  };
};
