'use strict';

const assert = require('assert');
const { execFile } = require('child_process');
const fs = require('fs');
const { after, before, describe, test } = require('node:test');
const { promisify } = require('util');
const { runCase, startCase } = require('./helpers/case');
const { KWIN, canLockGnome, startCompositor } = require('./helpers/compositors');
const { startLocker, watchAnnouncements } = require('./helpers/lockers');
const { need } = require('./helpers/need');
const { start, untilReady } = require('./helpers/processes');
const { until } = require('./helpers/until');

const REPEATER = '/usr/share/dbus-1/services/org.gnome.ScreenSaver.service';
const LISTED = {
  '/org/gnome/ScreenSaver': 'org.gnome.ScreenSaver',
  '/org/freedesktop/ScreenSaver': 'org.freedesktop.ScreenSaver',
  '/org/cinnamon/ScreenSaver': 'org.cinnamon.ScreenSaver',
};

async function call(env, destination, object, method, ...args) {
  const command = ['call', '--session', '--timeout', '10', '--dest', destination, '--object-path', object,
    '--method', method, ...args];
  return (await promisify(execFile)('gdbus', command, { env, timeout: 20000 })).stdout;
}

// Reports 'ready' and then each event; at the end of its input one more of its own, which comes after
// all that was sent before.
const listen = () => {
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
  const send = (event) => bus.emit('/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', `('${event}',)`, 1);
  // The bus knows the subscriptions once it has passed one on; the unlock comes after its repeats.
  const trying = setInterval(() => send('desktop-lock'), 100);
  let heard = false;
  let ready = false;
  let ending = false;
  const monitor = new kiv.ScreenLockMonitor();
  monitor.emit = (event) => {
    if (ready) {
      report(event);
      if (!ending) return;
      bus.close();
      kiv.teardown();
    } else if (event === 'screen_unlock') {
      ready = true;
      report('ready');
    } else if (!heard) {
      heard = true;
      clearInterval(trying);
      send('desktop-unlock');
    }
  };
  process.stdin.resume().once('end', () => {
    ending = true;
    send('desktop-lock');
  });
};

/**
 * Locks and unlocks, `rounds` times. The events must be what was announced on the listed paths, in
 * that order; there are at least `least` announcements of each change. Returns all announcements.
 */
async function compare(env, { lock, unlock, rounds = 1, least = 1 }) {
  const announced = await watchAnnouncements(env);
  const listener = startCase(listen, { env, timeout: 120000 });
  const events = () => listener.reports().slice(1);
  const wanted = () => announced.all().filter(([object, name]) => LISTED[object] === name)
    .map(([, , active]) => (active ? 'screen_lock' : 'screen_unlock'));
  const arrived = (event, count) => until(() => {
    const [told, heard] = [wanted(), events()].map((list) => list.filter((one) => one === event).length);
    return told >= count && heard >= told;
  }, { timeout: 20000, what: `${count} ${event}` }).catch((error) => {
    throw new Error(`${error.message}; announced ${JSON.stringify(announced.all())}, heard ${events()}`);
  });
  try {
    await listener.reported();
    for (let round = 1; round <= rounds; ++round) {
      await lock();
      await arrived('screen_lock', round * least);
      await unlock();
      await arrived('screen_unlock', round * least);
    }
    listener.child.stdin.end();
    const { code, stderr } = await listener.done;
    assert.deepStrictEqual([code, stderr], [0, '']);
    assert.deepStrictEqual(events(), [...wanted(), 'screen_lock']);
    return announced.all();
  } finally {
    await listener.stop();
    await announced.stop();
  }
}

for (const [command, name, object] of [
  ['light-locker', 'org.freedesktop.ScreenSaver', '/org/freedesktop/ScreenSaver'],
  ['cinnamon-screensaver', 'org.cinnamon.ScreenSaver', '/org/cinnamon/ScreenSaver'],
]) {
  test(`${command}: its announcements are the events`, { skip: need(command, 'Xvfb', 'dbus-monitor') }, async () => {
    const session = await startLocker(command);
    try {
      const set = (active) => call(session.env, name, object, `${name}.SetActive`, String(active));
      await compare(session.env, { lock: () => set(true), unlock: () => set(false) });
    } finally {
      await session.stop();
    }
  });
}

// What the compositor itself says, before and after the module's answer.
async function idleSeconds(env) {
  const ask = async () => {
    const text = await call(env, 'org.gnome.Mutter.IdleMonitor', '/org/gnome/Mutter/IdleMonitor/Core',
      'org.gnome.Mutter.IdleMonitor.GetIdletime');
    return Math.floor(Number(/uint64 (\d+)/.exec(text)[1]) / 1000);
  };
  const least = await ask();
  const { json, stderr } = await runCase(() => report([kiv.isWayland(), kiv.getInputInfo().last]), { env });
  const most = await ask();
  assert.ok(json, stderr);
  const [wayland, last] = json;
  assert.strictEqual(wayland, true);
  assert.deepStrictEqual(last, { input: last.input, keyPress: -1, mouseClick: -1, mouseMove: -1 });
  return { input: last.input, least, most };
}

const movePointer = (env) => promisify(execFile)('gjs', ['-c', `
  const { Gio, GLib } = imports.gi;
  const name = 'org.gnome.Mutter.RemoteDesktop';
  const bus = (path, face, member, value) =>
    Gio.DBus.session.call_sync(name, path, face, member, value, null, 0, 10000, null).deep_unpack();
  const [session] = bus('/org/gnome/Mutter/RemoteDesktop', name, 'CreateSession', null);
  bus(session, name + '.Session', 'Start', null);
  bus(session, name + '.Session', 'NotifyPointerMotionRelative', new GLib.Variant('(dd)', [5, 5]));
  bus(session, name + '.Session', 'Stop', null);`], { env, timeout: 20000 });

describe('GNOME Shell', { skip: need('gnome-shell', 'Xwayland', 'gdbus', 'gjs', 'dbus-monitor', REPEATER) }, () => {
  let session;
  before(async () => { session = await startCompositor('gnome', { lockScreen: canLockGnome() }); });
  after(() => session && session.stop());

  test('the idle time is the compositor\'s', async () => {
    const idle = await until(async () => {
      const seen = await idleSeconds(session.env);
      return seen.least >= 2 && seen;
    }, { timeout: 20000, what: 'two idle seconds' });
    assert.ok(idle.least <= idle.input && idle.input <= idle.most, JSON.stringify(idle));
    const moved = Date.now();
    await movePointer(session.env);
    const { input } = await idleSeconds(session.env);
    assert.ok(input <= (Date.now() - moved) / 1000, `${input} idle seconds after a movement`);
  });

  // The service that other programs talk to repeats what the shell says.
  test('its lock screen\'s announcements are the events, repeats included', {
    skip: !canLockGnome() && 'no lock screen without systemd or root' }, async () => {
    const [program, ...args] = /^Exec=(.*)$/m.exec(fs.readFileSync(REPEATER, 'utf8'))[1].split(' ');
    const helper = start(program, args, { env: session.env });
    try {
      const saver = (member, ...values) => call(session.env, 'org.gnome.ScreenSaver', '/org/gnome/ScreenSaver',
        `org.gnome.ScreenSaver.${member}`, ...values);
      const set = (active) => saver('SetActive', String(active));
      await untilReady(helper, () => saver('GetActive').catch(() => ''), 'the shell\'s answer through the service');
      const all = await compare(session.env, { lock: () => set(true), unlock: () => set(false), least: 2 });
      assert.strictEqual(all.length, 4, JSON.stringify(all));
    } finally {
      await helper.stop();
    }
  });
});

describe('KWin', { skip: need(KWIN, 'Xwayland', 'gdbus', 'dbus-monitor') }, () => {
  test('its lock screen\'s announcements on the listed path are the events', async () => {
    const session = await startCompositor('kwin', { lockScreen: true });
    try {
      const all = await compare(session.env, {
        lock: () => call(session.env, 'org.freedesktop.ScreenSaver', '/org/freedesktop/ScreenSaver',
          'org.freedesktop.ScreenSaver.SetActive', 'true'),
        unlock: () => session.send('Unlock'),
      });
      // It tells each change on a second path, which nobody listens to.
      assert.deepStrictEqual(all.map(([object]) => object).sort(), [
        '/ScreenSaver', '/ScreenSaver', '/org/freedesktop/ScreenSaver', '/org/freedesktop/ScreenSaver']);
    } finally {
      await session.stop();
    }
  });
});
