'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { startXvfb } = require('./helpers/display');
const { inSession, look, share } = require('./helpers/suite');

const shared = share({ wm: false });

// What had been called when the process leaves.
const STATES = {
  loaded: 'kiv;',
  initialised: 'kiv.setupLogger(() => {}); kiv.init();',
  'with a loop': 'host.startLoop(); kiv.setupLogger(() => {}); kiv.init(); keep = kiv.getScreenSnap("desktop");',
  'torn down': 'host.startLoop(); kiv.setupLogger(() => {}); kiv.init(); kiv.init(); kiv.teardown(); kiv.teardown();',
};
// How it leaves, and the exit code.
const WAYS = {
  'end of loop': ['kiv.teardown();', 0],
  'process.exit': ['process.exit(3);', 3],
  'process.exit in a callback': ['kiv.setupLogger(() => process.exit(4)); kiv.init(); kiv.getScreenSnap("desktop");', 4],
  'an uncaught exception': ['setImmediate(() => { throw new Error("expected"); });', 1],
};

for (const [way, [leave, code]] of Object.entries(WAYS)) {
  test(`leaving: ${way}`, async () => {
    await Promise.all(Object.entries(STATES).map(async ([state, prepare]) => {
      const result = await shared.run(`let keep; ${prepare} ${leave}`, { leaks: way === 'end of loop' });
      assert.deepStrictEqual([result.code, result.signal], [code, null], `${state}: ${result.stderr}`);
      assert.match(result.stderr, way === 'an uncaught exception' ? /Error: expected\n/ : /^$/, state);
      assert.doesNotMatch(result.stderr, /CRITICAL|WARNING|runtime error|Sanitizer|FATAL/, state);
    }));
  });
}

test('the end of the runtime with everything alive', async () => {
  const { code, stderr } = await shared.run(async () => {
    host.startLoop();
    kiv.setupLogger(() => {});
    kiv.init();
    const monitor = new kiv.ScreenLockMonitor();
    kiv.setInterval(() => {}, 10);
    const snap = kiv.getScreenSnap('desktop');
    // Nothing holds the loop any more: it ends, and the runtime lets go of the module.
    internals.unrefHandles();
    setImmediate(() => [monitor, snap]);
  });
  assert.deepStrictEqual([code, stderr], [0, '']);
});

test('a worker thread cannot load the module, before or after the main thread did, which may load it again', async () => {
  const { json } = await shared.run(async () => {
    let Worker;
    try {
      ({ Worker } = require('worker_threads'));
    } catch (error) {
      return report('the oldest runtime has none: main thread only');
    }
    const file = require('path').resolve('build', process.env.KIV_BUILD, 'kiv_native.node');
    const load = () => new Promise((resolve) => {
      const worker = new Worker(`require(${JSON.stringify(file)})`, { eval: true });
      worker.on('error', (error) => resolve(error.message)).on('exit', () => resolve('loaded'));
    });
    const errors = await load();
    const first = Object.keys(kiv).length;
    delete require.cache[file];
    return report([errors, await load(), first - Object.keys(require(file)).length].join());
  });
  assert.match(json, /main thread only(,.*main thread only,0)?$/);
});

test('init and teardown, in any order and number, leave nothing behind', () => shared.look(async () => {
  const descriptors = () => require('fs').readdirSync('/proc/self/fd').length;
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  kiv.teardown();
  await new Promise(setImmediate);
  const before = descriptors();
  for (let i = 0; i < 20; ++i) {
    kiv.init();
    kiv.init();
    if (i % 2) await new Promise(setImmediate);
    kiv.teardown();
    kiv.teardown();
    kiv.init();
    kiv.teardown();
    await until(() => descriptors() <= before, { what: `${before} descriptors, not ${descriptors()}` });
  }
  report(true);
}));

test('without a display or a bus init is silent and the rest goes on', () =>
  inSession({ display: false, bus: false }, async ({ env }) => {
    assert.deepStrictEqual(await look(() => {
      host.startLoop();
      const log = [];
      kiv.setupLogger((level, text) => log.push(text));
      const results = [kiv.init(), kiv.init()];
      const { width, data, activeWindowTitle } = kiv.getScreenSnap('desktop');
      report([...results, width, data.length, activeWindowTitle, kiv.teardown(), log]);
    }, { env }), [null, null, 0, 0, 'Undefined', null, []]);
  }));

test('the death of the session bus does not end the process; the next init uses the next bus', () =>
  inSession({ wm: false }, async ({ env, bus: { pid } }) => {
    assert.strictEqual(await look(async (daemon) => {
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
      process.kill(daemon);
      // Nothing shows from outside that GDBus has noticed; where it ends the process, this is enough.
      await new Promise((resolve) => setTimeout(resolve, 300));
      const { width } = kiv.getScreenSnap('desktop');
      kiv.teardown();
      kiv.init();
      report(width);
      kiv.teardown();
    }, { env, args: [pid] }), 1280);
  }));

// Whether the module notices the end of the server in the loop, or in the next call without any turn
// of the loop in between.
for (const inLoop of [true, false]) {
  test(`losing the X server is noticed in the ${inLoop ? 'loop' : 'next call'}; ticks and lock events go on`, async () => {
    const other = await startXvfb();
    try {
      assert.deepStrictEqual(await shared.look(async (display, pid, waits) => {
        const fs = require('fs');
        const own = process.env.DISPLAY;
        const [lines, counts] = [[], { ticks: 0, locks: 0 }];
        const monitor = new kiv.ScreenLockMonitor();
        monitor.emit = () => { ++counts.locks; };
        host.startLoop();
        kiv.setupLogger((level, text) => { if (level === 'error') lines.push(text); });
        // GDK keeps its server; only the agent's goes away.
        process.env.DISPLAY = display;
        kiv.init();
        kiv.setInterval(() => { ++counts.ticks; }, 5);
        bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
        process.kill(pid, 'SIGKILL');
        const end = Date.now() + 5000;
        while (!waits && fs.existsSync(`/proc/${pid}/exe`) && Date.now() < end);
        if (waits) await until(() => lines.length > 0, { what: 'the loss to be logged' });
        const lost = kiv.getScreenSnap('display');
        await until(() => lines.length > 0, { what: 'the loss to be logged' });
        counts.ticks = 0;
        await until(() => {
          bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)');
          return counts.ticks > 1 && counts.locks > 0;
        }, { what: `ticks and lock events without a server: ${JSON.stringify(counts)}` });
        process.env.DISPLAY = own;
        kiv.init();
        const again = kiv.getInputInfo().last.input >= 0;
        report([lost.width, lost.activeWindowTitle, kiv.getScreenSnap('desktop').width, again, lines]);
        kiv.teardown();
        void monitor;
      }, { args: [other.display, other.pid, inLoop] }), [1280, 'Undefined', 1280, true, ['Session: X connection lost']]);
    } finally {
      await other.stop();
    }
  });
}
