'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
const { look, run } = share({ wm: false });

test('standard error without a logger, and again after anything but a function', async () => {
  const { stderr, stdout } = await run(() => {
    kiv.init();
    kiv.getScreenSnap('desktop');
    for (const none of [undefined, {}]) {
      kiv.setupLogger((...args) => process.stdout.write(`${JSON.stringify(args)}\n`));
      kiv.getScreenSnap('desktop');
      kiv.setupLogger(none);
      kiv.getScreenSnap('desktop');
    }
    kiv.teardown();
  });
  assert.strictEqual(stderr, `[warn] ${LINE}\n`.repeat(3));
  assert.strictEqual(stdout, `["warn","${LINE}"]\n`.repeat(2));
});

test('a logger that replaces itself, logs again, collects garbage or throws', async () => {
  const seen = await look(() => {
    const events = [];
    kiv.init();
    const snap = () => {
      try { return kiv.getScreenSnap('desktop').height; } catch (error) { return error.message; }
    };
    kiv.setupLogger(() => {
      kiv.setupLogger((level, text) => events.push(text));
      global.gc();
      events.push(kiv.getScreenSnap('desktop').width);
    });
    events.push(snap());
    kiv.setupLogger(() => { throw new Error('from the logger'); });
    events.push(snap());
    let depth = 0;
    kiv.setupLogger(() => { ++depth; kiv.getScreenSnap('desktop'); });
    events.push(/call stack/.test(snap()), depth > 10);
    kiv.setupLogger(() => { kiv.teardown(); kiv.init(); });
    events.push(snap());
    report(events);
    kiv.teardown();
  }, { nodeArgs: ['--expose-gc'] });
  assert.deepStrictEqual(seen, [LINE, 0, 0, 'from the logger', true, true, 0]);
});

test('a script that is terminated in a callback or a conversion neither catches that nor enters one again', async () => {
  const { outcomes, caught, entered } = await look(() => {
    const vm = require('vm');
    const seen = { outcomes: [], caught: [], entered: [] };
    Object.assign(global, { module: kiv, seen, spin: (what) => { seen.entered.push(what); for (;;); } });
    kiv.init();
    for (const [logger, call] of [
      [() => spin('logger'), 'getScreenSnapAsync("desktop", () => spin("late"))'],
      [null, 'getScreenSnapAsync("desktop", () => spin("completion"))'],
      [null, 'getScreenSnap({ toString() { spin("conversion"); } })'],
    ]) {
      kiv.setupLogger(logger || (() => {}));
      try {
        vm.runInThisContext(`try { module.${call}; seen.caught.push("returned"); } catch (e) { seen.caught.push(e); }`, { timeout: 100 });
      } catch (error) {
        seen.outcomes.push(/timed out/.test(error.message));
      }
    }
    kiv.setupLogger(() => {});
    kiv.getScreenSnapAsync('desktop', () => seen.entered.push('next'));
    report(seen);
    kiv.teardown();
  });
  assert.deepStrictEqual({ outcomes, caught, entered },
    { outcomes: [true, true, true], caught: [], entered: ['logger', 'completion', 'conversion', 'next'] });
});

test('exceptions of events in a loop beneath an exported call are uncaught ones, each of them, at once', async () => {
  assert.deepStrictEqual(await look(async () => {
    const seen = [];
    faults;
    process.on('uncaughtException', (error) => seen.push(error.message));
    host.startLoop();
    host.stopLoop();
    const monitor = new kiv.ScreenLockMonitor();
    monitor.emit = (event) => { throw new Error(event); };
    kiv.init();
    bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
    const announce = (locked) => bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', `(${locked},)`);
    // Its own exception stays the call's.
    kiv.setupLogger((level) => {
      if (level !== 'warn') return;
      const end = Date.now() + 10000;
      for (announce(true); seen.length < 1 && Date.now() < end; announce(true)) faults.iterate();
      for (announce(false); !seen.includes('screen_unlock') && Date.now() < end;) faults.iterate();
      seen.splice(0, seen.lastIndexOf('screen_lock')); // as many as it took
      seen.push('logger');
      throw new Error('from the logger');
    });
    try {
      kiv.getScreenSnap('desktop');
    } catch (error) {
      seen.push(error.message);
    }
    report(seen);
    kiv.teardown();
  }), ['screen_lock', 'screen_unlock', 'logger', 'from the logger']);
});
