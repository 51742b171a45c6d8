'use strict';

// The application of the soak, in a process of its own: does what lines on standard input ask for,
// and reports what came of it. Times all it asks of the module.
/* global bus, host, kiv, report, until */

const EventEmitter = require('events');
const fs = require('fs');
const path = require('path');
const readline = require('readline');
const { settleMemory, status } = require('../measure');

const addon = (name) => require(path.resolve('build', process.env.KIV_BUILD, `${name}.node`));
const now = () => Number(process.hrtime.bigint()) / 1e6;
const descriptors = () => fs.readdirSync('/proc/self/fd').length;

module.exports = async (width, height) => {
  const soak = addon('bench_soak');
  soak.countObjects();
  const bare = addon('bench_input');
  const floor = addon('bench_floor');
  host.loadUtilities();
  host.startLoop();
  floor.reserve(width * height * 4);
  soak.watchTurns();
  Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);

  const log = {};
  kiv.setupLogger((level, text) => {
    if (level === 'error' || level === 'warn') log[text] = (log[text] || 0) + 1;
  });

  // What held the loop: { name: { times, sum, longest, processor } } in milliseconds.
  const holds = {};
  const note = (name, clock, processor) => {
    const hold = (holds[name] = holds[name] || { times: 0, sum: 0, longest: 0, processor: 0 });
    ++hold.times;
    hold.sum += clock;
    hold.longest = Math.max(hold.longest, clock);
    hold.processor = Math.max(hold.processor, processor);
  };
  const hold = (name, call) => {
    const [clock, processor] = [now(), soak.processor()];
    const result = call();
    note(name, now() - clock, soak.processor() - processor);
    return result;
  };

  const heard = { screen_lock: 0, screen_unlock: 0 };
  // The only one, and kept for the whole day: when any monitor is collected, events stop.
  const monitor = new kiv.ScreenLockMonitor();
  EventEmitter.call(monitor);
  for (const event of Object.keys(heard)) monitor.on(event, () => ++heard[event]);
  const counted = () => {
    const { keyboardActivity, mouseActivity } = hold('getInputInfo', () => kiv.getInputInfo());
    return { keys: keyboardActivity, clicks: mouseActivity };
  };
  let selection = null;
  let ticks = 0;

  const sample = () => ({
    'resident kB': status('VmRSS'),
    'malloc kB': Math.round(soak.allocated() / 1024),
    descriptors: descriptors(),
    threads: status('Threads'),
    'loop handles': soak.handles(),
    GObjects: Object.values(soak.objects()).reduce((sum, count) => sum + count, 0),
    objects: soak.objects(),
  });

  const commands = {
    init() {
      hold('init', () => kiv.init());
    },
    teardown() {
      hold('teardown', () => kiv.teardown());
    },
    counted,
    heard: () => ({ ...heard, bare: soak.heard() }),
    log: () => log,
    holds: () => holds,
    sleep: (ms) => new Promise((resolve) => setTimeout(resolve, ms)),
    forgetTurns() {
      soak.turns();
    },
    turns(name) {
      note(name, ...soak.turns());
    },

    snapshot(type, jpeg, where) {
      const format = jpeg ? 'JPEG' : 'PNG';
      let snap;
      if (where === 'async') {
        hold(`getScreenSnapAsync ${type} PNG`, () =>
          kiv.getScreenSnapAsync(type, (result) => {
            snap = result;
          }),
        );
      } else if (where === 'files') {
        snap = hold(`getScreenSnap ${type} ${format} to files`, () =>
          kiv.getScreenSnap(type, jpeg, path.join(process.env.HOME, 'snaps')),
        );
      } else {
        snap = hold(`getScreenSnap ${type} ${format}`, () => kiv.getScreenSnap(type, jpeg));
      }
      let bytes;
      if (snap.ScreenFullPath) {
        bytes = fs.statSync(snap.ScreenFullPath).size;
        fs.unlinkSync(snap.ScreenFullPath);
        fs.unlinkSync(snap.ThumbnailFullPath);
      } else {
        bytes = snap.data.length;
      }
      return { width: snap.width, height: snap.height, bytes, title: snap.activeWindowTitle };
    },

    async tick(count, period) {
      const goal = ticks + count;
      await new Promise((resolve) =>
        kiv.setInterval(() => {
          if (++ticks < goal) return;
          kiv.setInterval(null, 0);
          resolve();
        }, period),
      );
      return ticks;
    },
    ticks: () => ticks,

    select() {
      selection = [];
      hold('getScreenSnapAsync selection', () =>
        kiv.getScreenSnapAsync('selection', ({ errorCode, width: w, height: h, data }) => {
          selection.push({ errorCode, width: w, height: h, bytes: data.length });
        }),
      );
    },
    selected: () => selection,

    async sample() {
      let last = null;
      // GDK has a record of the window that is active, or was when a snapshot was taken.
      kiv.getScreenSnap('display', true);
      // Closed connections and windows go in their own time.
      return until(
        async () => {
          const before =
            last && JSON.stringify([last.GObjects, last.descriptors, last['loop handles']]);
          await settleMemory();
          last = sample();
          return (
            before === JSON.stringify([last.GObjects, last.descriptors, last['loop handles']]) &&
            last
          );
        },
        { timeout: 20000, what: 'a state that stays' },
      );
    },

    // The bare library calls that the module is held against.
    startCounting: () => bare.startCounting(),
    stopCounting: () => bare.stopCounting(),
    bareCounted: () => {
      const { keyboardActivity, mouseActivity } = bare.object();
      return keyboardActivity + mouseActivity;
    },
    listen: (file) => soak.listen(process.env.DBUS_SESSION_BUS_ADDRESS, file),
    bareSnapshots() {
      for (const jpeg of [true, false]) {
        hold(`bare GDK and gdk-pixbuf, ${jpeg ? 'JPEG' : 'PNG'}`, () => floor.desktop(jpeg));
      }
    },
  };

  const lines = readline.createInterface({ input: process.stdin });
  lines.on('line', async (line) => {
    const [id, name, args] = JSON.parse(line);
    try {
      const value = await commands[name](...args);
      report({ id, value });
    } catch (error) {
      report({ id, error: `${name}: ${error.stack}` });
    }
  });
  await new Promise((resolve) => lines.on('close', resolve));
  kiv.setInterval(null, 0);
  kiv.teardown();
};
