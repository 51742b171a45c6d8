'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { useSession } = require('./lib/session');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
const ENDS = ['OnScreenSnapCompleted:0:End', 'GetScreenSnapAsync:desktop:End'];
const STACK = 'Maximum call stack size exceeded';
const shared = useSession();
const inApp = (title, options, f) => test(title, () => shared.withApp(f, options));
// Without GTK no pictures are taken, which is faster.
const early = { setUp: false };

const lost = 'lines go to stderr without a logger, deep inside one and in a terminated script';
test(lost, async () => {
  const app = await shared.app(early);
  const seen = await app.run(() => {
    const seen = [];
    kiv.init();
    for (const logger of [undefined, {}, () => {}, 1]) {
      kiv.setupLogger(logger);
      kiv.getScreenSnap('desktop');
    }
    global.spin = () => {
      for (seen.push('spin'); ; );
    };
    kiv.setupLogger(() => seen.push(attempt(kiv.getScreenSnap, { toString: global.spin })));
    const source = 'attempt(kiv.getScreenSnapAsync, "desktop", spin)';
    const end = attempt(require('vm').runInThisContext, source, { timeout: 2000 });
    seen.push(String(end).slice(0, 26));
    kiv.setupLogger(kiv.upgrade);
    return [...seen, attempt(kiv.upgrade, 'x')];
  });
  assert.deepStrictEqual(seen, ['spin', 'Script execution timed out', STACK]);
  const ends = `[debug] ${ENDS[0]}\n[debug] ${ENDS[1]}\n[error] Upgrade: fi-error:2\n`;
  const lines = `${`[warn] ${LINE}\n`.repeat(4)}${ends}`;
  await assert.rejects(app.end(), ({ message }) => message.endsWith(`null\n${lines}`));
});

const deeds = 'a logger may replace itself, log, tear down or throw; its first exception is thrown';
inApp(deeds, early, async (app) => {
  const seen = await app.run(() => {
    const seen = [];
    const replace = () => {
      kiv.setupLogger((level, text) => seen.push(text));
      gc();
      kiv.getScreenSnap('desktop');
    };
    const fail = () => require('assert').fail(`throw ${seen.push('thrown')}`);
    const nest = () => kiv.getScreenSnap('desktop');
    const end = () => kiv.init(kiv.teardown());
    kiv.init();
    for (const logger of [replace, fail, nest, end]) {
      kiv.setupLogger(logger);
      // Each call logs several lines.
      seen.push(attempt(kiv.getScreenSnapAsync, 'desktop'));
    }
    return seen;
  });
  const thrown = [...Array(4).fill('thrown'), 'throw 6'];
  assert.deepStrictEqual(seen, [LINE, LINE, ...ENDS, null, ...thrown, STACK, null]);
});

const events = "an event's exception in a loop inside an exported call is uncaught, not the call's";
inApp(events, { faulty: true }, async (app) => {
  const announce = ['org.gnome.ScreenSaver', 'ActiveChanged', 'b', [true]];
  const timer = setInterval(() => shared.peer.emit('/org/gnome/ScreenSaver', ...announce), 10);
  shared.stops.push(() => clearInterval(timer));
  const seen = await app.run(() => {
    const seen = [];
    process.on('uncaughtException', (error) => seen.push(error.message));
    global.monitor = new kiv.ScreenLockMonitor();
    global.monitor.emit = require('assert').fail;
    kiv.setupLogger((level) => {
      if (level !== 'warn') return;
      for (const end = Date.now() + 9999; seen.length < 2 && Date.now() < end; ) faults.iterate();
      require('assert').fail('from the logger'); // this exception belongs to the call
    });
    return [attempt(kiv.getScreenSnap, 'desktop'), ...seen.slice(0, 2)];
  });
  assert.deepStrictEqual(seen, ['from the logger', 'screen_lock', 'screen_lock']);
});
