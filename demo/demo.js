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

const SNAPSHOTS = [
  { heading: 'The whole desktop, as a JPEG', type: 'desktop', jpeg: true },
  { heading: 'The whole desktop, as a PNG', type: 'desktop', jpeg: false },
  { heading: 'Only the monitor with the active window, as a JPEG', type: 'display', jpeg: true },
];

// What the first call of a process loads is not part of the time.
function timed(type, jpeg) {
  const snap = kiv.getScreenSnap(type, jpeg);
  if (snap.width === 0) return { snap };
  const start = process.hrtime();
  kiv.getScreenSnap(type, jpeg);
  const [seconds, nanoseconds] = process.hrtime(start);
  return { snap, ms: Math.round(seconds * 1e3 + nanoseconds / 1e6) };
}

async function takeSnapshot(app, { heading, type, jpeg }) {
  const { snap, ms } = await app.run(timed, type, jpeg);
  if (snap.width === 0) throw new Error(`no picture: ${await app.log()}`);
  const file = `${type}-${snap.filename}`;
  const thumbnail = `${type}-thumbnail-${snap.filename}`;
  fs.writeFileSync(path.join(output, file), snap.data);
  fs.writeFileSync(path.join(output, thumbnail), snap.dataThumbnail);
  const { width, height, filename, activeWindowTitle: title } = snap;
  const bytes = snap.data.length;
  const call = `getScreenSnap('${type}', ${jpeg})`;
  const command = snap.activeProcessName.split('\0').join(' ').trim();
  say(`${call}: ${width} x ${height}, ${bytes} bytes in ${ms} ms, ${file}, "${title}"`);
  return { heading, call, file, thumbnail, width, height, title, filename, bytes, ms, command };
}

const look = (app) => app.run(() => kiv.getScreenSnap('desktop', true));

// Windows draw themselves after they appear.
async function settle(app) {
  let last = Buffer.alloc(0);
  let since = 0;
  await until(async () => {
    const { data } = await look(app);
    if (!data.equals(last)) since = Date.now();
    last = data;
    return Date.now() - since > 300;
  }, 'a desktop on which nothing moves');
}

// A rectangle dragged out with a real pointer: the overlay hovering, dragging, and the result.
async function select(app, { hand }) {
  let last = await look(app);
  // Until the screen shows something else, and stays so.
  const next = async () => {
    const before = last;
    await until(async () => {
      const previous = last;
      last = await look(app);
      return last.data.equals(previous.data) && !last.data.equals(before.data);
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
  await hand('mousemove', 1800, 100);
  await next();
  await hand('mousemove', 1850, 150);
  const pictures = { hovering: await next() };
  await hand('mousedown', 1, 'mousemove', 2400, 420);
  pictures.dragging = await next();
  await hand('mouseup', 1);
  pictures.result = await until(() => app.run(() => global.chosen), 'the selection');
  const { errorCode } = pictures.result;
  if (errorCode !== 0) throw new Error(`the selection ended with ${errorCode}`);
  return Object.entries(pictures).map(([name, { data, width, height }]) => {
    const file = `selection-${name}.${name === 'result' ? 'png' : 'jpg'}`;
    fs.writeFileSync(path.join(output, file), data);
    say(`getScreenSnapAsync('selection'), ${name}: ${width} x ${height}, ${file}`);
    return { name, file, width, height, bytes: data.length };
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
      say(`${second} s: keys ${keys}, clicks ${clicks}, idle ${idle} s, ticks ${ticks} ${event}`);
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
      ? `taking pictures of your own display ${process.env.DISPLAY}`
      : 'no X11 session at hand: starting a private one with a window manager and a message bus',
  );
  const desktop = mine ? null : await openDesktop();
  if (desktop && desktop.reason) say(`one monitor instead of two: ${desktop.reason}`);
  try {
    const app = await startApp({ env: mine ? process.env : desktop.env });
    if (desktop) await settle(app);
    say('taking snapshots');
    const snapshots = [];
    for (const one of SNAPSHOTS) snapshots.push(await takeSnapshot(app, one));
    const selection = desktop ? await select(app, desktop) : [];
    const monitors = desktop ? desktop.monitors : 0;
    const page = { monitors, snapshots, selection, log: await app.log() };
    const index = writePage(output, page);
    say(`open ${index}`);
    await follow(app, desktop, page);
    await app.run(() => kiv.teardown());
    app.child.disconnect();
    const { code } = await app.ended;
    if (code !== 0) throw new Error(app.output());
    say(`done: ${index}`);
  } finally {
    if (desktop) await desktop.stop();
  }
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
