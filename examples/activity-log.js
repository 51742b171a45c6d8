'use strict';

// Appends one line of JSON per period to FILE: the keys and buttons pressed in it and the idle
// time. Adds a line when the screen is locked or unlocked, and one at the end.
//   node examples/activity-log.js FILE [--every SECONDS] [--title]
// --title adds the active window's title, which it reads from a snapshot that it discards.

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
  fail(1, 'titles need an X11 session; on others the screen may flash for each');
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
let torn = ''; // a newline after a failed write, which may have left half a line

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
    // Synchronous, so that the line is written even if the process exits right afterwards.
    fs.appendFileSync(file, `${torn}${JSON.stringify(line)}\n`);
    torn = '';
    before = now; // unchanged after a failure, so that the next line includes this period
  } catch (error) {
    torn = '\n';
    console.error(`${options.file}: ${error.message}`);
  }
}

// Desktops report one change several times.
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

// Once each, so that a second signal ends a process that hangs. Node exits after the teardown.
let stopped = false;
function stop() {
  if (stopped) return;
  stopped = true;
  // This reference keeps the monitor from being collected, so its events keep arriving.
  monitor.removeAllListeners();
  write('stop');
  kiv.teardown();
  fs.closeSync(file);
}
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, stop);
