'use strict';

// The module beside the packages and tools that people use for the same pieces, on the same screen in
// the same run: run.js [--readme]. scripts/peers installs them first. --readme renews the README's
// table.

const { execFile, execFileSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { promisify } = require('util');
const { until } = require('../../test/lib/processes');
const { inSession, median } = require('../measure');
const { pixels } = require('../pictures');

const ROOT = path.join(__dirname, '..', '..');
const PACKAGES = path.join(ROOT, '.cache', 'peers', 'node_modules');
const MARKS = ['<!-- peers -->', '<!-- /peers -->'];
const PRESSES = 50000;
const [FULL, LARGE] = [
  [1920, 1080],
  [3840, 2160],
];

const load = (name) => require(path.join(PACKAGES, name));
const tool = async (name, ...args) => (await promisify(execFile)(name, args)).stdout;
async function written(extension, name, ...args) {
  const file = path.join(process.env.TMPDIR, `picture.${extension}`);
  await tool(name, ...args.map((arg) => arg.replace('FILE', file)));
  return fs.readFileSync(file);
}

// Those that give raw pixels get sharp as their encoder.
function pictures(format) {
  const extension = format === 'jpeg' ? 'jpg' : 'png';
  const encode = (data, width, height, channels) =>
    load('sharp')(data, { raw: { width, height, channels } })
      .removeAlpha()
      [format](format === 'jpeg' ? { quality: 25 } : {})
      .toBuffer();
  return {
    'node-screenshots + sharp': async () => {
      const image = await load('node-screenshots').Monitor.all()[0].captureImage();
      return encode(await image.toRaw(), image.width, image.height, 4);
    },
    'robotjs + sharp': () => {
      const robot = load('robotjs');
      robot.setXDisplayName(process.env.DISPLAY); // else the first there is
      const { image, width, height } = robot.screen.capture();
      return encode(image, width, height, 4);
    },
    'nut-js + sharp': async () => {
      const { data, width, height, channels } = await load('@nut-tree-fork/nut-js').screen.grab();
      return encode(data, width, height, channels);
    },
    'screenshot-desktop': () => load('screenshot-desktop')({ format: extension }),
    scrot: () => written(extension, 'scrot', '-q', '25', '-o', 'FILE'),
    maim: () => written(extension, 'maim', '-f', extension, 'FILE'),
    import: () =>
      written(
        extension,
        'import',
        '-window',
        'root',
        '-quality',
        format === 'jpeg' ? '25' : '75',
        'FILE',
      ),
  };
}

async function fitted() {
  const image = await load('node-screenshots').Monitor.all()[0].captureImage();
  const { width, height } = image;
  const raw = load('sharp')(await image.toRaw(), { raw: { width, height, channels: 4 } });
  const jpeg = (...how) =>
    raw
      .clone()
      .resize(...how)
      .jpeg({ quality: 50 })
      .toBuffer();
  const both = [jpeg(1920, 1080, { fit: 'inside' }), jpeg(620, 320, { fit: 'fill' })];
  return (await Promise.all(both))[0];
}

const titles = {
  '@paymoapp/active-window': () => load('@paymoapp/active-window').ActiveWindow.getActiveWindow(),
  'x-win': () => load('@miniben90/x-win').activeWindow(),
  'get-windows': async () =>
    (await import(path.join(PACKAGES, 'get-windows', 'index.js'))).activeWindow(),
};
const idleTimes = {
  'desktop-idle': () => load('desktop-idle').getIdleTime(),
  xprintidle: () => tool('xprintidle'),
};

const jpegOfMine = () => kiv.getScreenSnap('desktop', true).data;
const pngOfMine = () =>
  new Promise((resolve) => kiv.getScreenSnapAsync('desktop', (snap) => resolve(snap.data)));
/** [piece, screen, rounds, the module's call, the peers' calls]; bytes where there are any. */
const PIECES = [
  ['JPEG, 1920 × 1080', FULL, 15, jpegOfMine, pictures('jpeg')],
  ['PNG, 1920 × 1080', FULL, 5, pngOfMine, pictures('png')],
  ['PNG, 3840 × 2160', LARGE, 3, pngOfMine, pictures('png')],
  [
    'fitted JPEG and thumbnail, 3840 × 2160',
    LARGE,
    9,
    jpegOfMine,
    { 'node-screenshots + sharp': fitted },
  ],
  ['title and process', FULL, 60, () => internals.activeTask(), titles],
  ['idle time', FULL, 100, () => kiv.getInputInfo(), idleTimes],
];

/** In a process with the module and one peer, which may end it. */
async function beside(piece, peer) {
  const [, , rounds, mine, peers] = PIECES[piece];
  const subjects = { mine, theirs: peers[peer] };
  const times = { mine: [], theirs: [] };
  const bytes = {};
  for (let round = -1; round < rounds; ++round) {
    for (const [name, call] of Object.entries(subjects)) {
      // Until a tool's process is gone, for the server as well.
      await new Promise((resolve) => setTimeout(resolve, 50));
      const start = process.hrtime.bigint();
      const result = await call();
      // The first round loads.
      if (round >= 0) times[name].push(Number(process.hrtime.bigint() - start) / 1e6);
      bytes[name] = Buffer.isBuffer(result) ? result.length : 0;
    }
  }
  return { mine: median(times.mine), theirs: median(times.theirs), bytes };
}

let countedKeys = 0;

/** Has the peer or the module count keys from now on. */
function countKeys(peer) {
  if (!peer) return;
  const { uIOhook } = load('uiohook-napi');
  kiv.teardown();
  uIOhook.on('keydown', () => ++countedKeys);
  uIOhook.start();
}

/** The count, once it stays, and the microseconds of processor so far. */
async function settled() {
  const count = () => countedKeys + kiv.getInputInfo().keyboardActivity;
  let last;
  do {
    last = count();
    await new Promise((resolve) => setTimeout(resolve, 500));
  } while (count() !== last);
  const { user, system } = process.cpuUsage();
  return [last, user + system];
}

const inDesktop = ([width, height], f) =>
  inSession(
    { screens: [`${width}x${height}`], wm: 'openbox' },
    async (app, { x }) => {
      await x.wallpaper(width, height, pixels(width, height));
      await x.activeWindow({ title: 'A window', pid: process.pid });
      await app.run(() => {
        global.peers = require('../../bench/peers/run');
      });
      return f(app, x);
    },
    { tidy: false },
  ).catch(({ message }) => {
    const lines = message.split('\n');
    const line = lines.find((text) => /Error|error|cannot|failed/.test(text)) || lines[0];
    return { failure: `fails: ${line.slice(0, 80)}` };
  });

// A burst of somebody else's key presses: how many arrive, and the process's time for each.
const burst = (peer) =>
  inDesktop(FULL, async (app, x) => {
    await app.run((name) => peers.countKeys(name), peer);
    const press = async (times) => {
      for (let i = 0; i < times; ++i) x.key();
      await x.sync();
      return app.run(() => peers.settled());
    };
    // A hook takes its time to be there.
    await until(async () => (await press(1))[0] > 0, 'a key that arrives');
    const [known, before] = await app.run(() => peers.settled());
    const [count, after] = await press(PRESSES);
    const each = (after - before) / PRESSES;
    return { each, text: `${each.toFixed(0)} µs of processor, ${PRESSES - count + known} lost` };
  });

const time = (ms) =>
  ms < 1 ? `${(ms * 1000).toFixed(0)} µs` : `${ms.toFixed(ms < 10 ? 1 : 0)} ms`;
const size = (bytes) => (bytes ? `, ${Math.round(bytes / 1024)} kB` : '');

function cells({ failure, mine, theirs, bytes }) {
  if (failure) return ['', failure, ''];
  const own = time(mine) + size(bytes.mine);
  // A capture that failed without a word is all of one colour.
  if (bytes.mine > 0 && bytes.theirs < bytes.mine / 10) return [own, 'fails: a blank picture', ''];
  return [own, time(theirs) + size(bytes.theirs), (theirs / mine).toFixed(1)];
}

async function main() {
  const rows = [
    ['Piece', 'Beside', 'This module', 'The other', 'Times the module'],
    Array(5).fill('---'),
  ];
  const add = (...row) => {
    rows.push(row);
    console.log(row.join(' | '));
  };
  for (const [i, [piece, screen, , , peers]] of PIECES.entries()) {
    for (const peer of Object.keys(peers)) {
      const call = (app) => app.run((...args) => peers.beside(...args), i, peer);
      add(piece, peer, ...cells(await inDesktop(screen, call)));
    }
  }
  const [own, other] = [await burst(''), await burst('uiohook-napi')];
  const texts = [own, other].map(({ text, failure }) => text || failure);
  add(
    `a key of a burst of ${PRESSES.toLocaleString('en')}`,
    'uiohook-napi',
    ...texts,
    (other.each / own.each).toFixed(1),
  );
  if (!process.argv.includes('--readme')) return;
  const version = execFileSync('lsb_release', ['-ds'], { encoding: 'utf8' }).trim();
  const machine = `${os.cpus().length} shared cores (${os.cpus()[0].model.trim()})`;
  const when = new Date().toISOString().slice(0, 10);
  const text = [
    MARKS[0],
    ...rows.map((row) => `| ${row.join(' | ')} |`),
    '',
    `${when}, ${machine}, ${version}, Node ${process.version}, Xvfb.`,
    MARKS[1],
  ].join('\n');
  const readme = path.join(ROOT, 'README.md');
  const whole = fs.readFileSync(readme, 'utf8');
  const [from, to] = MARKS.map((mark) => whole.indexOf(mark));
  fs.writeFileSync(readme, whole.slice(0, from) + text + whole.slice(to + MARKS[1].length));
}

module.exports = { beside, countKeys, settled };
if (require.main === module)
  main().catch((error) => {
    console.error(error);
    process.exitCode = 1;
  });
