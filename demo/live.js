'use strict';

// Runs in the process that loads the module: report() tells every change of what the person did.
/* global bus, host, kiv, report, X */

const { EventEmitter } = require('events');

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Typing, clicks, a turn of the wheel, a rest, and a locked screen in the middle of it.
async function act(seconds) {
  const client = X.open(process.env.DISPLAY);
  const end = Date.now() + seconds * 1000;
  const until = (share) => end - (1 - share) * seconds * 1000;
  const press = (method, code) => {
    client[method](code, true);
    client[method](code, false);
  };
  const type = async (share) => {
    for (
      const letters = [...'whatpeopletype'];
      Date.now() < until(share);
      letters.push(letters.shift())
    ) {
      press('key', client.keycode(letters[0]));
      await sleep(180);
    }
  };
  bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
  const lock = (active) =>
    bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', `(${active},)`, 1);

  const window = client.createWindow({ x: 100, y: 100, width: 400, height: 300 });
  client.map(window);
  client.sync();
  await type(0.25);
  client.warp(300, 250);
  for (let i = 0; Date.now() < until(0.4); ++i) {
    press('button', i % 2 ? 3 : 1);
    await sleep(400);
  }
  for (let i = 0; i < 10; ++i) {
    press('button', 5);
    await sleep(50);
  }
  lock(true);
  await sleep(until(0.75) - Date.now());
  lock(false);
  await type(1);
  bus.close();
  client.close();
}

module.exports = async (seconds, injecting) => {
  const start = Date.now();
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();

  let ticks = 0;
  let shown = '';
  const tell = (event) => {
    const { last, keyboardActivity: keys, mouseActivity: clicks } = kiv.getInputInfo();
    const state = JSON.stringify([keys, clicks, last.input]);
    if (state === shown && !event) return;
    shown = state;
    report({
      second: ((Date.now() - start) / 1000).toFixed(1),
      keys,
      clicks,
      idle: last.input,
      ticks,
      event,
    });
  };
  kiv.setInterval(() => {
    ++ticks;
    tell('');
  }, 500);

  Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
  const monitor = new kiv.ScreenLockMonitor();
  EventEmitter.call(monitor);
  for (const event of ['screen_lock', 'screen_unlock']) monitor.on(event, () => tell(event));

  await (injecting ? act(seconds) : sleep(seconds * 1000));
  tell('');
  kiv.setInterval(null, 0);
  kiv.teardown();
};
