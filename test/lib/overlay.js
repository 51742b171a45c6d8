'use strict';

const assert = require('node:assert');
const { until } = require('./processes');
const { CARDINALS } = require('./x');

const WHITE = 0xffffff;
const color = (bytes, i) => bytes.readUInt32LE(i * 4) & WHITE;
const DIMMED = Array.from({ length: 256 }, (_, value) => Math.round((value * 150) / 255));
const dim = (c) => (DIMMED[c >> 16] << 16) | (DIMMED[(c >> 8) & 255] << 8) | DIMMED[c & 255];

/** The overlay: the application's viewable window that is larger than those of hosts here. */
async function findOverlay(x, app, id = x.root) {
  const mine = (await x.getProperty(id, '_NET_WM_PID')).equals(CARDINALS(app.pid));
  if (mine && (await x.viewable(id)) && (await x.geometry(id)).width > 300) return id;
  for (const child of await x.children(id)) {
    const found = await findOverlay(x, app, child).catch(() => {}); // it may die meanwhile
    if (found) return found;
  }
}

/** The person's hands: a name presses or releases, a point moves the pointer, a number is a key. */
function act(x, ...steps) {
  for (const step of steps)
    if (Array.isArray(step)) x.moveTo(...step);
    else if (x[step]) x[step]();
    else x.key(step);
}

/** Moves the pointer until the overlay shows its cross there, from the corner of its monitor. */
const hover = (x, [px, py], [left, top] = [0, 0]) =>
  until(async () => {
    act(x, [px + 1, py], [px, py], 'sync');
    return (await x.pixel(px, top)) === WHITE && (await x.pixel(left, py)) === WHITE;
  }, 'the cross of the overlay');

/** Asks for a selection, and in vain for another; resolves to its window, with the pointer there. */
async function openSelection(x, app, at = [320, 240], corner = [0, 0]) {
  await app.run(() => {
    global.results = [];
    global.again = (snap) => global.results.push(snap);
    kiv.getScreenSnapAsync(
      'selection',
      (snap) => global.again(snap) && global.inside && global.inside(),
    );
    kiv.getScreenSnapAsync('desktop', global.again);
  });
  const id = await until(() => findOverlay(x, app), 'the overlay');
  if (!at) return id;
  await hover(x, [at[0] + 5, at[1] + 5], corner); // the first motion leaves the first cross
  await hover(x, at, corner);
  return id;
}

/** [errorCode, width, height] of each call back, once there was one and the overlay has gone. */
async function outcome(x, app) {
  await until(() => app.run(() => global.results.length), 'the end of a selection');
  await until(async () => !(await findOverlay(x, app)), 'no overlay');
  const [free, ...calls] = await app.run(() => {
    const seen = [];
    kiv.getScreenSnapAsync('display', () => seen.push('free'));
    return seen.concat(global.results.map((one) => [one.errorCode, one.width, one.height]));
  });
  assert.strictEqual(free, 'free', 'the guard is taken after the end');
  return calls;
}

/**
 * Pixels in which a screen is not what the overlay has to show: the picture inside the rectangle,
 * dimmed outside, the cross's row and column dashed (one that shrinks may wipe dashes away).
 */
function wrongPixels(shown, picture, stride, [cx, cy], [left, top, width, height], shrunk) {
  let wrong = 0;
  for (let i = 0; i < picture.length / 4; ++i) {
    const [column, row, is] = [i % stride, Math.floor(i / stride), color(shown, i)];
    const inside = column >= left && column < left + width && row >= top && row < top + height;
    const dashed = (column === cx && row % 8 < 4) || (row === cy && column % 8 < 4);
    const wanted = inside ? color(picture, i) : dim(color(picture, i));
    if (is !== (dashed && !inside ? WHITE : wanted) && !(shrunk && dashed && is === wanted))
      wrong++;
  }
  return wrong;
}

module.exports = { act, color, hover, openSelection, outcome, wrongPixels };
