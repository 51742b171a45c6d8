'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const { test } = require('node:test');
const { connect } = require('./lib/bus');
const { useSession } = require('./lib/session');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
const shared = useSession();
const inApp = (title, f, options) => test(title, () => shared.withApp(f, options));

test('without a logger, or with anything but a function, lines go to standard error', async () => {
  const app = await shared.app({ setUp: false });
  await app.run(() => {
    kiv.init();
    for (const logger of [undefined, {}, () => {}, 1]) {
      kiv.setupLogger(logger);
      kiv.getScreenSnap('desktop');
    }
  });
  const lines = `[warn] ${LINE}\n`.repeat(3);
  await assert.rejects(app.end(), ({ message }) => message.endsWith(`null\n${lines}`));
});

inApp('digits are not grouped, whatever the locale of the process', async (app) => {
  const input = `#include <locale>
    struct Grouped : std::numpunct<char> { std::string do_grouping() const { return "\\1"; } };
    __attribute__((constructor)) void Set() { std::locale::global({{}, new Grouped}); }`;
  const file = shared.inside('locale.so');
  execFileSync('g++', ['-shared', '-fPIC', '-Wl,-z,nodelete', '-x', 'c++', '-', '-o', file], {
    input,
  });
  // It is no module, but stays.
  await app.run((library) => attempt(process.dlopen, { exports: {} }, library), file);
  await app.run(() => kiv.upgrade('/dev/null/x.deb'));
  assert.deepStrictEqual(await app.log(), ['error Upgrade: fi-error:20']);
});

// Without GTK there are no pictures, which take their time.
const early = { setUp: false };
const deeds = async (app) => {
  const seen = await app.run(() => {
    const seen = [];
    let count = 0;
    kiv.init();
    process.on('uncaughtException', () => seen.push('uncaught'));
    for (const logger of [
      () => {
        kiv.setupLogger((level, text) => seen.push(text));
        gc();
        kiv.getScreenSnap('desktop');
      },
      () => {
        throw new Error(`throw ${++count}`);
      },
      () => kiv.getScreenSnap('desktop'),
      () => kiv.init(kiv.teardown()),
    ]) {
      kiv.setupLogger(logger);
      // Several lines in one call.
      seen.push(attempt(kiv.getScreenSnapAsync, 'desktop'));
    }
    kiv.setupLogger(() => {});
    return [...seen, count];
  });
  const lines = [LINE, LINE, 'OnScreenSnapCompleted:0:End', 'GetScreenSnapAsync:desktop:End'];
  const stack = 'Maximum call stack size exceeded';
  assert.deepStrictEqual(seen, [...lines, null, 'throw 1', stack, null, 4]);
};
const title = 'a logger may replace itself, log, collect, tear down, throw: the first is thrown';
inApp(title, deeds, early);

test('a terminated script neither catches that in a callback nor enters one again', async () => {
  const app = await shared.app(early);
  const seen = await app.run(() => {
    global.seen = [];
    global.spin = (what) => {
      for (global.seen.push(what); ; );
    };
    kiv.init();
    for (const [logger, call] of [
      [() => global.spin('logger'), 'getScreenSnapAsync("desktop", () => spin("late"))'],
      [() => {}, 'getScreenSnapAsync("desktop", () => spin("completion"))'],
      [() => {}, 'getScreenSnap({ toString() { spin("conversion"); } })'],
    ]) {
      kiv.setupLogger(logger);
      const source = `try { kiv.${call}; seen.push("returned"); } catch { seen.push("caught"); }`;
      const end = attempt(require('vm').runInThisContext, source, { timeout: 500 });
      global.seen.push(String(end).slice(0, 26));
    }
    kiv.setupLogger(() => {});
    kiv.getScreenSnapAsync('desktop', () => global.seen.push('next'));
    return global.seen;
  });
  const ended = 'Script execution timed out';
  assert.deepStrictEqual(seen, ['logger', ended, 'completion', ended, 'conversion', ended, 'next']);
  await app.stop();
});

test('exceptions of events in a loop beneath an exported call are uncaught ones, at once', async () => {
  const bus = await connect(shared.bus.address);
  const announce = ['org.gnome.ScreenSaver', 'ActiveChanged', 'b', [true]];
  const timer = setInterval(() => bus.emit('/org/gnome/ScreenSaver', ...announce), 10);
  const app = await shared.app(early);
  const seen = await app.run(() => {
    const seen = [];
    faults.iterate();
    process.on('uncaughtException', (error) => seen.push(error.message));
    host.startLoop();
    host.stopLoop();
    const monitor = new kiv.ScreenLockMonitor();
    monitor.emit = (event) => {
      throw new Error(event);
    };
    kiv.init();
    // Its own exception stays the call's.
    kiv.setupLogger((level) => {
      if (level !== 'warn') return;
      for (const end = Date.now() + 9999; seen.length < 2 && Date.now() < end; ) faults.iterate();
      throw new Error('from the logger');
    });
    const thrown = attempt(kiv.getScreenSnap, 'desktop');
    return [...seen.slice(0, 2), thrown, typeof monitor];
  });
  clearInterval(timer);
  bus.close();
  await app.stop();
  assert.deepStrictEqual(seen, ['screen_lock', 'screen_lock', 'from the logger', 'object']);
});
