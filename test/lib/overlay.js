'use strict';

const assert = require('node:assert');
const { until } = require('./processes');
const { CARDINALS } = require('./x');

/** The overlay: the application's viewable window that is larger than those of hosts here. */
async function findOverlay(x, app) {
  const pid = CARDINALS(app.pid);
  const look = async (id) => {
    if ((await x.getProperty(id, '_NET_WM_PID')).equals(pid) && (await x.viewable(id)))
      if ((await x.geometry(id)).width > 300) return id;
    for (const child of await x.children(id)) {
      const found = await look(child).catch(() => {}); // a window may die meanwhile
      if (found) return found;
    }
  };
  return look(x.root);
}

/** Moves the pointer until the overlay of the area shows its cross there: it gets the pointer. */
const hover = (x, px, py, left = 0, top = 0) =>
  until(async () => {
    for (const step of [1, 0]) x.moveTo(px + step, py);
    await x.sync();
    return [await x.pixel(px, top), await x.pixel(left, py)].every((color) => color === 0xffffff);
  }, 'the cross of the overlay');

/** Asks for a selection and resolves to its window. `inside(result)`, if set there, runs within. */
async function openSelection(x, app) {
  await app.run(() => {
    global.results = [];
    kiv.getScreenSnapAsync('selection', (result) => {
      global.results.push(result);
      if (global.inside) global.inside(result);
    });
  });
  return until(() => findOverlay(x, app), 'the overlay');
}

/** [errorCode, width, height] of each call back, once there was one and the overlay has gone. */
async function outcome(x, app) {
  const ended = () => app.run(() => global.results.length > 0);
  await until(
    async () => (await ended()) && !(await findOverlay(x, app)),
    'the end of a selection',
  );
  const [calls, free] = await app.run(() => {
    let called = false;
    kiv.getScreenSnapAsync('display', () => {
      called = true;
    });
    return [global.results.map((one) => [one.errorCode, one.width, one.height]), called];
  });
  assert.ok(free, 'the guard is taken after the end');
  return calls;
}

const dim = (color) =>
  [16, 8, 0].reduce(
    (sum, bits) => sum | (Math.round((((color >> bits) & 255) * 150) / 255) << bits),
    0,
  );

/**
 * Pixels in which a screen is not what the overlay has to show of a picture: as it is inside the
 * rectangle, dimmed outside, with the cross's row and column dashed. `corner` is the overlay's; a
 * rectangle that shrinks may take dashes beside it away.
 */
function wrongPixels(shown, picture, stride, { cross: [cx, cy], area, corner = [0, 0], shrunk }) {
  const [left, top, width, height] = area;
  let wrong = 0;
  for (let i = 0; i < picture.length / 4; ++i) {
    const [column, row] = [i % stride, Math.floor(i / stride)];
    const [color, is] = [picture, shown].map((bytes) => bytes.readUInt32LE(i * 4) & 0xffffff);
    const inside = column >= left && column < left + width && row >= top && row < top + height;
    const dashed =
      (column === cx && (row - corner[1]) % 8 < 4) || (row === cy && (column - corner[0]) % 8 < 4);
    const gap = shrunk && dashed && is === dim(color);
    if (!gap && is !== (inside ? color : dashed ? 0xffffff : dim(color))) wrong += 1;
  }
  return wrong;
}

module.exports = { findOverlay, hover, openSelection, outcome, wrongPixels };
