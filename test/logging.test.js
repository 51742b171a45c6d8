'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { useSession } = require('./lib/session');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
const STACK = 'Maximum call stack size exceeded';
const shared = useSession();
const inApp = (title, options, f) => test(title, () => shared.withApp(f, options));
// Without GTK there are no pictures, which take their time.
const early = { setUp: false };

test('lines go to standard error without a logger, and too deep in an exported one', async () => {
  const app = await shared.app(early);
  const thrown = await app.run(() => {
    kiv.init();
    for (const logger of [undefined, {}, () => {}, 1]) {
      kiv.setupLogger(logger);
      kiv.getScreenSnap('desktop');
    }
    kiv.setupLogger(kiv.upgrade);
    return attempt(kiv.upgrade, 'x');
  });
  const lines = `${`[warn] ${LINE}\n`.repeat(3)}[error] Upgrade: fi-error:2\n`;
  assert.strictEqual(thrown, STACK);
  await assert.rejects(app.end(), ({ message }) => message.endsWith(`null\n${lines}`));
});

const deeds = 'a logger may replace itself, log, collect, tear down, throw: the first is thrown';
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
      // Several lines in one call.
      seen.push(attempt(kiv.getScreenSnapAsync, 'desktop'));
    }
    return seen;
  });
  const lines = [LINE, LINE, 'OnScreenSnapCompleted:0:End', 'GetScreenSnapAsync:desktop:End'];
  const thrown = [...Array(4).fill('thrown'), 'throw 6'];
  assert.deepStrictEqual(seen, [...lines, null, ...thrown, STACK, null]);
});

test('a terminated script neither catches that nor enters a callback again', async () => {
  const app = await shared.app(early);
  const seen = await app.run(() => {
    const seen = [];
    global.spin = () => {
      for (seen.push('spin'); ; );
    };
    kiv.setupLogger(() => seen.push(attempt(kiv.getScreenSnap, { toString: global.spin })));
    const source = 'attempt(kiv.getScreenSnapAsync, "desktop", spin)';
    const end = attempt(require('vm').runInThisContext, source, { timeout: 500 });
    kiv.setupLogger(() => {});
    kiv.getScreenSnapAsync('desktop', () => seen.push('next'));
    return [end, ...seen];
  });
  assert.deepStrictEqual(seen, ['Script execution timed out after 500ms', 'spin', 'next']);
});

const events = 'exceptions of events in a loop beneath an exported call are uncaught ones, at once';
inApp(events, { faulty: true }, async (app) => {
  const announce = ['org.gnome.ScreenSaver', 'ActiveChanged', 'b', [true]];
  const timer = setInterval(() => shared.peer.emit('/org/gnome/ScreenSaver', ...announce), 10);
  const seen = await app.run(() => {
    const seen = [];
    process.on('uncaughtException', (error) => seen.push(error.message));
    global.monitor = new kiv.ScreenLockMonitor();
    global.monitor.emit = require('assert').fail;
    kiv.setupLogger((level) => {
      if (level !== 'warn') return;
      for (const end = Date.now() + 9999; seen.length < 2 && Date.now() < end; ) faults.iterate();
      require('assert').fail('from the logger'); // its own exception stays the call's
    });
    return [attempt(kiv.getScreenSnap, 'desktop'), ...seen.slice(0, 2)];
  });
  clearInterval(timer);
  assert.deepStrictEqual(seen, ['from the logger', 'screen_lock', 'screen_lock']);
});
