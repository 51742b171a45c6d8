'use strict';

const { until } = require('./processes');
const { CARDINALS } = require('./x');

const within = (value, a, b) => Math.min(a, b) <= value && value < Math.max(a, b);

/** Finds the overlay: the application's viewable window that is larger than hosts' windows here. */
async function findOverlay(x, app, id = x.root) {
  const mine = (await x.getProperty(id, '_NET_WM_PID')).equals(CARDINALS(app.pid));
  if (mine && (await x.viewable(id)) && (await x.geometry(id)).width > 300) return id;
  for (const child of await x.children(id)) {
    const found = await findOverlay(x, app, child).catch(() => {}); // it may be destroyed meanwhile
    if (found) return found;
  }
}

/** Simulates input: a name presses or releases, a point moves the pointer, a number is a key. */
function act(x, ...steps) {
  for (const step of steps)
    if (Array.isArray(step)) x.moveTo(...step);
    else if (x[step]) x[step]();
    else x.key(step);
}

/** Moves the pointer there until the overlay shows its cross. */
const hover = (x, [px, py]) =>
  until(async () => {
    act(x, [px + 1, py], [px, py], 'sync');
    return (await x.pixel(px, 0)) === 0xffffff;
  }, 'the cross of the overlay');

/** Opens a selection, requests an ignored second one, moves the pointer in; gives its window. */
async function openSelection(x, app, at = [320, 240]) {
  await app.run(() => {
    global.results = [];
    const done = (snap) => global.results.push(snap) && global.inside && global.inside(done);
    kiv.getScreenSnapAsync('selection', done);
    kiv.getScreenSnapAsync('desktop', done);
  });
  const id = await until(() => findOverlay(x, app), 'the overlay');
  if (!at) return id;
  await hover(x, [at[0] + 5, at[1] + 5]); // the first motion does not remove the first cross
  await hover(x, at);
  return id;
}

/** [errorCode, width, height] of each callback, after the overlay closed; 0 if the guard stays. */
async function outcome(x, app) {
  await until(() => app.run(() => global.results.length), 'the end of a selection');
  await until(async () => !(await findOverlay(x, app)), 'the overlay to close');
  return app.run(() => {
    const free = [];
    kiv.getScreenSnapAsync('display', (snap) => free.push(snap));
    return free.length && global.results.map((one) => [one.errorCode, one.width, one.height]);
  });
}

/** Whether a screen shows the picture between two points, dimmed elsewhere, a cross at `b`. */
function showsRectangle(shown, { picture, area }, [ax, ay], [bx, by]) {
  for (let i = 0; i < picture.length; ++i) {
    const [column, row] = [(i >> 2) % area.width, Math.floor(i / 4 / area.width)];
    const inside = within(column, ax, bx) && within(row, ay, by);
    const dashed = (column === bx && row % 8 < 4) || (row === by && column % 8 < 4);
    const outside = dashed ? 255 : Math.round((picture[i] * 150) / 255);
    if (i % 4 < 3 && shown[i] !== (inside ? picture[i] : outside)) return false;
  }
  return true;
}

module.exports = { act, hover, openSelection, outcome, showsRectangle };
