'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { startApp } = require('./lib/app');
const { connect } = require('./lib/bus');
const { listen } = require('./lib/lockers');
const { until } = require('./lib/processes');
const { startBus, startSession, startXvfb, useSession } = require('./lib/session');

const shared = useSession();
const own = (started) => shared.stops.push(started.stop) && started;
const width = (app) => app.run(() => kiv.getScreenSnap('desktop').width);
const init = (app, env) => app.run((more) => Object.assign(process.env, more) && kiv.init(), env);
const ticks = (app) => app.run(() => new Promise((resolve) => kiv.setInterval(resolve, 5)));

for (const [way, leave, code] of [
  ['process.exit in a tick', () => kiv.setInterval(() => process.exit(4), 5), 4],
  ['an empty loop', () => setImmediate(() => internals.unrefHandles(process.disconnect())), 0],
  ['the X server is killed', (pid) => process.kill(pid, 'SIGKILL'), 1],
]) {
  test(`the process exits cleanly while everything is open: ${way}`, async () => {
    const session = own(await startSession());
    const app = own(await startApp(session, { leaks: false }));
    await app.run(() => {
      global.kept = [new kiv.ScreenLockMonitor(), kiv.getScreenSnap('display')];
      kiv.setInterval(() => {}, 5);
      kiv.getScreenSnapAsync('selection', () => {});
    });
    app.run(leave, session.server.pid).catch(() => {});
    await until(() => app.result, 'the process to exit');
    assert.deepStrictEqual([app.result, app.output()], [{ code, signal: null }, '']);
  });
}

test('a worker cannot load the module', () =>
  shared.withApp(async (app) => {
    const said = await app.run(() => {
      const { Worker } = attempt(require, 'worker_threads');
      if (!Worker) return 'no workers: on the main thread only';
      const source = `require('${process.env.KIV_BUILD_FOLDER}/kiv_native')`;
      const worker = new Worker(source, { eval: true });
      return new Promise((end) => worker.on('error', end).on('exit', end)).then(String);
    });
    assert.match(said, /on the main thread only$/);
  }));

test('init and teardown leak no descriptor, a child inherits none, the bus connection closes', () =>
  shared.withApp(async (app) => {
    const list = () => String(require('child_process').execSync('exec ls /proc/self/fd'));
    const inherited = await app.run(list);
    const count = () => app.run(() => require('fs').readdirSync('/proc/self/fd').length);
    await app.run(() => kiv.teardown());
    assert.strictEqual(inherited, await app.run(list));
    const before = await count();
    for (let i = 0; i < 10; ++i)
      await app.run(() => kiv.init() || kiv.init() || kiv.teardown() || kiv.teardown());
    await until(async () => (await count()) <= before, 'descriptors to close');
    const DBUS = ['org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus'];
    const alone = async () => (await shared.peer.call(...DBUS, 'ListNames'))[0].length === 2;
    await until(alone, 'the bus connection to close');
  }));

test("the exit of a forked child does not stop the host's input or timer", () =>
  shared.withApp(
    async (app) => {
      assert.strictEqual(await app.run(() => faults.forkAndExit()), 0);
      shared.x.key();
      await until(() => app.run(() => kiv.getInputInfo().keyboardActivity === 1), 'a key');
      await ticks(app);
    },
    { leaks: false },
  ));

const lose = (pid, calls) => {
  process.kill(pid, 'SIGKILL');
  while (calls && require('fs').existsSync(`/proc/${pid}/exe`));
  if (calls) kiv.getScreenSnap('display');
};
for (const place of ['the loop', 'the next call']) {
  test(`the agent detects a lost X server in ${place}; everything else keeps working`, () =>
    shared.withApp(async (app) => {
      const { display, pid } = own(await startXvfb());
      await init(app, { DISPLAY: display }); // GDK keeps the old one
      await app.run(lose, pid, place === 'the next call');
      await until(() => app.run(() => log.includes('error Session: X connection lost')), 'a loss');
      assert.strictEqual(await width(app), 1280);
      await ticks(app);
      assert.strictEqual((await app.log()).join().match(/error /g).length, 1);
      await listen(app, shared.peer);
      await init(app, shared.env);
      assert.ok(await app.run(() => kiv.getInputInfo().last.input >= 0), 'not connected');
    }));
}

test('without a display, the next init finds the bus again after it died or hung', async () => {
  const { address, stop } = own(await startBus());
  const work = async (app) => {
    await listen(app, await connect(address));
    await stop();
    await init(app);
    assert.deepStrictEqual([await width(app), await app.log()], [0, []]);
    const { pid } = own(await startBus(address));
    process.kill(pid, 'SIGSTOP');
    await init(app);
    process.kill(pid, 'SIGCONT');
    await init(app);
    await listen(app, await connect(address));
  };
  const env = { DISPLAY: ':99999', DBUS_SESSION_BUS_ADDRESS: address };
  await shared.withApp(work, { env });
});

// No display, because closing its connection would free a descriptor.
const FEW = { env: { DISPLAY: ':99999' }, under: ['prlimit', '--nofile=100'] };
test('without free descriptors teardown works, and the next init finds the bus', () =>
  shared.withApp(async (app) => {
    await app.run(() => {
      const taken = [];
      while (attempt(() => taken.push(require('fs').openSync('/dev/null'))) === taken.length);
      kiv.teardown();
      for (const one of taken) require('fs').closeSync(one);
      kiv.init();
    });
    await listen(app, shared.peer);
  }, FEW));

test('an interval ticks at its period until it is stopped, replaced or torn down', () =>
  shared.withApp(async (app) => {
    // The steps, and whether they call `f` soon.
    for (const [steps, wanted] of [
      ['kiv.setInterval(() => ++ticks === 3 && resolve(Date.now() - start > 297), 100);', true],
      ['kiv.setInterval(f, 5); kiv.setInterval(f, 0);', false],
      ['kiv.setInterval(() => { setImmediate(f); kiv.setInterval(() => {}, 5); gc(); }, 5);', true],
      ['kiv.setInterval(() => { setImmediate(f); kiv.teardown(); kiv.init(); gc(); }, 5);', true],
      ['kiv.setInterval(f, 5); kiv.teardown();', false],
    ]) {
      const ticked = await app.run(`() => new Promise((resolve) => {
        const [f, start] = [() => resolve(true), Date.now()];
        let ticks = 0;
        ${steps}
        setTimeout(resolve, ${wanted ? 60000 : 60}, false).unref();
      })`);
      assert.strictEqual(ticked, wanted, steps);
    }
  }));
