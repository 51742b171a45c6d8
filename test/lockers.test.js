'use strict';

const assert = require('assert');
const fs = require('fs');
const { test } = require('node:test');
const { startCase } = require('./helpers/case');
const { canLockGnome, gdbus, needKwin, startCompositor } = require('./helpers/compositors');
const { startLocker, watchAnnouncements } = require('./helpers/lockers');
const { need } = require('./helpers/need');
const { start, untilReady } = require('./helpers/processes');
const { inSession, look } = require('./helpers/suite');
const { until } = require('./helpers/until');

const REPEATER = '/usr/share/dbus-1/services/org.gnome.ScreenSaver.service';
const pathOf = (name) => `/${name.replace(/\./g, '/')}`;
const saver = ({ env }, name, member, ...values) => gdbus(env, name, pathOf(name), `${name}.${member}`, ...values);

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
  const monitor = new kiv.ScreenLockMonitor();
  const handlers = [
    () => { clearInterval(trying); send('desktop-unlock'); },
    (event) => event === 'screen_unlock' && report('ready'),
    report,
    (event) => { report(event); bus.close(); kiv.teardown(); },
  ];
  let state = 0;
  monitor.emit = (event) => {
    const result = handlers[state](event);
    if (state === 0 || (state === 1 && event === 'screen_unlock')) ++state;
    return result;
  };
  process.stdin.resume().once('end', () => { state = 3; send('desktop-lock'); });
};

/**
 * Locks and unlocks. The events must be what was announced on the watched paths, in that order; there
 * are at least `least` announcements of each change. Returns how many there were, all paths together.
 */
async function compare({ env }, set, least) {
  const announced = await watchAnnouncements(env);
  const listener = startCase(listen, { env });
  const events = () => listener.reports().slice(1);
  const watched = ['gnome', 'freedesktop', 'cinnamon'].map((desktop) => `org.${desktop}.ScreenSaver`);
  const wanted = () => announced.all().filter(([object, name]) => watched.includes(name) && object === pathOf(name))
    .map(([, , active]) => (active ? 'screen_lock' : 'screen_unlock'));
  try {
    await listener.reported();
    for (const [active, event] of [[true, 'screen_lock'], [false, 'screen_unlock']]) {
      await set(active);
      await until(() => {
        const [told, heard] = [wanted(), events()].map((list) => list.filter((one) => one === event).length);
        return told >= least && heard >= told;
      }, { what: event }).catch((error) => {
        throw new Error(`${error.message}; announced ${JSON.stringify(announced.all())}, heard ${events()}`);
      });
    }
    listener.child.stdin.end();
    const { code, stderr } = await listener.done;
    assert.deepStrictEqual([code, stderr], [0, '']);
    assert.deepStrictEqual(events(), [...wanted(), 'screen_lock']);
    return announced.all().length;
  } finally {
    await listener.stop();
    await announced.stop();
  }
}

for (const [command, desktop] of [['light-locker', 'freedesktop'], ['cinnamon-screensaver', 'cinnamon']]) {
  test(`${command}: its announcements are the events`, { skip: need(command, 'Xvfb', 'dbus-monitor') }, () =>
    inSession(command, (session) => compare(session,
      (active) => saver(session, `org.${desktop}.ScreenSaver`, 'SetActive', String(active)), 1), startLocker));
}

const compositor = (kind) => () => startCompositor(kind, { lockScreen: kind === 'kwin' || canLockGnome() });

test('KWin: its lock screen\'s announcements on the watched path are the events', {
  skip: needKwin('Xwayland', 'gdbus', 'dbus-monitor') }, () => inSession(null, async (session) => {
  const lock = () => saver(session, 'org.freedesktop.ScreenSaver', 'SetActive', 'true');
  const set = (active) => (active ? lock() : session.send('Unlock'));
  // It tells each change on a second path, which nobody listens to.
  assert.strictEqual(await compare(session, set, 1), 4);
}, compositor('kwin')));

test('GNOME Shell: its idle time, and its lock screen\'s announcements, repeats included', {
  skip: need('gnome-shell', 'Xwayland', 'gdbus', 'dbus-monitor', REPEATER) }, () => inSession(null, async (session) => {
  const [idle, moved] = await look(async () => {
    bus.connect();
    const MUTTER = '/org/gnome/Mutter';
    const call = (service, object, face, member, body = '()') =>
      bus.call(`org.gnome.Mutter.${service}`, object, `org.gnome.Mutter.${face}`, member, body);
    const idleTime = () => call('IdleMonitor', `${MUTTER}/IdleMonitor/Core`, 'IdleMonitor', 'GetIdletime');
    const ask = () => Math.floor(/\d+/.exec(idleTime())[0] / 1000);
    const sample = () => [ask(), kiv.getInputInfo().last.input, ask()];
    await until(() => ask() >= 2, { what: 'two idle seconds' });
    const seen = sample();
    const remote = /'(.+)'/.exec(call('RemoteDesktop', `${MUTTER}/RemoteDesktop`, 'RemoteDesktop', 'CreateSession'))[1];
    const send = (member, body) => call('RemoteDesktop', remote, 'RemoteDesktop.Session', member, body);
    send('Start');
    send('NotifyPointerMotionRelative', '(5.0, 5.0)');
    await until(() => ask() === 0, { what: 'the movement to have arrived' });
    report([seen, sample()]);
    send('Stop');
    bus.close();
  }, { env: session.env });
  for (const [least, seconds, most] of [idle, moved]) assert.ok(least <= seconds && seconds <= most, `${idle} ${moved}`);
  assert.ok(moved[1] < idle[1], 'a movement ends the idle time');
  if (!canLockGnome()) return;
  // The service that other programs talk to repeats what the shell says.
  const [program, ...args] = /^Exec=(.*)$/m.exec(fs.readFileSync(REPEATER, 'utf8'))[1].split(' ');
  const helper = start(program, args, { env: session.env });
  try {
    const gnome = (...call) => saver(session, 'org.gnome.ScreenSaver', ...call);
    await untilReady(helper, () => gnome('GetActive'), 'the shell\'s answer through the service');
    assert.strictEqual(await compare(session, (active) => gnome('SetActive', String(active)), 2), 4);
  } finally {
    await helper.stop();
  }
}, compositor('gnome')));
