// The server of this page, and the commands of the library through it.

import {t} from './texts.js';

/** An answer that is no success: the HTTP status (0 without an answer) and the server's code. */
export class ApiError extends Error {
  constructor(status, code, message) {
    super(message || code);
    this.status = status;
    this.code = code;
  }
}

let grant = '';

async function request(path, options) {
  let response;
  try {
    response = await fetch(path, {...options, cache: 'no-cache', credentials: 'same-origin'});
  } catch {
    throw new ApiError(0, 'lost', t('connection.lost'));
  }
  const text = await response.text();
  let body = null;
  try {
    body = text === '' ? null : JSON.parse(text);
  } catch {
    throw new ApiError(response.status, 'answer', t('error.answer'));
  }
  // The cookie has gone, for example because the token is another one now.
  if (response.status === 401) location.reload();
  if (!response.ok) {
    throw new ApiError(response.status, body?.error ?? 'error', body?.message ?? '');
  }
  return body;
}

/** GET: path with an object of query parameters; undefined ones are left out. */
export function get(path, parameters = {}) {
  const query = new URLSearchParams();
  for (const [name, value] of Object.entries(parameters)) {
    if (value !== undefined && value !== null) query.set(name, value);
  }
  const text = query.toString();
  return request(text === '' ? path : `${path}?${text}`, {method: 'GET'});
}

/** POST of JSON; a string is sent as it is (the console's raw text). */
export function post(path, body) {
  return request(path, {
    method: 'POST',
    headers: {'Content-Type': 'application/json', ...(grant ? {'X-Grant': grant} : {})},
    body: typeof body === 'string' ? body : JSON.stringify(body),
  });
}

/** Sends a command of the library; resolves with {result, reply, ms}. */
export function command(message) {
  return post('/api/command', message);
}

/** Checks a PIN; a right one opens the protected commands for a while. */
export async function checkPin(pin) {
  const answer = await post('/api/pin', {op: 'check', pin});
  if (answer.ok) grant = answer.grant;
  return answer;
}

/** Sets or changes the PIN. */
export async function setPin(pin, old) {
  const answer = await post('/api/pin', {op: 'set', pin, ...(old === undefined ? {} : {old})});
  if (answer.ok && answer.grant) grant = answer.grant;
  return answer;
}

/** Unlocks what is blocked now. */
export async function unlock(pin) {
  const answer = await post('/api/pin', {op: 'unlock', pin});
  if (answer.ok && answer.grant) grant = answer.grant;
  return answer;
}

/** Ends the time in which protected commands need no PIN. */
export async function closeGrant() {
  if (grant === '') return;
  await post('/api/pin', {op: 'close'});
  grant = '';
}

/**
 * A command that may need the PIN: asks for it when the server wants one, then sends the command
 * again. Rejects with code "cancelled" when the viewer does not give it.
 */
export async function protectedCommand(message) {
  try {
    return await command(message);
  } catch (error) {
    if (error.code !== 'pin') throw error;
  }
  grant = '';
  const {askPin} = await import('./dialog.js');
  if (!(await askPin({reason: t('pin.protected')}))) throw new ApiError(403, 'cancelled', '');
  return command(message);
}
