'use strict';

// Compares the module with packages that people use for the same tasks, on the same screen in the
// same run, and prints a table. scripts/peers installs them first.

const os = require('os');
const path = require('path');
const { until } = require('../../test/lib/processes');
const { FULL, LARGE, inSession, interleaved, median, run, table } = require('../measure');

const PACKAGES = path.join(__dirname, '../../.cache/peers/node_modules');
const PRESSES = 50000;

const load = (name) => require(path.join(PACKAGES, name));
// Packages that return raw pixels are combined with sharp as the encoder.
const raw = (data, width, height, channels = 4) =>
  load('sharp')(data, { raw: { width, height, channels } });
async function shot() {
  const image = await load('node-screenshots').Monitor.all()[0].captureImage();
  return raw(await image.toRaw(), image.width, image.height);
}
function robotjs() {
  load('robotjs').setXDisplayName(process.env.DISPLAY); // default: the first display
  const { image, width, height } = load('robotjs').screen.capture();
  return raw(image, width, height);
}
async function nut() {
  const { data, width, height, channels } = await load('@nut-tree-fork/nut-js').screen.grab();
  return raw(data, width, height, channels);
}

function pictures(format, options) {
  const extension = format === 'jpeg' ? 'jpg' : format;
  const encoded = (take) => async () => (await take()).removeAlpha()[format](options).toBuffer();
  return {
    'node-screenshots + sharp': encoded(shot),
    'robotjs + sharp': encoded(robotjs),
    'nut-js + sharp': encoded(nut),
    'screenshot-desktop': () => load('screenshot-desktop')({ format: extension }),
  };
}
async function withThumbnail() {
  const image = await shot();
  const sizes = [image.clone().resize(1920, 1080), image.clone().resize(620, 320, { fit: 'fill' })];
  const both = sizes.map((sized) => sized.jpeg({ quality: 50 }).toBuffer());
  return (await Promise.all(both))[0];
}
const fitted = { 'node-screenshots + sharp': withThumbnail };
const titles = {
  '@paymoapp/active-window': () => load('@paymoapp/active-window').ActiveWindow.getActiveWindow(),
  'x-win': () => load('@miniben90/x-win').activeWindow(),
  'get-windows': async () =>
    (await import(path.join(PACKAGES, 'get-windows', 'index.js'))).activeWindow(),
};
const idle = { 'desktop-idle': () => load('desktop-idle').getIdleTime() };

const jpegOfMine = () => kiv.getScreenSnap('desktop', true).data;
const pngOfMine = () =>
  new Promise((resolve) => kiv.getScreenSnapAsync('desktop', (snap) => resolve(snap.data)));
/** [piece, screen, rounds, the module's call, the peers' calls]; calls may return bytes. */
const PIECES = [
  ['JPEG, 1920 × 1080', FULL, 15, jpegOfMine, pictures('jpeg', { quality: 25 })],
  ['PNG, 1920 × 1080', FULL, 5, pngOfMine, pictures('png')],
  ['PNG, 3840 × 2160', LARGE, 3, pngOfMine, pictures('png')],
  ['fitted JPEG and thumbnail, 3840 × 2160', LARGE, 9, jpegOfMine, fitted],
  ['title and process', FULL, 60, () => internals.activeTask(), titles],
  ['idle time', FULL, 100, () => kiv.getInputInfo(), idle],
];

/** Runs in a process with the module and one peer. */
async function both(piece, peer) {
  const [, , rounds, mine, peers] = PIECES[piece];
  const subjects = { mine, theirs: peers[peer] };
  // The pause lets a tool's process exit, and the server notice it.
  const times = await interleaved(subjects, rounds, { pause: 50 });
  const results = [];
  for (const [name, call] of Object.entries(subjects)) {
    const picture = await call();
    const what = Buffer.isBuffer(picture) ? `, ${Math.round(picture.length / 1024)} kB` : '';
    results.push({ ms: median(times[name]), what });
  }
  return results;
}

let keys = 0;
/** Makes the peer, or without one the module, count keys from now on. */
function countKeys(peer) {
  if (!peer) return;
  const { uIOhook } = load(peer);
  kiv.teardown();
  uIOhook.on('keydown', () => ++keys);
  uIOhook.start();
}
/** The count, once it is stable, and the processor microseconds used so far. */
async function counted() {
  const count = () => keys + kiv.getInputInfo().keyboardActivity;
  let last;
  do {
    last = count();
    await new Promise((resolve) => setTimeout(resolve, 500));
  } while (count() !== last);
  const { user, system } = process.cpuUsage();
  return [last, user + system];
}

/** Calls `f` with an application on a desktop. Undefined on failure, since peers may crash. */
async function inDesktop(size, f) {
  const inApp = async (app, { x }) => {
    await x.activeWindow({ title: 'A window', pid: process.pid });
    await app.run(() => {
      global.peers = require('../../bench/peers/run');
    });
    return f(app, x);
  };
  return inSession(size, inApp, { wm: 'openbox', tidy: false }).catch(console.error);
}

// Key presses of another program: how many arrive, and the processor time of each.
const burst = (peer) =>
  inDesktop(FULL, async (app, x) => {
    await app.run((name) => peers.countKeys(name), peer);
    const press = async (times) => {
      for (let i = 0; i < times; ++i) x.key();
      await x.sync();
      return app.run(() => peers.counted());
    };
    // A hook takes a while to start.
    await until(async () => (await press(1))[0] > 0, 'a key press');
    const [known, before] = await press(0);
    const [count, after] = await press(PRESSES);
    const ms = (after - before) / PRESSES / 1000;
    return { ms, what: ` of processor, ${PRESSES - count + known} lost` };
  });

const time = (ms) =>
  ms < 1 ? `${(ms * 1000).toFixed(0)} µs` : `${ms.toFixed(ms < 10 ? 1 : 0)} ms`;
const row = (Piece, Beside, [mine, theirs]) => ({
  Piece,
  Beside,
  'This module': time(mine.ms) + mine.what,
  'The other': time(theirs.ms) + theirs.what,
  'Times the module': (theirs.ms / mine.ms).toFixed(1),
});

async function main() {
  const rows = [];
  for (const [i, [piece, screen, , , others]] of PIECES.entries()) {
    for (const other of Object.keys(others)) {
      const call = (app) => app.run((...args) => peers.both(...args), i, other);
      const found = await inDesktop(screen, call);
      if (found) rows.push(row(piece, other, found));
    }
  }
  const bursts = [await burst(), await burst('uiohook-napi')];
  if (bursts[1]) rows.push(row('a key of a burst of 50,000', 'uiohook-napi', bursts));
  const machine = `${os.cpus().length} cores (${os.cpus()[0].model.trim()})`;
  table(`${new Date().toISOString().slice(0, 10)}, ${machine}, Node ${process.version}`, rows);
}

module.exports = { both, countKeys, counted };
if (require.main === module) run(main);
