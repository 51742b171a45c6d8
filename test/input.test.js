'use strict';

const assert = require('node:assert');
const fs = require('fs');
const { describe, test } = require('node:test');
const { setTimeout: wait } = require('timers/promises');
const { connect } = require('./lib/bus');
const { act } = require('./lib/overlay');
const { until } = require('./lib/processes');
const { useSession } = require('./lib/session');

describe('on X11', () => {
  const shared = useSession({ screens: ['640x480', '320x240'], bus: false });
  const input = (app) => app.run(() => kiv.getInputInfo());
  const click = (...buttons) => {
    for (const button of buttons) shared.x.click(button);
  };
  // The key at the end of what is done says that everything before it has arrived.
  const added = async (app, deed) => {
    const before = await input(app);
    await deed(shared.x);
    shared.x.key();
    await until(async () => (await input(app)).keyboardActivity > before.keyboardActivity);
    const { keyboardActivity, mouseActivity } = await input(app);
    const keys = keyboardActivity - before.keyboardActivity - 1;
    return [keys, mouseActivity - before.mouseActivity];
  };

  test('keys and buttons count once when pressed, on two screens, too; bursts of the wheel once', () =>
    shared.withApp(async (app) => {
      for (const [what, deed, ...expected] of [
        ['motion', (x) => x.moveTo(200, 100), 0, 0],
        ['keys', (x) => act(x, 38, 38, 39), 3, 0],
        ['left, middle, right', () => click(1, 2, 3), 0, 3],
        ['the same button', () => click(1, 1), 0, 2],
        ['a burst of the wheel', () => click(4, 5, 4, 5), 0, 1],
        ['the horizontal wheel', () => click(6, 7, 6), 0, 3],
        // A burst lasts as long as each click follows the last by less than a second.
        ['600 ms later', () => wait(600).then(() => click(4)), 0, 0],
        ['600 ms after that', () => wait(600).then(() => click(4)), 0, 0],
        ['1100 ms later', () => wait(1100).then(() => click(5)), 0, 1],
      ])
        assert.deepStrictEqual(await added(app, deed), expected, what);
    }));

  test('counters stand still from teardown to init and go on then; unknown times are -1', () =>
    shared.withApp(async (app) => {
      assert.deepStrictEqual(await added(app, () => shared.x.key()), [1, 0]);
      await app.run(() => kiv.teardown());
      const last = { input: -1, keyPress: -1, mouseClick: -1, mouseMove: -1 };
      const torn = { last, keyboardActivity: 2, mouseActivity: 0 };
      assert.deepStrictEqual(await input(app), torn);
      act(shared.x, 38, 38, 'sync');
      await app.run(() => kiv.init());
      assert.deepStrictEqual(await added(app, () => {}), [0, 0]);
      assert.deepStrictEqual((await input(app)).last, { ...last, input: 0 });
    }));

  test("idle seconds are whole and follow the person's input", () =>
    shared.withApp(async (app) => {
      shared.x.moveTo(50, 50);
      const start = Date.now();
      const seen = new Set();
      await until(async () => seen.add((await input(app)).last.input).has(2));
      assert.deepStrictEqual([[...seen], Date.now() - start > 1900], [[0, 1, 2], true]);
      shared.x.moveTo(60, 60);
      assert.strictEqual((await input(app)).last.input, 0);
    }));

  // What a round trip reads into Xlib's queue leaves the descriptor silent, and so does a look.
  for (const question of ['getInputInfo', 'getScreenSnap'])
    test(`a key that arrives during ${question} counts without any further input`, () =>
      shared.withApp(async (app) => {
        const [ready, go] = ['ready', 'go'].map((name) => shared.inside(question + name));
        const values = [question, ready, go];
        const counted = app.run(async ([method, begun, awaited]) => {
          require('fs').writeFileSync(begun, '');
          while (!require('fs').existsSync(awaited));
          kiv[method]('desktop');
          for (let i = 0; i < 3; ++i) await new Promise(setImmediate);
          return kiv.getInputInfo().keyboardActivity;
        }, values);
        await until(() => fs.existsSync(ready));
        shared.x.key();
        await shared.x.sync();
        fs.writeFileSync(go, '');
        assert.strictEqual(await counted, 1);
      }));
});

describe("on other sessions the idle time is Mutter's", () => {
  const shared = useSession({ display: false });
  const WAYLAND = { env: { XDG_SESSION_TYPE: 'wayland' } };
  const wrong = /^error DBUS IdleTime: unexpected reply of type /;

  test('right, wrong and missing answers, and a logger that throws', () =>
    shared.withApp(async (app) => {
      const mutter = await connect(shared.bus.address);
      for (const [answer, seconds, line] of [
        [null, -1, /^error DBUS IdleTime: [^\n]+$/], // no service
        [{ signature: 't', body: [61999n] }, 61, /^$/],
        [{ signature: 's', body: ['61999'] }, -1, wrong],
        [{ signature: 'tt', body: [1n, 2n] }, -1, wrong],
        [{ error: 'org.example.No', text: 'not today' }, -1, /^error DBUS IdleTime: .*not today$/],
      ]) {
        mutter.answer({ GetIdletime: answer });
        if (answer) await mutter.own('org.gnome.Mutter.IdleMonitor');
        await app.log();
        assert.strictEqual(await app.run(() => kiv.getInputInfo().last.input), seconds);
        assert.match((await app.log()).join('\n'), line);
      }
      const thrown = app.run(() => {
        kiv.setupLogger(() => {
          throw new Error('mine');
        });
        kiv.getInputInfo();
      });
      await assert.rejects(thrown, /mine/);
      await app.run(() => kiv.setupLogger(() => {}));
      mutter.close();
    }, WAYLAND));
});
