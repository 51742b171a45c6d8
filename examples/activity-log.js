'use strict';

// Appends one line of JSON to FILE for every period: how many keys and buttons were pressed in it
// and how long the person has been idle; one more when the screen is locked or unlocked, and at the
// end.
//   node examples/activity-log.js FILE [--every SECONDS] [--title]
// --title adds the active window's title, for which a snapshot is taken and thrown away.

const EventEmitter = require('events');
const fs = require('fs');
const host = require('../host');
const kiv = require('../index.js');
const selection = require('./open-selection');

function readOptions(args) {
  const options = { file: '', every: 60, title: false };
  for (let i = 0; i < args.length; ++i) {
    if (args[i] === '--title') options.title = true;
    else if (args[i] === '--every') options.every = Number(args[++i]);
    else if (!options.file && args[i][0] !== '-') options.file = args[i];
    else return null;
  }
  return options.file && options.every >= 1 && options.every <= 86400 ? options : null;
}

function fail(code, text) {
  console.error(text);
  process.exit(code);
}

const options = readOptions(process.argv.slice(2));
if (!options) fail(2, 'usage: activity-log.js FILE [--every SECONDS] [--title]');
if (options.title && kiv.isWayland())
  fail(1, 'titles need an X11 session: elsewhere the screen would flash for each');
if (!host.startLoop()) fail(1, 'no display');
let file;
try {
  file = fs.openSync(options.file, 'a', 0o600);
} catch (error) {
  fail(1, error.message);
}

kiv.setupLogger((level, text) => {
  if (level === 'warn' || level === 'error') console.error(`${level}: ${text}`);
});
kiv.init();

let before = kiv.getInputInfo();
let torn = ''; // ends the line that a failed write may have left half done

function write(event) {
  const now = kiv.getInputInfo();
  const line = {
    time: new Date().toISOString(),
    event,
    keys: now.keyboardActivity - before.keyboardActivity,
    clicks: now.mouseActivity - before.mouseActivity,
    idle: now.last.input,
  };
  if (options.title && !selection.open)
    line.title = kiv.getScreenSnap('desktop', true).activeWindowTitle;
  try {
    // Written before this returns: whatever ends the process, the line is there.
    fs.appendFileSync(file, `${torn}${JSON.stringify(line)}\n`);
    torn = '';
    before = now; // not after a failure: the next line counts what this one could not tell
  } catch (error) {
    torn = '\n';
    console.error(`${options.file}: ${error.message}`);
  }
}

// Desktops announce one change several times.
let locked = false;
function setLocked(next) {
  if (next === locked) return;
  locked = next;
  write(locked ? 'lock' : 'unlock');
}
Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
const monitor = new kiv.ScreenLockMonitor();
EventEmitter.call(monitor);
monitor.on('screen_lock', () => setLocked(true));
monitor.on('screen_unlock', () => setLocked(false));

write('start');
kiv.setInterval(() => write('tick'), options.every * 1000);

// Once each: a second signal ends a process that hangs. After the teardown Node exits.
let stopped = false;
function stop() {
  if (stopped) return;
  stopped = true;
  // That this function holds the monitor keeps it from being collected, and its events coming.
  monitor.removeAllListeners();
  write('stop');
  kiv.teardown();
  fs.closeSync(file);
}
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, stop);
