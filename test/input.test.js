'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { setTimeout: wait } = require('timers/promises');
const { connect } = require('./lib/bus');
const { act } = require('./lib/overlay');
const { until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ screens: ['640x480', '320x240'] });
const WAYLAND = { env: { XDG_SESSION_TYPE: 'wayland' } };
const input = (app) => app.run(() => kiv.getInputInfo());
const click = (...buttons) => buttons.map((button) => shared.x.click(button));
/** The keys and buttons that are counted for a deed of so many keys. */
async function added(app, deed, keys = 0) {
  const before = await input(app);
  const counted = async () => (await input(app)).keyboardActivity - before.keyboardActivity;
  await deed(shared.x);
  // When the last key arrives, everything before it has arrived; one too many shows then.
  for (const more of [1, 2]) {
    shared.x.key();
    await until(async () => (await counted()) >= keys + more, 'a key');
  }
  return [(await counted()) - 2, (await input(app)).mouseActivity - before.mouseActivity];
}

test('keys and buttons count once, even with two screens; a burst of the wheel counts once', () =>
  shared.withApp(async (app) => {
    for (const [what, deed, ...expected] of [
      ['motion', (x) => x.moveTo(200, 100), 0, 0],
      ['keys', (x) => act(x, 38, 38, 39), 3, 0],
      ['left, middle, right and right again', () => click(1, 2, 3, 3), 0, 4],
      ['a burst of the wheel', () => click(4, 5, 4, 5), 0, 1],
      // In a burst, each click follows the previous one within a second.
      ['600 ms later', () => wait(600).then(() => click(4)), 0, 0],
      ['1100 ms later', () => wait(1100).then(() => click(5)), 0, 1],
    ])
      assert.deepStrictEqual(await added(app, deed, expected[0]), expected, what);
  }));

test('counters stop from teardown to init; idle times are in seconds, unknown ones are -1', () =>
  shared.withApp(async (app) => {
    assert.deepStrictEqual(await added(app, (x) => x.key(), 1), [1, 0]);
    await app.run(() => kiv.teardown());
    const last = { input: -1, keyPress: -1, mouseClick: -1, mouseMove: -1 };
    assert.deepStrictEqual(await input(app), { last, keyboardActivity: 3, mouseActivity: 0 });
    act(shared.x, 38, 38);
    await shared.x.sync();
    await app.run(() => kiv.init());
    assert.deepStrictEqual(await added(app, () => {}), [0, 0]);
    const start = Date.now();
    shared.x.moveTo(50, 50);
    await until(async () => (await input(app)).last.input >= 1, 'an idle second');
    assert.ok(Date.now() - start > 900, 'an idle second passed too early');
    shared.x.moveTo(60, 60);
    await shared.x.sync();
    assert.deepStrictEqual((await input(app)).last, { ...last, input: 0 });
  }));

// A round trip reads events into Xlib's queue; the descriptor then does not become readable.
for (const question of ['getInputInfo', 'getScreenSnap'])
  test(`keys that arrive during ${question} count without further input`, () =>
    shared.withApp(async (app) => {
      await app.run((method) => {
        const turn = () => new Promise(setImmediate);
        global.counting = turn().then(async () => {
          require('fs').readSync(0, Buffer.alloc(1), 0, 1, null); // until all keys are sent
          kiv[method]('desktop');
          for (let i = 0; i < 500; ++i) await turn();
          return kiv.getInputInfo().keyboardActivity;
        });
      }, question);
      for (let i = 0; i < 20000; ++i) shared.x.key();
      await shared.x.sync();
      app.child.stdin.write('.');
      assert.strictEqual(await app.run(() => global.counting), 20000);
    }));

test("in other sessions the idle time is Mutter's; a wrong answer logs a line and gives -1", () =>
  shared.withApp(async (app) => {
    const mutter = await connect(shared.bus.address);
    for (const [answer, seconds, line] of [
      [null, -1, /^error DBUS IdleTime: [^\n]+$/], // no service
      [{ signature: 't', body: [61999n] }, 61, /^$/],
      [{ signature: 's', body: ['61999'] }, -1, /^error DBUS IdleTime: unexpected reply of type /],
      [{ error: 'org.example.No', text: 'not today' }, -1, /^error DBUS IdleTime: .*not today$/],
      ['hang', -1, /^error DBUS IdleTime: Timeout was reached$/],
    ]) {
      mutter.answer({ GetIdletime: answer });
      if (answer) await mutter.own('org.gnome.Mutter.IdleMonitor');
      assert.strictEqual(await app.run(() => kiv.getInputInfo().last.input), seconds);
      assert.match((await app.log()).join('\n'), line);
    }
    mutter.close();
  }, WAYLAND));
