'use strict';

// Takes snapshots of a real desktop, follows its input for a while and writes
// demo-output/index.html. Uses the display of the person who runs it, else a private one with a
// window manager, a few windows and input of its own. --minute makes the live part longer.

const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const { startApp } = require('../test/lib/app');
const { until } = require('../test/lib/processes');
const { openDesktop } = require('./desktop');
const { writePage } = require('./page');

const output = path.join(__dirname, '..', 'demo-output');
const times = process.argv.includes('--minute') ? 4 : 1;
const say = (text) => console.log(`-- ${text}`);

function usable(display) {
  try {
    execFileSync('xdpyinfo', ['-display', display], { stdio: 'ignore', timeout: 5000 });
    return true;
  } catch {
    return false;
  }
}

// On other sessions an X display shows X11 programs only, and the compositor would have to agree.
const isMine = ({ DISPLAY, XDG_SESSION_TYPE = 'x11' }) =>
  XDG_SESSION_TYPE === 'x11' && DISPLAY && usable(DISPLAY);

async function takeSnapshot(app, type, jpeg) {
  const snap = await app.run((...args) => kiv.getScreenSnap(...args), type, jpeg);
  if (snap.width === 0) throw new Error(`no picture: ${await app.log()}`);
  const file = `${type}-${snap.filename}`;
  const thumbnail = `${type}-thumbnail-${snap.filename}`;
  fs.writeFileSync(path.join(output, file), snap.data);
  fs.writeFileSync(path.join(output, thumbnail), snap.dataThumbnail);
  const { width, height, activeWindowTitle: title } = snap;
  const call = `getScreenSnap("${type}", ${jpeg})`;
  say(`${call}: ${width} x ${height}, ${file}, "${title}"`);
  return {
    call,
    file,
    thumbnail,
    width,
    height,
    title,
    filename: snap.filename,
    bytes: snap.data.length,
    process: snap.activeProcessName.split('\0').join(' ').trim(),
  };
}

// A rectangle dragged out with a real pointer: the overlay hovering, dragging, and the cut-out.
async function select(app, { hand }) {
  const look = () => app.run(() => kiv.getScreenSnap('desktop').data);
  let last = await look();
  // Until the screen shows something else, and stays so.
  const next = async () => {
    const before = last;
    await until(async () => {
      const previous = last;
      last = await look();
      return last.equals(previous) && !last.equals(before);
    }, 'the overlay to be drawn');
    return last;
  };
  await app.run(() => {
    global.chosen = null;
    kiv.getScreenSnapAsync('selection', (snap) => {
      global.chosen = snap;
    });
  });
  await next();
  await hand('mousemove', 260, 210);
  await next();
  await hand('mousemove', 300, 250);
  const pictures = { hovering: await next() };
  await hand('mousedown', 1, 'mousemove', 1000, 670);
  pictures.dragging = await next();
  await hand('mouseup', 1);
  const { data, errorCode } = await until(() => app.run(() => global.chosen), 'the selection');
  if (errorCode !== 0) throw new Error(`the selection ended with ${errorCode}`);
  pictures['cut out'] = data;
  return Object.entries(pictures).map(([name, bytes]) => {
    const file = `selection-${name.replace(' ', '-')}.png`;
    fs.writeFileSync(path.join(output, file), bytes);
    say(`getScreenSnapAsync("selection"), ${name}: ${file}`);
    return { name, file, bytes: bytes.length };
  });
}

// In the application: every change of what the person did.
function watch() {
  const { EventEmitter } = require('events');
  const start = Date.now();
  let ticks = 0;
  let shown = '';
  global.moments = [];
  const tell = (event) => {
    const { last, keyboardActivity: keys, mouseActivity: clicks } = kiv.getInputInfo();
    const state = String([keys, clicks, last.input]);
    if (state === shown && !event) return;
    shown = state;
    const second = ((Date.now() - start) / 1000).toFixed(1);
    global.moments.push({ second, keys, clicks, idle: last.input, ticks, event });
  };
  kiv.setInterval(() => {
    ++ticks;
    tell('');
  }, 500);
  Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
  global.monitor = new kiv.ScreenLockMonitor();
  EventEmitter.call(global.monitor);
  for (const event of ['screen_lock', 'screen_unlock']) global.monitor.on(event, () => tell(event));
}

// Nothing is ever injected into the desktop of the person who watches.
async function follow(app, desktop, page) {
  say(desktop ? 'real input' : 'your own input for 10 seconds; nothing is injected');
  await app.run(watch);
  const live = [];
  const work = desktop ? desktop.work(times) : new Promise((done) => setTimeout(done, 10000));
  let going = true;
  const ended = work.finally(() => {
    going = false;
  });
  ended.catch(() => {});
  while (going) {
    const more = await app.run(() => global.moments.splice(0));
    for (const { second, keys, clicks, idle, ticks, event } of more)
      say(`${second} s: ${keys} keys, ${clicks} clicks, idle ${idle} s, tick ${ticks} ${event}`);
    live.push(...more);
    if (more.length > 0) writePage(output, { ...page, live, going });
    await new Promise((resolve) => setTimeout(resolve, 100));
  }
  await ended;
  writePage(output, { ...page, live });
}

(async () => {
  // What is there stays: another run may be writing it.
  fs.mkdirSync(output, { recursive: true });
  const mine = isMine(process.env);
  say(
    mine
      ? `using your display ${process.env.DISPLAY}`
      : 'no X11 session at hand: starting a private one with a window manager and a message bus',
  );
  const desktop = mine ? null : await openDesktop();
  try {
    const app = await startApp({ env: mine ? process.env : desktop.env });
    say('taking snapshots');
    const snapshots = [];
    for (const [type, jpeg] of [
      ['desktop', true],
      ['desktop', false],
      ['display', true],
    ])
      snapshots.push(await takeSnapshot(app, type, jpeg));
    const selection = desktop ? await select(app, desktop) : [];
    const page = { snapshots, selection, log: await app.log() };
    say(`open ${writePage(output, page)}`);
    await follow(app, desktop, page);
    await app.run(() => kiv.teardown());
    app.child.disconnect();
    const { code } = await app.ended;
    if (code !== 0) throw new Error(app.output());
    say('done');
  } finally {
    if (desktop) await desktop.stop();
  }
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
