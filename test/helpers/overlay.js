'use strict';

// The selection overlay for cases: old syntax.
/* global X, kiv, until */
const { decodePng } = require('./images');

function windowsBeneath(client, id) {
  const found = [];
  for (const child of client.children(id)) found.push(child, ...windowsBeneath(client, child));
  return found;
}

// A window may die while the tree is walked.
function quietly(question) {
  try {
    return question();
  } catch (error) {
    return null;
  }
}

/** The overlay's X window, or undefined: the process's only viewable window with a process id. */
function findOverlay(client, owner = process.pid) {
  const mine = (id) => {
    const pid = client.getProperty(id, '_NET_WM_PID');
    return pid && pid.count === 1 && pid.data.readUInt32LE(0) === owner && client.geometry(id).viewable;
  };
  return (quietly(() => windowsBeneath(client, client.rootWindow(0))) || []).find((id) => quietly(() => mine(id)));
}

// The window manager has put it on the monitor, on which the tests leave the pointer.
function onScreen(client, id) {
  const { x, y, width, height } = client.geometry(id);
  const { x: px, y: py } = client.pointer();
  return px >= x && py >= y && px < x + width && py < y + height;
}

/**
 * Starts a selection and waits until the overlay is there. { client, id, results, finished },
 * where `results` are those the function was called with and `finished()` waits for the first.
 */
async function openSelection(client, { callback } = {}) {
  const results = [];
  kiv.getScreenSnapAsync('selection', (result) => {
    results.push(result);
    if (callback) callback(result);
  });
  // What happens earlier would happen to whatever lies below. GTK's first window makes another one,
  // which does not stay.
  const there = () => {
    const found = findOverlay(client);
    return found && quietly(() => onScreen(client, found)) && found;
  };
  const id = await until(there, { what: 'the overlay on the screen' });
  const finished = () => until(() => results[0], { what: 'the end of the selection' });
  return { client, id, results, finished };
}

/** Moves, presses and releases the real pointer: 'm x y', 'p [button]', 'r [button]'. */
function act(client, ...steps) {
  for (const step of steps) {
    const [what, a, b] = step.split(' ').map((word, i) => (i ? Number(word) : word));
    if (what === 'm') client.motion(a, b);
    else client.button(a || 1, what === 'p');
  }
}

function key(client, code) {
  client.key(code, true);
  client.key(code, false);
}

const ESCAPE = 9;

/** Waits until the function has been called and a moment in which a second call would come. */
async function settle(selection) {
  await selection.finished();
  await until(() => !findOverlay(selection.client), { what: 'the overlay to be gone' });
  for (let i = 0; i < 5; ++i) await new Promise(setImmediate);
  return selection.results.map(({ errorCode, width, height, data }) => [errorCode, width, height, data.length > 0]);
}

/** BGRX pixels of a decoded PNG. */
function bgrx(file) {
  const { width, height, channels, pixels } = decodePng(file);
  const bytes = Buffer.alloc(width * height * 4);
  for (let i = 0; i < width * height; ++i) {
    for (let c = 0; c < 3; ++c) bytes[i * 4 + 2 - c] = pixels[i * channels + c];
  }
  return bytes;
}

/** Pixels in which two BGRX pictures differ, the unused byte aside. */
function difference(a, b) {
  if (a.length !== b.length) return -1;
  let count = 0;
  for (let i = 0; i < a.length; i += 4) {
    if (a[i] !== b[i] || a[i + 1] !== b[i + 1] || a[i + 2] !== b[i + 2]) ++count;
  }
  return count;
}

/** Cuts a rectangle out of a BGRX picture. */
function crop(bytes, stride, x, y, width, height) {
  const rows = [];
  for (let row = y; row < y + height; ++row) {
    rows.push(bytes.slice((row * stride + x) * 4, (row * stride + x + width) * 4));
  }
  return Buffer.concat(rows);
}

/** A picture behind all windows; `draw()` renews it and returns what the screen then shows. */
async function desktop(client, width, height) {
  const { pixels } = require('../../bench/pictures');
  const bytes = pixels('busy', width, height);
  const id = client.createWindow({ width, height });
  const type = Buffer.from(new Int32Array([client.atom('_NET_WM_WINDOW_TYPE_DESKTOP')]).buffer);
  client.setProperty(id, '_NET_WM_WINDOW_TYPE', 'ATOM', 32, type);
  client.map(id);
  await until(() => client.geometry(id).viewable, { what: 'the desktop window' });
  const root = client.rootWindow(0);
  const shown = () => client.getImage(root, 0, 0, width, height);
  const draw = () => {
    client.drawImage(id, 0, 0, width, height, bytes);
    client.sync();
    return shown();
  };
  await until(() => difference(draw(), bytes) === 0, { what: 'the picture on the desktop' });
  return { id, draw };
}

module.exports = { ESCAPE, act, bgrx, crop, desktop, difference, findOverlay, onScreen, key, openSelection, settle };
