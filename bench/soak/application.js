'use strict';

// The application of the soak. Times all that it asks of the module.

const EventEmitter = require('events');
const fs = require('fs');
const path = require('path');
const { until } = require('../../test/lib/processes');
const bare = require(path.join(process.env.KIV_BUILD_FOLDER, 'bench_reference.node'));

bare.countObjects();
host.loadUtilities();
host.startLoop();
bare.reserve(1920 * 1080 * 4);
bare.watchTurns();

const complaints = {};
kiv.setupLogger((level, text) => {
  if (level === 'error' || level === 'warn') complaints[text] = (complaints[text] || 0) + 1;
});

// { name: { times, sum, longest, processor } } in milliseconds.
const holds = {};
function note(name, clock, processor) {
  const hold = holds[name] || { times: 0, sum: 0, longest: 0, processor: 0 };
  holds[name] = hold;
  ++hold.times;
  hold.sum += clock;
  hold.longest = Math.max(hold.longest, clock);
  hold.processor = Math.max(hold.processor, processor);
}
function hold(name, call) {
  const [clock, processor] = [process.hrtime.bigint(), bare.processor()];
  const result = call();
  note(name, Number(process.hrtime.bigint() - clock) / 1e6, bare.processor() - processor);
  return result;
}

const heard = { screen_lock: 0, screen_unlock: 0 };
Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
// The only one, and exported to be kept: when any monitor is collected, events stop.
const monitor = new kiv.ScreenLockMonitor();
EventEmitter.call(monitor);
for (const event of Object.keys(heard)) monitor.on(event, () => ++heard[event]);

let selected = [];
let ticks = 0;

const status = (name) =>
  Number(
    new RegExp(`^${name}:\\s+(\\d+)`, 'm').exec(fs.readFileSync('/proc/self/status', 'utf8'))[1],
  );
const sample = () => ({
  'resident kB': status('VmRSS'),
  'malloc kB': Math.round(bare.allocated() / 1024),
  descriptors: fs.readdirSync('/proc/self/fd').length,
  threads: status('Threads'),
  'loop handles': bare.handles(),
  GObjects: bare.objects(),
});

module.exports = {
  ...bare,
  monitor,
  init: () => hold('init', kiv.init),
  teardown: () => hold('teardown', kiv.teardown),
  heard: () => heard,
  holds: () => holds,
  complaints: () => complaints,
  ticks: () => ticks,
  selected: () => selected,
  sleep: (ms) => new Promise((resolve) => setTimeout(resolve, ms)),
  note: (name) => note(name, ...bare.turns()),
  counts() {
    const { keyboardActivity, mouseActivity } = hold('getInputInfo', kiv.getInputInfo);
    return [keyboardActivity, mouseActivity, heard.screen_lock + heard.screen_unlock];
  },

  snapshot(type, jpeg, where) {
    const call = {
      buffer: () => kiv.getScreenSnap(type, jpeg),
      files: () => kiv.getScreenSnap(type, jpeg, path.join(process.env.HOME, 'snaps')),
      async: () => {
        let snap;
        kiv.getScreenSnapAsync(type, (result) => {
          snap = result;
        });
        return snap;
      },
    }[where];
    const format = jpeg && where !== 'async' ? 'JPEG' : 'PNG';
    const snap = hold(`snapshot of the ${type}, ${format}, ${where}`, call);
    let bytes = snap.data && snap.data.length;
    if (where === 'files') {
      bytes = fs.statSync(snap.ScreenFullPath).size;
      fs.unlinkSync(snap.ScreenFullPath);
      fs.unlinkSync(snap.ThumbnailFullPath);
    }
    return [snap.width, snap.height, bytes > 0, snap.activeWindowTitle];
  },
  bareSnapshots() {
    for (const jpeg of [true, false])
      hold(`bare GDK and gdk-pixbuf, ${jpeg ? 'JPEG' : 'PNG'}`, () => bare.desktop(jpeg));
  },

  tick(count) {
    const goal = ticks + count;
    return new Promise((resolve) =>
      kiv.setInterval(() => {
        if (++ticks < goal) return;
        kiv.setInterval(null, 0);
        resolve();
      }, 4),
    );
  },

  select() {
    selected = [];
    hold('start of a selection', () =>
      kiv.getScreenSnapAsync('selection', ({ errorCode, width, height, data }) => {
        selected.push([errorCode, width, height, data.length > 0]);
      }),
    );
  },

  /** Closed connections and windows go in their own time. */
  async sample() {
    let last = {};
    // GDK has a record of the window that is active, or was when a snapshot was taken.
    kiv.getScreenSnap('display', true);
    await until(async () => {
      const before = last;
      // Collected buffers give their memory back in a turn.
      for (let round = 0; round < 3; ++round) {
        gc();
        await new Promise(setImmediate);
      }
      last = sample();
      const same = (name) => JSON.stringify(last[name]) === JSON.stringify(before[name]);
      return ['GObjects', 'descriptors', 'loop handles'].every(same);
    }, 'a state that stays');
    return last;
  },
};
