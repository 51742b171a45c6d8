'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase, startCase } = require('./helpers/case');
const { startXvfb } = require('./helpers/display');
const { startSession } = require('./helpers/session');

let session;
before(async () => { session = await startSession({ wm: false }); });
after(() => session.stop());
const run = (source, options) => runCase(source, { env: session.env, ...options });

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
      const result = await run(`let keep; ${prepare} ${leave}`, { leaks: way === 'end of loop' });
      assert.deepStrictEqual([result.code, result.signal], [code, null], `${state}: ${result.stderr}`);
      assert.doesNotMatch(result.stderr, /CRITICAL|WARNING|runtime error|Sanitizer|FATAL/, state);
      if (way !== 'an uncaught exception') assert.strictEqual(result.stderr, '', state);
    }));
  });
}

test('the end of the runtime with everything alive', async () => {
  const { code, stderr } = await run(async () => {
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

test('a worker thread cannot load the module', async () => {
  const { json } = await run(async () => {
    const { Worker } = require('worker_threads');
    const file = require('path').join(process.cwd(), 'build', process.env.KIV_BUILD, 'kiv_native.node');
    report(await new Promise((resolve) => {
      new Worker(`require(${JSON.stringify(file)})`, { eval: true }).on('error', (error) => resolve(error.message)).on('exit', () => resolve('loaded'));
    }));
  });
  assert.match(json, /main thread only/);
});

test('init and teardown, in any order and number, leave nothing behind', async () => {
  const { json } = await run(async () => {
    const fs = require('fs');
    const descriptors = () => fs.readdirSync('/proc/self/fd').length;
    host.startLoop();
    kiv.setupLogger(() => {});
    kiv.init();
    kiv.teardown();
    await new Promise(setImmediate);
    const before = descriptors();
    const counts = [];
    for (let i = 0; i < 20; ++i) {
      kiv.init();
      kiv.init();
      if (i % 2) await new Promise(setImmediate);
      kiv.teardown();
      kiv.teardown();
      kiv.init();
      kiv.teardown();
      await until(() => descriptors() <= before, { timeout: 5000, what: `${before} descriptors, not ${descriptors()}` });
      counts.push(descriptors());
    }
    report({ before, counts });
  });
  assert.ok(json.counts.every((count) => count <= json.before), JSON.stringify(json));
});

test('without a display or a bus init is silent and the rest goes on', async () => {
  const lonely = await startSession({ display: false, bus: false });
  try {
    const { json, stderr, code } = await runCase(() => {
      host.startLoop();
      kiv.setupLogger(() => {});
      const results = [kiv.init(), kiv.init()];
      const { width, data, activeWindowTitle } = kiv.getScreenSnap('desktop');
      report([...results, width, data.length, activeWindowTitle, kiv.teardown()]);
    }, { env: lonely.env });
    assert.deepStrictEqual(json, [null, null, 0, 0, 'Undefined', null]);
    assert.strictEqual(stderr, '');
    assert.strictEqual(code, 0);
  } finally {
    await lonely.stop();
  }
});

test('the death of the session bus does not end the process; the next init uses the next bus', async () => {
  const dying = await startSession({ wm: false });
  try {
    const running = startCase(async (pid) => {
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
      process.kill(pid);
      // Nothing shows from outside that GDBus has noticed; where it ends the process, this is enough.
      await new Promise((resolve) => setTimeout(resolve, 300));
      const { width } = kiv.getScreenSnap('desktop');
      kiv.teardown();
      kiv.init();
      report(width);
      kiv.teardown();
    }, { env: dying.env, args: [dying.bus.pid] });
    const { json, code, signal, stderr } = await running.done;
    assert.deepStrictEqual([json, code, signal], [1280, 0, null], stderr);
  } finally {
    await dying.stop();
  }
});

test('losing the X server leaves the module as after a failed init', async () => {
  const other = await startXvfb();
  try {
    const { json, code, signal, stderr } = await run(async (display, pid) => {
      host.startLoop();
      kiv.setupLogger(() => {});
      const own = process.env.DISPLAY;
      // GDK keeps its server; only the agent's goes away.
      process.env.DISPLAY = display;
      kiv.init();
      const fs = require('fs');
      const timers = () => fs.readdirSync('/proc/self/fd').filter((fd) => {
        try { return fs.readlinkSync(`/proc/self/fd/${fd}`).includes('timerfd'); } catch (error) { return false; }
      }).length;
      const before = [timers(), fs.readdirSync('/proc/self/fd').length];
      process.kill(pid, 'SIGKILL');
      await until(() => timers() < before[0] && fs.readdirSync('/proc/self/fd').length <= before[1] - 2, { what: 'timer and connection to be closed' });
      const lost = kiv.getScreenSnap('desktop');
      process.env.DISPLAY = own;
      kiv.init();
      report([lost.width, lost.activeWindowTitle, kiv.getScreenSnap('desktop').width]);
      kiv.teardown();
    }, { args: [other.display, other.pid] });
    assert.deepStrictEqual([json, code, signal], [[1280, 'Undefined', 1280], 0, null], stderr);
  } finally {
    await other.stop();
  }
});

test('a server that dies between two calls is noticed by the next one', async () => {
  const other = await startXvfb();
  try {
    const { json, code, stderr } = await run(async (display, pid) => {
      const own = process.env.DISPLAY;
      host.startLoop();
      kiv.setupLogger(() => {});
      process.env.DISPLAY = display;
      kiv.init();
      process.kill(pid, 'SIGKILL');
      const end = Date.now() + 5000;
      // No turn of the loop in between.
      while (require('fs').existsSync(`/proc/${pid}/exe`) && Date.now() < end);
      report([kiv.getScreenSnap('display').activeWindowTitle, kiv.getScreenSnap('display').width]);
      process.env.DISPLAY = own;
      kiv.teardown();
    }, { args: [other.display, other.pid] });
    assert.deepStrictEqual([json, code], [['Undefined', 1280], 0], stderr);
  } finally {
    await other.stop();
  }
});
