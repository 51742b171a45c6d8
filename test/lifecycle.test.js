'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { startApp } = require('./lib/app');
const { connect } = require('./lib/bus');
const { listen } = require('./lib/lockers');
const { until } = require('./lib/processes');
const { startBus, startSession, startXvfb, useSession } = require('./lib/session');

const NOWHERE = { DISPLAY: ':99999', DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' };
const shared = useSession();
const width = (app) => app.run(() => kiv.getScreenSnap('desktop').width);
const init = (app, display = '') =>
  app.run((name) => {
    if (name) process.env.DISPLAY = name;
    kiv.init();
  }, display);
const ticking = async (app) => {
  await app.run(() => kiv.setInterval(() => log.push('tick'), 5));
  await until(() => app.run(() => log.filter((line) => line === 'tick').length > 2), 'ticks');
};
/** With a server or bus that is one test's own. */
const withOwn = async (starting, f) => {
  const own = await starting;
  await f(own).finally(own.stop);
};
const endsSilently = async (app, code) => {
  await until(() => app.result, 'the end of the process');
  assert.deepStrictEqual([app.result, app.output()], [{ code, signal: null }, '']);
};

const runDry = () => setImmediate(() => internals.unrefHandles(process.disconnect()));
for (const [way, leave, code] of [
  ['process.exit', () => process.exit(3), 3],
  ['process.exit in a tick', () => kiv.setInterval(() => process.exit(4), 5), 4],
  ['nothing more to wait for', runDry, 0],
]) {
  test(`the process ends in order with everything alive: ${way}`, async () => {
    const app = await shared.app({ leaks: false });
    await app.run(() => {
      global.kept = [new kiv.ScreenLockMonitor(), kiv.getScreenSnap('display')];
      kiv.setInterval(() => {}, 5);
      kiv.getScreenSnapAsync('selection', () => {});
    });
    app.run(leave).catch(() => {});
    await endsSilently(app, code);
  });
}

test('a worker cannot load the module, before or after the main thread did', () => {
  const ONLY = 'kiv_native works on the main thread only';
  const work = async (app) => {
    const load = () =>
      app.run((old) => {
        if (!require('module').builtinModules.includes('worker_threads')) return old;
        const { Worker } = require('worker_threads');
        const source = `require('${process.env.KIV_BUILD_FOLDER}/kiv_native')`;
        const worker = new Worker(source, { eval: true });
        return new Promise((resolve) =>
          worker.on('error', (error) => resolve(error.message)).on('exit', resolve),
        );
      }, ONLY);
    assert.deepStrictEqual([await load(), await init(app), await load()], [ONLY, null, ONLY]);
  };
  return shared.withApp(work, { setUp: false });
});

test('init and teardown, in any order and number, leave no descriptor, give a child none, leave the bus', () =>
  shared.withApp(async (app) => {
    const list = (command) =>
      app.run((text) => String(require('child_process').execSync(text)), `exec ls ${command}`);
    const descriptors = async () => (await list('/proc/$PPID/fd')).split('\n').length;
    const inherited = await list('/proc/self/fd');
    await app.run(() => kiv.teardown());
    assert.strictEqual(inherited, await list('/proc/self/fd'));
    const before = await descriptors();
    for (let i = 0; i < 10; ++i) {
      for (const name of ['init', 'init', 'teardown', 'teardown', 'init', 'teardown'])
        await app.run((step) => kiv[step](), name);
      await until(async () => (await descriptors()) <= before, 'descriptors are closed');
    }
    const DBUS = ['org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus'];
    const alone = async () => (await shared.peer.call(...DBUS, 'ListNames'))[0].length === 2;
    await until(alone, 'no connection to the bus');
  }));

test('without a display or a bus init is silent and the rest goes on', () => {
  const work = async (app) => {
    await init(app);
    assert.deepStrictEqual([await width(app), await app.log()], [0, []]);
  };
  return shared.withApp(work, { env: NOWHERE });
});

test("a child that native code forks and that exits stops neither the parent's input nor its timer", () =>
  shared.withApp(async (app) => {
    assert.strictEqual(await app.run(() => faults.forkAndExit()), 0);
    shared.x.key();
    await until(() => app.run(() => kiv.getInputInfo().keyboardActivity === 1), 'a key');
    await ticking(app);
  }));

for (const place of ['the loop', 'the next call']) {
  test(`the loss of the agent's X server is noticed in ${place}; the rest goes on`, () =>
    withOwn(startXvfb(), (other) =>
      shared.withApp(async (app) => {
        await init(app, other.display); // GDK keeps its own
        await app.log();
        if (place === 'the loop') await other.stop();
        else
          await app.run((pid) => {
            process.kill(pid, 'SIGKILL');
            while (require('fs').existsSync(`/proc/${pid}/exe`));
            kiv.getScreenSnap('display');
          }, other.pid);
        const errors = () => app.run(() => log.filter((line) => line.startsWith('error')));
        await until(async () => (await errors()).length > 0, 'a lost server');
        assert.strictEqual(await width(app), 1280);
        await ticking(app);
        assert.deepStrictEqual(await errors(), ['error Session: X connection lost']);
        await listen(app, shared.peer);
        await init(app, shared.env.DISPLAY);
        assert.ok(await app.run(() => kiv.getInputInfo().last.input >= 0), 'another server');
      }),
    ));
}

test("the loss of GDK's own X server ends the process as GDK does", () =>
  withOwn(startSession(), async (session) => {
    const app = await startApp(session);
    await app.run(() => faults.tellAtExit());
    await width(app);
    await session.server.stop();
    await endsSilently(app, 1);
  }));

test('the session bus may die, hang and come back; the next init uses it', () =>
  withOwn(startBus(), async (bus) => {
    const env = { DBUS_SESSION_BUS_ADDRESS: bus.address };
    const work = async (app) => {
      const peer = await connect(bus.address);
      await listen(app, peer);
      await bus.stop();
      await init(app);
      assert.strictEqual(await width(app), 1280);
      await withOwn(startBus(bus.address), async (next) => {
        const again = await connect(bus.address);
        await init(app);
        await listen(app, again);
        process.kill(next.pid, 'SIGSTOP');
        await app.run(() => kiv.teardown());
        await init(app);
        process.kill(next.pid, 'SIGCONT');
        await init(app);
        await listen(app, again);
      });
    };
    await shared.withApp(work, { env });
  }));

test('an interval ticks at its period, in the low 32 bits, until another, 0, no function or teardown', () =>
  shared.withApp(async (app) => {
    const times = await app.run(`() => new Promise((resolve) => {
      const [start, times] = [Date.now(), []];
      kiv.setInterval(() => times.push(Date.now() - start) === 3 && resolve(times), 100);
    })`);
    assert.ok(times[0] >= 98 && times[1] >= 198 && times[2] >= 298, String(times));
    await app.run(() => process.on('uncaughtException', () => log.push('thrown')));
    // What is done, and whether `f` is called soon.
    for (const [steps, wanted] of [
      ['kiv.setInterval(f, 5); kiv.setInterval(f, 0);', false],
      ['kiv.setInterval(f, 2 ** 32 + 5);', true],
      ['kiv.setInterval(f, -5);', false],
      ['kiv.setInterval(f, 5); kiv.setInterval({}, 5);', false],
      ['kiv.setInterval(() => { setImmediate(f); throw 1; }, 5);', true],
      ['kiv.setInterval(() => { setImmediate(f); kiv.setInterval(() => {}, 5); gc(); }, 5);', true],
      ['kiv.setInterval(() => { setImmediate(f); kiv.teardown(); kiv.init(); gc(); }, 5);', true],
      ['kiv.setInterval(f, 5); kiv.teardown();', false],
      ['kiv.setInterval(f, 5);', false],
      ['kiv.init();', false],
    ]) {
      const ticked = await app.run(`() => new Promise((resolve) => {
        const f = () => resolve(true);
        ${steps}
        setTimeout(resolve, ${wanted ? 60000 : 60}, false).unref();
      })`);
      assert.strictEqual(ticked, wanted, steps);
    }
  }));

test('with hardly a descriptor left every call goes on; a bus that teardown closed then is not used again', () =>
  shared.withApp(async (app) => {
    await width(app);
    await app.run((nowhere) => {
      const { closeSync, openSync, readdirSync } = require('fs');
      const limit = Math.max(...readdirSync('/proc/self/fd').map(Number)) + 40;
      require('child_process').execSync(`prlimit --pid ${process.pid} --nofile=${limit}:`);
      const fewLeft = (left, work) => {
        const taken = [];
        try {
          for (;;) taken.push(openSync('/dev/null'));
        } catch (_) {
          taken.splice(0, left).forEach(closeSync);
        }
        work();
        taken.forEach(closeSync);
      };
      const round = () => kiv.init() || (kiv.getScreenSnap('desktop') && kiv.teardown());
      for (let left = 0; left <= 12; ++left) fewLeft(left, round);
      process.env.DISPLAY = nowhere; // no connection whose end would free a descriptor
      kiv.init();
      fewLeft(0, () => kiv.teardown());
      kiv.init();
    }, NOWHERE.DISPLAY);
    await listen(app, shared.peer);
  }));
