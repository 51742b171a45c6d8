'use strict';

// Saves a picture of the desktop every minute as FOLDER/2001-02-03/04-05-06.789.jpg (UTC, so that
// no hour occurs twice), unless the screen is locked, a selection is open or the user is idle.
//   node examples/snapshot-every-minute.js FOLDER [--every SECONDS] [--idle SECONDS] [--keep COUNT]
// --idle: seconds without input that count as idle (default 60).
// --keep: number of pictures to keep, the newest ones (default 1440).

const EventEmitter = require('events');
const fs = require('fs');
const path = require('path');
const host = require('../host');
const kiv = require('../index.js');
const selection = require('./open-selection');

function readOptions(args) {
  const options = { folder: '', every: 60, idle: 60, keep: 1440 };
  for (let i = 0; i < args.length; ++i) {
    const name = args[i].slice(2);
    if (['--every', '--idle', '--keep'].includes(args[i])) options[name] = Number(args[++i]);
    else if (!options.folder && args[i][0] !== '-') options.folder = args[i];
    else return null;
  }
  const { every, idle, keep } = options;
  const valid = every >= 1 && every <= 86400 && idle >= 1 && keep >= 1 && Number.isInteger(keep);
  return options.folder && valid ? options : null;
}

function fail(code, text) {
  console.error(text);
  process.exit(code);
}

const options = readOptions(process.argv.slice(2));
if (!options)
  fail(
    2,
    'usage: snapshot-every-minute.js FOLDER [--every SECONDS] [--idle SECONDS] [--keep COUNT]',
  );
if (!host.startLoop()) fail(1, 'no display');

let reason = ''; // the module's last warning or error
kiv.setupLogger((level, text) => {
  if (level === 'warn' || level === 'error') reason = text;
});
kiv.init();

// Also matches files of failed writes, so that they are removed with the old pictures.
const DAY = /^\d{4}-\d\d-\d\d$/;
const PICTURE = /^\d\d-\d\d-\d\d\.\d{3}\.jpg(\.part)?$/;

function save(data) {
  const [day, time] = new Date().toISOString().slice(0, -1).split('T');
  const folder = path.join(options.folder, day);
  fs.mkdirSync(folder, { recursive: true, mode: 0o700 });
  const file = path.join(folder, `${time.replace(/:/g, '-')}.jpg`);
  // Rename the complete file, so that nobody reads half a picture.
  fs.writeFileSync(`${file}.part`, data, { mode: 0o600 });
  fs.renameSync(`${file}.part`, file);
  return file;
}

function prune() {
  const days = fs
    .readdirSync(options.folder)
    .filter((name) => DAY.test(name))
    .sort();
  const picturesOf = (day) =>
    fs
      .readdirSync(path.join(options.folder, day))
      .filter((name) => PICTURE.test(name))
      .sort();
  const all = [];
  for (const day of days)
    all.push(...picturesOf(day).map((name) => path.join(options.folder, day, name)));
  for (const file of all.slice(0, -options.keep)) fs.unlinkSync(file);
  for (const day of days.slice(0, -1)) {
    const folder = path.join(options.folder, day);
    if (fs.readdirSync(folder).length === 0) fs.rmdirSync(folder);
  }
}

let locked = false;

function tick() {
  const idle = kiv.getInputInfo().last.input; // -1 when unknown
  if (locked) return console.log('skipped: locked');
  if (selection.open) return console.log('skipped: a selection is open');
  if (idle >= options.idle) return console.log('skipped: idle');
  reason = '';
  const { width, height, data } = kiv.getScreenSnap('desktop', true);
  if (width === 0) return console.error(`no picture: ${reason || 'no display'}`);
  // Keep running: a full disk may have space again a minute later.
  try {
    console.log(`${save(data)}: ${width} x ${height}`);
    prune();
  } catch (error) {
    console.error(error.message);
  }
}

Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
const monitor = new kiv.ScreenLockMonitor();
EventEmitter.call(monitor);
monitor.on('screen_lock', () => {
  locked = true;
});
monitor.on('screen_unlock', () => {
  locked = false;
});

tick();
kiv.setInterval(tick, options.every * 1000);

function stop() {
  // This reference keeps the monitor from being collected, so its events keep arriving.
  monitor.removeAllListeners();
  kiv.teardown();
}
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.once(signal, stop);
