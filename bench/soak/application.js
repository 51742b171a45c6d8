'use strict';

// The application of bench/soak.js.

const fs = require('fs');
const { until } = require('../../test/lib/processes');

reference.countObjects();
host.loadUtilities();
host.startLoop();
kiv.setupLogger(() => {});

// Keep the only monitor alive by exporting it: events stop when any monitor is collected.
const monitor = new kiv.ScreenLockMonitor();
let heard = 0;
let locked = false;
monitor.emit = (event) => {
  ++heard;
  locked = event === 'screen_lock';
};

module.exports = {
  monitor,
  init: kiv.init,
  teardown: kiv.teardown,
  locked: () => locked,
  counts() {
    const { keyboardActivity, mouseActivity } = kiv.getInputInfo();
    return [keyboardActivity, mouseActivity, heard];
  },

  snapshot(type, jpeg, where) {
    const folder = `${process.env.HOME}/snaps`;
    const calls = {
      buffer: () => kiv.getScreenSnap(type, jpeg),
      files: () => kiv.getScreenSnap(type, jpeg, folder),
      async() {
        const snap = {};
        kiv.getScreenSnapAsync(type, (result) => Object.assign(snap, result));
        return snap;
      },
    };
    const snap = calls[where]();
    const bytes = snap.data || fs.readFileSync(snap.ScreenFullPath);
    fs.rmSync(folder, { recursive: true, force: true });
    return [snap.width, snap.height, bytes.length > 0, snap.activeWindowTitle];
  },

  tick(count) {
    return new Promise((resolve) =>
      kiv.setInterval(() => {
        if (--count > 0) return;
        kiv.setInterval(null, 0);
        resolve();
      }, 4),
    );
  },

  /** Waits until closed connections and windows are released. */
  async sample() {
    // GDK keeps a record of the window that is, or was at a snapshot, active.
    kiv.getScreenSnap('display', true);
    let before = '';
    return until(async () => {
      // The memory of collected buffers is freed in a later event loop iteration.
      for (let round = 0; round < 3; ++round) {
        gc();
        await new Promise(setImmediate);
      }
      const files = fs.readdirSync('/proc/self/fd');
      const counts = { descriptors: files.length, GObjects: reference.objects() };
      const stays = JSON.stringify(counts) === before;
      before = JSON.stringify(counts);
      return (
        stays && {
          'resident bytes': process.memoryUsage().rss,
          'malloc bytes': reference.allocated(),
          ...counts,
        }
      );
    }, 'a stable state');
  },
};
