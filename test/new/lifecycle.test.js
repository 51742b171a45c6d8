'use strict';

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { test } = require('node:test');
const { connect } = require('../lib/bus');
const { listen } = require('../lib/lockers');
const { until } = require('../lib/processes');
const { startBus, startSession, startXvfb, useSession } = require('../lib/session');

const shared = useSession();
const width = (app) => app.run(() => kiv.getScreenSnap('desktop').width);
const ticking = (app, count = 2) =>
  app
    .run(() => {
      global.ticks = 0;
      kiv.setInterval(() => ++global.ticks, 5);
    })
    .then(() => until(() => app.run((least) => global.ticks >= least, count), 'ticks'));
/** An X server or bus for one test alone. */
const withOwn = async (starting, f) => {
  const own = await starting;
  try {
    await f(own);
  } finally {
    await own.stop();
  }
};

// How it leaves: [with everything alive, code].
const ENDS = {
  'process.exit': [() => process.exit(3), 3],
  'process.exit in a tick': [() => kiv.setInterval(() => process.exit(4), 5), 4],
  'an uncaught exception': [
    () =>
      setImmediate(() => {
        throw new Error('expected');
      }),
    1,
  ],
  'the runtime with everything alive': [
    () =>
      setImmediate(() => {
        internals.unrefHandles();
        process.disconnect();
      }),
    0,
  ],
};
for (const [way, [leave, code]] of Object.entries(ENDS)) {
  test(`the process ends in order: ${way}`, async () => {
    const app = await shared.app({ leaks: false });
    await app.run(() => {
      global.kept = [new kiv.ScreenLockMonitor(), kiv.getScreenSnap('display')];
      kiv.setInterval(() => {}, 5);
      kiv.getScreenSnapAsync('selection', () => {});
    });
    app.run(leave).catch(() => {});
    assert.deepStrictEqual(await app.ended, { code, signal: null }, app.output());
    if (code === 1) assert.match(app.output(), /Error: expected\n/);
    else assert.strictEqual(app.output(), '');
  });
}

test('a worker cannot load the module, before or after the main thread did', async () => {
  const app = await shared.app({ setUp: false });
  const errors = await app.run(async () => {
    const { Worker } = require('worker_threads');
    const file = require('path').join(process.env.KIV_BUILD_FOLDER, 'kiv_native.node');
    const load = () =>
      new Promise((resolve) => {
        const worker = new Worker(`require(${JSON.stringify(file)})`, { eval: true });
        worker.on('error', (error) => resolve(error.message)).on('exit', () => resolve('loaded'));
      });
    const before = await load();
    kiv.init();
    return [before, await load()];
  });
  assert.deepStrictEqual(errors, Array(2).fill('kiv_native works on the main thread only'));
  await app.end();
});

test('init and teardown, in any order and number, leave no descriptor behind', () =>
  shared.withApp(async (app) => {
    const descriptors = () => app.run(() => require('fs').readdirSync('/proc/self/fd').length);
    await app.run(() => kiv.teardown());
    const peer = await connect(shared.bus.address);
    const DBUS = ['org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus'];
    const names = async () => (await peer.call(...DBUS, 'ListNames'))[0].length;
    await until(async () => (await names()) === 2, 'nobody but the peer on the bus');
    peer.close();
    const before = await descriptors();
    for (let i = 0; i < 10; ++i) {
      for (const step of 'iittitit')
        await app.run((call) => kiv[call](), step === 'i' ? 'init' : 'teardown');
      await until(async () => (await descriptors()) <= before, `${before} descriptors`);
    }
  }));

test('without a display or a bus init is silent and the rest goes on', () => {
  const env = { DISPLAY: ':99999', DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' };
  return shared.withApp(
    async (app) => {
      await app.run(() => kiv.init());
      assert.deepStrictEqual([await width(app), await app.log()], [0, []]);
    },
    { env },
  );
});

test("a child that native code forks and that exits stops neither the parent's timer nor its input", () =>
  shared.withApp(async (app) => {
    assert.strictEqual(await app.run(() => faults.forkAndExit()), 0);
    shared.x.key();
    await until(
      () => app.run(() => kiv.getInputInfo().keyboardActivity === 1),
      'a key that is counted',
      10000,
    );
    await ticking(app);
  }));

for (const place of ['the loop', 'the next call']) {
  test(`the loss of the agent's X server is noticed in ${place}; the rest goes on, and init finds another`, () =>
    withOwn(startXvfb(), (other) =>
      shared.withApp(async (app) => {
        // GDK keeps its server.
        await app.run((display) => {
          process.env.DISPLAY = display;
          kiv.init();
        }, other.display);
        const lost = () => app.run(() => log.length > 0);
        if (place === 'the loop') {
          await other.stop();
          await until(lost, 'a lost server');
        } else {
          await app.run((pid) => {
            process.kill(pid, 'SIGKILL');
            while (require('fs').existsSync(`/proc/${pid}/exe`));
            return kiv.getScreenSnap('display').activeWindowTitle;
          }, other.pid);
          await until(lost, 'a lost server');
        }
        assert.strictEqual(await width(app), 1280);
        await ticking(app, 5);
        const errors = (await app.log()).filter((line) => line.startsWith('error'));
        assert.deepStrictEqual(errors, ['error Session: X connection lost']);
        const peer = await connect(shared.bus.address);
        await listen(app, peer);
        peer.close();
        await app.run((display) => {
          process.env.DISPLAY = display;
          kiv.init();
        }, shared.env.DISPLAY);
        assert.ok((await app.run(() => kiv.getInputInfo().last.input)) >= 0);
      }),
    ));
}

test("the loss of GDK's own connection ends the process as GDK does", () =>
  withOwn(startSession(), async (session) => {
    const { startApp } = require('../lib/app');
    const app = await startApp(session);
    await width(app);
    await session.server.stop();
    assert.deepStrictEqual(await app.ended, { code: 1, signal: null });
    assert.strictEqual(app.output(), '');
  }));

test('the session bus may die, hang and come back; the next init uses it', () =>
  withOwn(startBus(), async (bus) => {
    const env = { DBUS_SESSION_BUS_ADDRESS: bus.address };
    const meet = async (app) => {
      const peer = await connect(bus.address);
      await app.run(() => kiv.init());
      await listen(app, peer);
      peer.close();
    };
    await shared.withApp(
      async (app) => {
        await meet(app);
        await bus.stop();
        await app.run(() => kiv.init());
        assert.strictEqual(await width(app), 1280);
        await withOwn(startBus(bus.address), async (next) => {
          await meet(app);
          process.kill(next.pid, 'SIGSTOP');
          await app.run(() => {
            kiv.teardown();
            kiv.init();
          });
          assert.strictEqual(await width(app), 1280);
          process.kill(next.pid, 'SIGCONT');
          await meet(app);
        });
      },
      { env },
    );
  }));

test('an interval ticks at its period, in the low 32 bits, until another, 0, no function or teardown', () =>
  shared.withApp(async (app) => {
    const ticks = (...periods) =>
      app.run(async (list) => {
        global.ticks = 0;
        for (const [f, period] of list) {
          if (period === undefined) kiv[f]();
          else kiv.setInterval(f && (() => ++global.ticks), period);
        }
        await new Promise((resolve) => setTimeout(resolve, 60));
        return global.ticks > 0;
      }, periods);
    assert.deepStrictEqual(
      await app.run(async () => {
        const start = Date.now();
        const times = [];
        await new Promise((resolve) =>
          kiv.setInterval((...args) => {
            times.push([Date.now() - start >= 100 * (times.length + 1) - 2, args.length]);
            if (times.length === 3) resolve();
          }, 100),
        );
        return times;
      }),
      Array(3).fill([true, 0]),
    );
    await ticking(app);
    assert.deepStrictEqual(await ticks([true, 0]), false);
    assert.deepStrictEqual(await ticks([true, 2 ** 32 + 5]), true);
    assert.deepStrictEqual(await ticks([true, -5]), false);
    assert.deepStrictEqual(await ticks([true, 2.9]), true);
    assert.deepStrictEqual(await ticks([true, NaN]), false);
    assert.deepStrictEqual(await ticks([true, 5], [false, 5]), false);
    assert.deepStrictEqual(await ticks([true, 5], ['teardown']), false);
    assert.deepStrictEqual(await ticks([true, 5], ['init']), false);
  }));

test('a tick may set intervals, throw, tear down and start over', () =>
  shared.withApp(async (app) => {
    await app.run(() => process.on('uncaughtException', (error) => log.push(error.message)));
    for (const deed of [
      () => kiv.setInterval(() => {}, 5) || gc(),
      () => {
        throw new Error('expected');
      },
      () => kiv.teardown() || gc() || kiv.init(),
      () => kiv.teardown(),
    ]) {
      await app.run(`() => new Promise((resolve) => kiv.setInterval(() => {
        setImmediate(resolve);
        kiv.setInterval(() => {}, 0);
        (${deed})();
      }, 5))`);
    }
    assert.deepStrictEqual(await app.log(), ['expected']);
  }));

test('a child of the host inherits no descriptor of the module', () =>
  shared.withApp(async (app) => {
    const inherited = () =>
      app.run(() => String(require('child_process').execFileSync('ls', ['/proc/self/fd'])).length);
    const after = await inherited();
    await app.run(() => kiv.teardown());
    assert.strictEqual(await inherited(), after);
  }));

test('with hardly a descriptor left every call does without, and the bus that teardown closed then is not used again', () =>
  shared.withApp(async (app) => {
    await width(app);
    const used = Math.max(...fs.readdirSync(`/proc/${app.pid}/fd`).map(Number));
    execFileSync('prlimit', ['--pid', String(app.pid), `--nofile=${used + 40}:`]);
    await app.run(() => {
      global.fill = () => {
        const taken = [];
        try {
          for (;;) taken.push(require('fs').openSync('/dev/null'));
        } catch (_) {
          return taken;
        }
      };
      global.free = (taken) => taken.forEach(require('fs').closeSync);
    });
    for (let left = 0; left <= 12; ++left) {
      await app.run((count) => {
        const taken = global.fill();
        global.free(taken.splice(0, count));
        kiv.init();
        kiv.setInterval(() => {}, 100);
        kiv.getScreenSnap('desktop');
        kiv.teardown();
        global.free(taken);
      }, left);
    }
    const peer = await connect(shared.bus.address);
    await app.run(() => {
      process.env.DISPLAY = ':99999'; // no connection whose end would free a descriptor
      kiv.init();
      const taken = global.fill();
      kiv.teardown();
      global.free(taken);
      kiv.init();
    });
    await listen(app, peer);
    peer.close();
  }));
