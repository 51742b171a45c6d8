'use strict';

const assert = require('assert');
const { after, before, describe, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

const KEY = 38;

describe('on an X11 session', () => {
  let session;
  before(async () => { session = await startSession(); });
  after(() => session.stop());
  const run = (source, options) => runCase(source, { env: session.env, ...options });

  test('keys and buttons count once when pressed, wheel bursts once, releases and motion never', async () => {
    const { json } = await run(async (KEY) => {
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      const counts = () => { const { keyboardActivity, mouseActivity } = kiv.getInputInfo(); return [keyboardActivity, mouseActivity]; };
      const steps = [];
      // A key at the end of each step says that all before it has arrived.
      const step = async (what, input) => {
        const [keys, buttons] = counts();
        input();
        client.key(KEY, true);
        client.key(KEY, false);
        client.sync();
        await until(() => counts()[0] > keys && client.pendingEvents() >= 0, { what });
        await new Promise(setImmediate);
        steps.push([what, counts()[0] - keys - 1, counts()[1] - buttons]);
      };
      const click = (button) => { client.button(button, true); client.button(button, false); };
      const wait = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
      await step('nothing', () => {});
      await step('motion', () => { client.motion(10, 10); client.motion(200, 100); });
      await step('left, middle, right', () => [1, 2, 3].forEach(click));
      await step('the first wheel click', () => click(4));
      await step('more of the burst', () => [5, 4, 5].forEach(click));
      await step('horizontal wheel', () => [6, 7, 6].forEach(click));
      // A burst lasts as long as each click follows the last by less than a second.
      await wait(600);
      await step('0.6 s later', () => click(4));
      await wait(600);
      await step('another 0.6 s later', () => click(5));
      await wait(1100);
      await step('1.1 s later', () => click(5));
      report(steps);
      client.close();
      kiv.teardown();
    }, { args: [KEY] });
    assert.deepStrictEqual(json, [
      ['nothing', 0, 0], ['motion', 0, 0], ['left, middle, right', 0, 3], ['the first wheel click', 0, 1],
      ['more of the burst', 0, 0], ['horizontal wheel', 0, 3], ['0.6 s later', 0, 0],
      ['another 0.6 s later', 0, 0], ['1.1 s later', 0, 1],
    ]);
  });

  test('the result, before init, while set up, and after teardown', async () => {
    const { json } = await run(async (KEY) => {
      const client = X.open(process.env.DISPLAY);
      const press = () => { client.key(KEY, true); client.key(KEY, false); client.sync(); };
      press();
      const before = kiv.getInputInfo();
      kiv.init();
      press();
      await until(() => kiv.getInputInfo().keyboardActivity === 1, { what: 'one key' });
      const during = kiv.getInputInfo();
      kiv.teardown();
      press();
      await new Promise(setImmediate);
      const torn = kiv.getInputInfo();
      kiv.init();
      press();
      await until(() => kiv.getInputInfo().keyboardActivity === 2, { what: 'a second key' });
      report([before, during, torn]);
      client.close();
      kiv.teardown();
    }, { args: [KEY] });
    const info = (input, keys) => ({ last: { input, keyPress: -1, mouseClick: -1, mouseMove: -1 }, keyboardActivity: keys, mouseActivity: 0 });
    assert.deepStrictEqual(json, [info(-1, 0), info(0, 1), info(-1, 1)]);
    assert.deepStrictEqual(Object.keys(json[0]), ['last', 'keyboardActivity', 'mouseActivity']);
    assert.deepStrictEqual(Object.keys(json[0].last), ['input', 'keyPress', 'mouseClick', 'mouseMove']);
  });

  test('idle seconds are whole and follow the server', async () => {
    const { json } = await run(async () => {
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      client.motion(50, 50);
      client.sync();
      const seen = [];
      await until(() => {
        const [before, input, after] = [client.idleMs(), kiv.getInputInfo().last.input, client.idleMs()];
        seen.push(input >= Math.floor(before / 1000) && input <= Math.floor(after / 1000));
        return input === 2;
      }, { what: 'two idle seconds' });
      client.motion(60, 60);
      client.sync();
      seen.push(kiv.getInputInfo().last.input === 0);
      report(seen);
      client.close();
      kiv.teardown();
    });
    assert.ok(json.length > 3 && json.every((right) => right), JSON.stringify(json));
  });

  // What a round trip reads into Xlib's queue leaves the descriptor silent.
  test('a key pressed around a round trip counts without any further input', async () => {
    const { json } = await run(async (KEY) => {
      kiv.setupLogger(() => {});
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      let pressed = 0;
      for (const ask of [() => kiv.getInputInfo(), () => kiv.getScreenSnap('desktop')]) {
        for (let i = 0; i < 50; ++i) {
          client.key(KEY, true);
          client.key(KEY, false);
          client.sync();
          ++pressed;
          // The server has sent the event before it answers this.
          ask();
          await new Promise(setImmediate);
          await new Promise(setImmediate);
        }
      }
      // Reading the counters is a round trip itself: stop asking, then look once.
      await new Promise((resolve) => setTimeout(resolve, 100));
      report([pressed, kiv.getInputInfo().keyboardActivity]);
      client.close();
      kiv.teardown();
    }, { args: [KEY] });
    assert.strictEqual(json[1], json[0]);
  });

  test('a flood is counted to the last key while timers run', async () => {
    const { json } = await run(async (KEY) => {
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      const total = 50000;
      let ticks = 0;
      const timer = setInterval(() => ++ticks, 1);
      for (let i = 0; i < total; ++i) { client.key(KEY, true); client.key(KEY, false); }
      client.sync();
      const before = ticks;
      await until(() => kiv.getInputInfo().keyboardActivity >= total, { what: 'every key', timeout: 20000 });
      clearInterval(timer);
      report([kiv.getInputInfo().keyboardActivity - total, ticks > before]);
      client.close();
      kiv.teardown();
    }, { args: [KEY] });
    assert.deepStrictEqual(json, [0, true]);
  });

  test('keys grabbed by another program still count', async () => {
    const { json } = await run(async (KEY) => {
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      const grabber = X.open(process.env.DISPLAY);
      grabber.grabKeyboard();
      client.key(KEY, true);
      client.key(KEY, false);
      client.sync();
      await until(() => kiv.getInputInfo().keyboardActivity === 1, { what: 'the grabbed key' });
      report(true);
      grabber.close();
      client.close();
      kiv.teardown();
    }, { args: [KEY] });
    assert.strictEqual(json, true);
  });

  test('an exception of the logger in a call reaches the caller once', async () => {
    const { json } = await runCase(() => {
      kiv.setupLogger(() => { throw new Error('mine'); });
      let caught = 0;
      process.on('uncaughtException', () => { caught += 100; });
      try { kiv.getInputInfo(); } catch (error) { ++caught; }
      report(caught);
    }, { env: { ...session.env, XDG_SESSION_TYPE: 'wayland', DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' } });
    assert.strictEqual(json, 1);
  });
});

test('two screens and several devices count once', async () => {
  const session = await startSession({ screens: ['800x600x24', '800x600x24'], wm: false });
  try {
    const { json } = await runCase(async (KEY) => {
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      const press = () => { client.key(KEY, true); client.key(KEY, false); client.button(1, true); client.button(1, false); };
      for (let i = 0; i < 20; ++i) press();
      client.motion(10, 10, 1);
      // A master of one's own brings slaves of its own and takes them away again.
      client.addMaster('extra');
      for (let i = 0; i < 20; ++i) press();
      client.removeMaster('extra');
      for (let i = 0; i < 20; ++i) press();
      client.sync();
      const { keyboardActivity } = await until(() => {
        const info = kiv.getInputInfo();
        return info.keyboardActivity >= 60 && info.mouseActivity >= 60 && info;
      }, { what: 'sixty presses' });
      await new Promise((resolve) => setTimeout(resolve, 50));
      report([keyboardActivity, kiv.getInputInfo().keyboardActivity, kiv.getInputInfo().mouseActivity]);
      client.close();
      kiv.teardown();
    }, { env: session.env, args: [KEY] });
    assert.deepStrictEqual(json, [60, 60, 60]);
  } finally {
    await session.stop();
  }
});

describe('on other sessions the idle time is Mutter\'s', () => {
  let session;
  before(async () => { session = await startSession({ display: false }); });
  after(() => session.stop());
  const run = (source, args) => runCase(source, { env: { ...session.env, XDG_SESSION_TYPE: 'wayland' }, args, timeout: 60000 });

  const WRONG = /^DBUS IdleTime: unexpected reply of type /;
  const ANSWERS = [
    ['a time', { body: '(uint64 61999,)' }, 61, []],
    ['another type', { body: '("61999",)' }, -1, [WRONG]],
    ['two values', { body: '(uint64 1, uint64 2)' }, -1, [WRONG]],
    ['nothing', { body: '()' }, -1, [WRONG]],
    ['an error', { error: 'org.freedesktop.DBus.Error.Failed', body: 'not today' }, -1, [/^DBUS IdleTime: .*not today$/]],
    ['never', { hang: true }, -1, [/^DBUS IdleTime: .*[Tt]imeout/]],
  ];

  test('right, wrong and missing answers', async () => {
    const { json, stderr } = await run((answers) => {
      const lines = [];
      kiv.setupLogger((level, text) => lines.push([level, text]));
      const seen = [[kiv.getInputInfo().last.input, lines.splice(0)]];
      bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
      bus.own('org.gnome.Mutter.IdleMonitor');
      for (const answer of answers) {
        bus.answer('/org/gnome/Mutter/IdleMonitor/Core', 'org.gnome.Mutter.IdleMonitor', 'GetIdletime', answer);
        const start = Date.now();
        seen.push([kiv.getInputInfo().last.input, lines.splice(0), Date.now() - start < 30000]);
      }
      report(seen);
      bus.close();
    }, [ANSWERS.map(([, answer]) => answer)]);
    assert.strictEqual(json[0][0], -1);
    assert.match(json[0][1][0][1], /^DBUS IdleTime: ./);
    ANSWERS.forEach(([what, , input, lines], i) => {
      const [seen, log, bounded] = json[i + 1];
      assert.strictEqual(seen, input, what);
      assert.strictEqual(log.length, lines.length, `${what}: ${JSON.stringify(log)}`);
      lines.forEach((line, n) => {
        assert.strictEqual(log[n][0], 'error');
        assert.match(log[n][1], line, what);
      });
      assert.ok(bounded, what);
    });
    assert.strictEqual(stderr, '');
  });
});
