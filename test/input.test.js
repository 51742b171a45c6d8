'use strict';

const assert = require('assert');
const { describe, test } = require('node:test');
const { inSession, look, share } = require('./helpers/suite');

/* global client, key */
describe('on an X11 session', () => {
  const { hosted } = share();

  test('keys and buttons count once when pressed, wheel bursts once, releases and motion never', async () => {
    const steps = await hosted(async () => {
      const counts = () => [kiv.getInputInfo().keyboardActivity, kiv.getInputInfo().mouseActivity];
      const seen = [];
      // The key at the end of each step says that all before it has arrived.
      const step = async (what, input) => {
        const [keys, buttons] = counts();
        input();
        key(client, 38);
        await until(() => counts()[0] > keys, { what });
        await new Promise(setImmediate);
        seen.push([what, counts()[0] - keys - 1, counts()[1] - buttons]);
      };
      const click = (button) => [true, false].forEach((down) => client.button(button, down));
      const wait = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
      const grabber = X.open(process.env.DISPLAY);
      await step('motion', () => client.motion(200, 100));
      await step('left, middle, right', () => [1, 2, 3].forEach(click));
      await step('a burst of the wheel', () => [4, 5, 4, 5].forEach(click));
      await step('horizontal wheel', () => [6, 7, 6].forEach(click));
      // A burst lasts as long as each click follows the last by less than a second.
      for (const ms of [600, 600, 1100]) {
        await wait(ms);
        await step(`${ms} ms later`, () => click(4));
      }
      await step('a key that another program has grabbed', () => grabber.grabKeyboard());
      grabber.close();
      report(seen);
    });
    assert.deepStrictEqual(steps, [
      ['motion', 0, 0], ['left, middle, right', 0, 3], ['a burst of the wheel', 0, 1], ['horizontal wheel', 0, 3],
      ['600 ms later', 0, 0], ['600 ms later', 0, 0], ['1100 ms later', 0, 1],
      ['a key that another program has grabbed', 0, 0],
    ]);
  });

  test('the result before init, while set up, and after teardown', async () => {
    const seen = await hosted(async () => {
      const infos = [];
      const press = async (count) => {
        key(client, 38);
        await until(() => kiv.getInputInfo().keyboardActivity === count, { what: `${count} keys` });
        infos.push(kiv.getInputInfo());
      };
      await press(1);
      kiv.teardown();
      await press(1);
      kiv.init();
      await press(2);
      report(infos);
    });
    const info = (input, keyboardActivity) => ({
      last: { input, keyPress: -1, mouseClick: -1, mouseMove: -1 }, keyboardActivity, mouseActivity: 0 });
    assert.deepStrictEqual(seen, [info(0, 1), info(-1, 1), info(0, 2)]);
  });

  test('idle seconds are whole and follow the server', async () => {
    const seen = await hosted(async () => {
      client.motion(50, 50);
      const samples = [];
      await until(() => {
        const [before, { last }, after] = [client.idleMs(), kiv.getInputInfo(), client.idleMs()];
        samples.push(last.input >= Math.floor(before / 1000) && last.input <= Math.floor(after / 1000));
        return last.input === 2;
      }, { what: 'two idle seconds' });
      client.motion(60, 60);
      report([...samples, kiv.getInputInfo().last.input === 0]);
    });
    assert.ok(seen.length > 3 && seen.every(Boolean), String(seen));
  });

  // What a round trip reads into Xlib's queue leaves the descriptor silent.
  test('a key pressed around a round trip counts without any further input', async () => {
    const keys = await hosted(async () => {
      for (const ask of [() => kiv.getInputInfo(), () => kiv.getScreenSnap('desktop')]) {
        for (let i = 0; i < 50; ++i) {
          // The server has sent the event before it answers what follows.
          key(client, 38);
          ask();
          await new Promise(setImmediate);
          await new Promise(setImmediate);
        }
      }
      // Reading the counters is a round trip itself: stop asking, then look once.
      await new Promise((resolve) => setTimeout(resolve, 100));
      report(kiv.getInputInfo().keyboardActivity);
    });
    assert.strictEqual(keys, 100);
  });

  test('a flood is counted to the last key while timers run', async () => {
    const seen = await hosted(async () => {
      const total = 50000;
      let ticks = 0;
      const timer = setInterval(() => ++ticks, 1);
      for (let i = 0; i < 2 * total; ++i) client.key(38, i % 2 === 0);
      const before = ticks;
      await until(() => kiv.getInputInfo().keyboardActivity >= total, { what: 'every key' });
      clearInterval(timer);
      report([kiv.getInputInfo().keyboardActivity - total, ticks > before]);
    });
    assert.deepStrictEqual(seen, [0, true]);
  });
});

test('two screens count once', () => inSession({ screens: ['800x600x24', '800x600x24'], wm: false }, async ({ env }) => {
  const seen = await look(async () => {
    kiv.init();
    const client = X.open(process.env.DISPLAY);
    for (let i = 0; i < 80; ++i) {
      if (i === 40) client.motion(10, 10, 1);
      client.key(38, i % 2 === 0);
      client.button(1, i % 2 === 0);
    }
    const { keyboardActivity, mouseActivity } = await until(() => {
      const info = kiv.getInputInfo();
      return info.keyboardActivity >= 40 && info.mouseActivity >= 40 && info;
    }, { what: 'forty presses' });
    report([keyboardActivity, mouseActivity]);
    client.close();
    kiv.teardown();
  }, { env });
  assert.deepStrictEqual(seen, [40, 40]);
}));

describe('on other sessions the idle time is Mutter\'s', () => {
  const shared = share({ display: false });
  const WRONG = /^error DBUS IdleTime: unexpected reply of type /;
  const ANSWERS = [
    ['a time', { body: '(uint64 61999,)' }, 61, null],
    ['another type', { body: '("61999",)' }, -1, WRONG],
    ['two values', { body: '(uint64 1, uint64 2)' }, -1, WRONG],
    ['an error', { error: 'org.example.No', body: 'not today' }, -1, /^error DBUS IdleTime: .*not today$/],
    ['never', { hang: true }, -1, /^error DBUS IdleTime: .*[Tt]imeout/],
  ];

  test('right, wrong and missing answers', async () => {
    const seen = await shared.look((answers) => {
      const log = [];
      kiv.setupLogger((level, text) => log.push(`${level} ${text}`));
      const ask = () => [kiv.getInputInfo().last.input, log.splice(0)];
      const results = [ask()];
      bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
      bus.own('org.gnome.Mutter.IdleMonitor');
      for (const answer of answers) {
        bus.answer('/org/gnome/Mutter/IdleMonitor/Core', 'org.gnome.Mutter.IdleMonitor', 'GetIdletime', answer);
        results.push(ask());
      }
      let caught = 0;
      kiv.setupLogger(() => { throw new Error('mine'); });
      process.on('uncaughtException', () => { caught += 100; });
      bus.close();
      try { kiv.getInputInfo(); } catch (error) { ++caught; }
      report({ results, caught });
    }, { env: { ...shared.session.env, XDG_SESSION_TYPE: 'wayland' },
      args: [ANSWERS.map(([, answer]) => answer)] });
    [['no service', null, -1, /^error DBUS IdleTime: ./], ...ANSWERS].forEach(([what, , input, line], i) => {
      const [seconds, lines] = seen.results[i];
      assert.deepStrictEqual([seconds, lines.length], [input, line ? 1 : 0], what);
      if (line) assert.match(lines[0], line, what);
    });
    assert.strictEqual(seen.caught, 1, 'an exception of the logger reaches the caller once');
  });
});
