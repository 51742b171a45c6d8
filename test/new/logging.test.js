'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const { test } = require('node:test');
const { useSession } = require('../lib/session');
const { connect } = require('../lib/bus');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
const shared = useSession();

test('standard error without a logger, and again after anything but a function', async () => {
  const app = await shared.app({ setUp: false });
  const seen = await app.run(() => {
    const seen = [];
    kiv.init();
    kiv.getScreenSnap('desktop');
    for (const none of [undefined, {}]) {
      kiv.setupLogger((...line) => seen.push(line));
      kiv.getScreenSnap('desktop');
      kiv.setupLogger(none);
      kiv.getScreenSnap('desktop');
    }
    return seen;
  });
  assert.deepStrictEqual(seen, Array(2).fill(['warn', LINE]));
  await assert.rejects(app.end(), ({ message }) => message.endsWith(`\n${`[warn] ${LINE}\n`.repeat(3)}`));
});

test('digits are not grouped, whatever the locale of the process', () =>
  shared.withApp(async (app) => {
    const input = `#include <locale>
      struct Grouped : std::numpunct<char> { std::string do_grouping() const override { return "\\1"; } };
      __attribute__((constructor)) void Set() { std::locale::global({std::locale(), new Grouped}); }`;
    const file = shared.inside('locale.so');
    execFileSync('g++', ['-shared', '-fPIC', '-x', 'c++', '-', '-o', file], { input });
    await app.run((library) => {
      // It is no module, but loaded then.
      try { process.dlopen({ exports: {} }, library); } catch (error) {}
      kiv.upgrade('/dev/null/x.deb');
    }, file);
    assert.deepStrictEqual(await app.log(), ['error Upgrade: fi-error:20']);
  }));

test('a logger may replace itself, log again, collect garbage, tear down and throw, which is thrown once', () =>
  shared.withApp(async (app) => {
    const seen = await app.run((line) => {
      const events = [];
      process.on('uncaughtException', (error) => events.push('uncaught', error.message));
      const snap = () => {
        try { return kiv.getScreenSnap('desktop').width; } catch (error) { return error.message; }
      };
      kiv.setupLogger(() => {
        kiv.setupLogger((level, text) => events.push(text));
        gc();
        snap();
      });
      events.push(snap());
      let count = 0;
      kiv.setupLogger(() => { throw new Error(`throw ${++count}`); });
      events.push(snap());
      try { kiv.getScreenSnapAsync('desktop', () => { throw new Error('completion'); }); } catch (error) { events.push(error.message, count > 2); }
      let depth = 0;
      kiv.setupLogger(() => { ++depth; kiv.getScreenSnap('desktop'); });
      events.push(/call stack/.test(snap()), depth > 10);
      kiv.setupLogger(() => { kiv.teardown(); kiv.init(); });
      events.push(snap());
      return events;
    }, LINE);
    assert.deepStrictEqual(seen, [LINE, 1280, 'throw 1', 'throw 2', true, true, true, 1280]);
  }));

test('a script that is terminated in a callback or a conversion neither catches that nor enters one again', async () => {
  const app = await shared.app();
    const seen = await app.run(() => {
      const seen = [];
      Object.assign(global, { seen, spin: (what) => { seen.push(what); for (;;); } });
      for (const [logger, call] of [
        [() => spin('logger'), 'getScreenSnapAsync("desktop", () => spin("late"))'],
        [() => {}, 'getScreenSnapAsync("desktop", () => spin("completion"))'],
        [() => {}, 'getScreenSnap({ toString() { spin("conversion"); } })'],
      ]) {
        kiv.setupLogger(logger);
        const source = `try { kiv.${call}; seen.push("returned"); } catch (e) { seen.push("caught"); }`;
        try { require('vm').runInThisContext(source, { timeout: 100 }); } catch (error) { seen.push(error.code); }
      }
      kiv.setupLogger(() => {});
      kiv.getScreenSnapAsync('desktop', () => seen.push('next'));
      return seen;
    });
    const ended = 'ERR_SCRIPT_EXECUTION_TIMEOUT';
    assert.deepStrictEqual(seen, ['logger', ended, 'completion', ended, 'conversion', ended, 'next']);
  await app.stop();
});

test('exceptions of events in a loop beneath an exported call are uncaught ones, at once', () =>
  shared.withApp(async (app) => {
    const bus = await connect(shared.bus.address);
    const announce = () => bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', 'b', [true]);
    const timer = setInterval(announce, 10);
    const seen = await app.run(() => {
      const seen = [];
      faults;
      process.on('uncaughtException', (error) => seen.push(error.message));
      host.startLoop();
      host.stopLoop();
      global.monitor = new kiv.ScreenLockMonitor();
      monitor.emit = (event) => { throw new Error(event); };
      kiv.init();
      // Its own exception stays the call's.
      kiv.setupLogger((level) => {
        if (level !== 'warn') return;
        for (const end = Date.now() + 10000; seen.length < 2 && Date.now() < end; ) faults.iterate();
        seen.splice(2, seen.length);
        throw new Error('from the logger');
      });
      try { kiv.getScreenSnap('desktop'); } catch (error) { seen.push(error.message); }
      kiv.setupLogger(() => {});
      monitor.emit = () => {};
      return seen;
    });
    clearInterval(timer);
    bus.close();
    assert.deepStrictEqual(seen, ['screen_lock', 'screen_lock', 'from the logger']);
  }, { setUp: false }));
