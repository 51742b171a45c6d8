'use strict';

const assert = require('node:assert');
const fs = require('fs');
const { describe, test } = require('node:test');
const { setTimeout: wait } = require('timers/promises');
const { connect } = require('../lib/bus');
const { until } = require('../lib/processes');
const { useSession } = require('../lib/session');

describe('on X11', () => {
  const shared = useSession({ screens: ['640x480', '320x240'], bus: false });
  const counts = (app) =>
    app.run(() => {
      const { keyboardActivity, mouseActivity } = kiv.getInputInfo();
      return [keyboardActivity, mouseActivity];
    });
  // The key at the end of what is done says that everything before it has arrived.
  const added = async (app, input) => {
    const [keys, buttons] = await counts(app);
    await input(shared.x);
    shared.x.key();
    await until(async () => (await counts(app))[0] > keys);
    return counts(app).then(([more, clicks]) => [more - keys - 1, clicks - buttons]);
  };

  test('keys and buttons count once when pressed, on two screens; bursts of the wheel once', () =>
    shared.withApp(async (app) => {
      const click =
        (...buttons) =>
        (x) =>
          buttons.forEach(x.click);
      for (const [what, input, expected] of [
        ['motion', (x) => x.moveTo(200, 100), [0, 0]],
        ['keys', (x) => [38, 38, 39].forEach(x.key), [3, 0]],
        ['left, middle, right', click(1, 2, 3), [0, 3]],
        ['the same button', click(1, 1), [0, 2]],
        ['a burst of the wheel', click(4, 5, 4, 5), [0, 1]],
        ['the horizontal wheel', click(6, 7, 6), [0, 3]],
        // A burst lasts as long as each click follows the last by less than a second.
        ['600 ms later', (x) => wait(600).then(() => x.click(4)), [0, 0]],
        ['600 ms after that', (x) => wait(600).then(() => x.click(4)), [0, 0]],
        ['1100 ms later', (x) => wait(1100).then(() => x.click(5)), [0, 1]],
      ])
        assert.deepStrictEqual(await added(app, input), expected, what);
    }));

  test('counters survive a teardown and stand still until init; unknown times are -1', () =>
    shared.withApp(async (app) => {
      shared.x.key();
      await until(async () => (await counts(app))[0] === 1);
      const torn = await app.run(() => {
        kiv.teardown();
        return kiv.getInputInfo();
      });
      shared.x.key();
      await shared.x.sync();
      await app.run(() => kiv.init());
      assert.deepStrictEqual(await added(app, () => {}), [0, 0]);
      const info = (input, keyboardActivity) => ({
        last: { input, keyPress: -1, mouseClick: -1, mouseMove: -1 },
        keyboardActivity,
        mouseActivity: 0,
      });
      assert.deepStrictEqual(torn, info(-1, 1));
      assert.deepStrictEqual(await app.run(() => kiv.getInputInfo()), info(0, 2));
    }));

  test("idle seconds are whole and follow the person's input", () =>
    shared.withApp(async (app) => {
      const idle = () => app.run(() => kiv.getInputInfo().last.input);
      shared.x.moveTo(50, 50);
      const start = Date.now();
      const seen = new Set();
      await until(async () => seen.add(await idle()).has(2));
      assert.deepStrictEqual([[...seen], Date.now() - start > 1900], [[0, 1, 2], true]);
      shared.x.moveTo(60, 60);
      assert.strictEqual(await idle(), 0);
    }));

  // What a round trip reads into Xlib's queue leaves the descriptor silent, and so does a look.
  for (const question of ['getInputInfo', 'getScreenSnap'])
    test(`a key that arrives during ${question} counts without any further input`, () =>
      shared.withApp(async (app) => {
        const [ready, go] = ['ready', 'go'].map((name) => shared.inside(question + name));
        const counted = app.run(
          async (method, ...files) => {
            const { existsSync, writeFileSync } = require('fs');
            writeFileSync(files[0], '');
            while (!existsSync(files[1]));
            kiv[method]('desktop');
            for (let i = 0; i < 3; ++i) await new Promise(setImmediate);
            return kiv.getInputInfo().keyboardActivity;
          },
          question,
          ready,
          go,
        );
        await until(() => fs.existsSync(ready));
        shared.x.key();
        await shared.x.sync();
        fs.writeFileSync(go, '');
        assert.strictEqual(await counted, 1);
      }));
});

describe("on other sessions the idle time is Mutter's", () => {
  const shared = useSession({ display: false });
  const WRONG = /^error DBUS IdleTime: unexpected reply of type /;

  test('right, wrong and missing answers', () =>
    shared.withApp(
      async (app) => {
        const mutter = await connect(shared.bus.address);
        const ask = async (what, seconds, pattern) => {
          const input = await app.run(() => kiv.getInputInfo().last.input);
          const lines = await app.log();
          assert.deepStrictEqual([input, lines.length], [seconds, pattern ? 1 : 0], what);
          if (pattern) assert.match(lines[0], pattern, what);
        };
        await app.log();
        await ask('no service', -1, /^error DBUS IdleTime: ./);
        await mutter.own('org.gnome.Mutter.IdleMonitor');
        for (const [answer, seconds, pattern] of [
          [{ signature: 't', body: [61999n] }, 61],
          [{ signature: 's', body: ['61999'] }, -1, WRONG],
          [{ signature: 'tt', body: [1n, 2n] }, -1, WRONG],
          [
            { error: 'org.example.No', text: 'not today' },
            -1,
            /^error DBUS IdleTime: .*not today$/,
          ],
        ]) {
          mutter.answer({ GetIdletime: answer });
          await ask(`${answer.signature || answer.error}`, seconds, pattern);
        }
        mutter.answer({ GetIdletime: { error: 'org.example.No' } });
        assert.strictEqual(
          await app.run(() => {
            kiv.setupLogger(() => {
              throw new Error('mine');
            });
            try {
              kiv.getInputInfo();
            } catch (error) {
              kiv.setupLogger(() => {});
              return error.message;
            }
          }),
          'mine',
          "the logger's exception reaches the caller",
        );
        mutter.close();
      },
      { env: { XDG_SESSION_TYPE: 'wayland' } },
    ));
});
