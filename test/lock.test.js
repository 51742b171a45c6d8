'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

const { look } = share({ display: false });

// Runs in the case: a monitor that is an event emitter, a peer on the bus, and a way to know that
// everything sent before has been handled.
const prepare = `
  const EventEmitter = require('events');
  const GNOME = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged'];
  Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
  const lines = [];
  const makeMonitor = () => { const monitor = new kiv.ScreenLockMonitor(); EventEmitter.call(monitor); return monitor; };
  host.startLoop();
  kiv.setupLogger((level, text) => lines.push(level + ' ' + text));
  kiv.init();
  bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
  // The end of any monitor would leave the agent without one.
  const kept = [makeMonitor()];
  // The match rules are not at the bus at once: repeat until one signal comes through, then wait for
  // a last one of another kind, which arrives after all of them.
  let last = '';
  for (const name of ['screen_lock', 'screen_unlock']) kept[0].on(name, () => { last = name; });
  await until(() => { bus.emit(...GNOME, '(true,)'); return last; }, { what: 'the subscription' });
  bus.emit(...GNOME, '(false,)');
  await until(() => last === 'screen_unlock', { what: 'the last signal' });
  lines.length = 0;
  const seen = [];
  const send = async () => {
    const before = lines.length;
    bus.emit(...GNOME, '(true,)');
    await until(() => lines.length > before, { what: 'the signal' });
    await new Promise(setImmediate);
  };
  const collect = async () => {
    for (let i = 0; i < 5; ++i) { global.gc(); await new Promise(setImmediate); }
  };`;
const inCase = (body, options) => look(`${prepare}\n${body}\nbus.close(); kiv.teardown();`,
  { nodeArgs: ['--expose-gc'], ...options });

test('the class: its name, its constructor, its bare instances', async () => {
  assert.deepStrictEqual(await look(() => {
    const { ScreenLockMonitor } = kiv;
    let message;
    try { ScreenLockMonitor(); } catch (error) { ({ message } = error); }
    const monitor = new ScreenLockMonitor(1, 'ignored');
    report([ScreenLockMonitor.name, message, monitor instanceof ScreenLockMonitor, Object.keys(monitor),
      Object.getOwnPropertyNames(ScreenLockMonitor.prototype)]);
  }), ['ScreenLockMonitor', '`new` is required', true, [], ['constructor']]);
});

// [path, interface, member, body, event or null]
const GNOME = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged'];
const UPSTART = ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted'];
const TABLE = [
  [...GNOME, '(true,)', 'screen_lock'],
  [...GNOME, '(false,)', 'screen_unlock'],
  ['/org/freedesktop/ScreenSaver', 'org.freedesktop.ScreenSaver', 'ActiveChanged', '(true,)', 'screen_lock'],
  ['/org/cinnamon/ScreenSaver', 'org.cinnamon.ScreenSaver', 'ActiveChanged', '(false, "more")', 'screen_unlock'],
  [...UPSTART, '("desktop-lock", ["a"])', 'screen_lock'],
  [...UPSTART, '("desktop-unlock",)', 'screen_unlock'],
  ...['("session-end",)', '(true,)'].map((body) => [...UPSTART, body, null]),
  ...['', '("true",)', '(1,)', '(<true>,)'].map((body) => [...GNOME, body, null]),
  ['/org/gnome/Other', 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'Other', '(true,)', null],
];

test('which signals are events, a thousand of them, too; anything else is silence', async () => {
  const { events, logged } = await inCase(`
    const monitor = makeMonitor();
    for (const name of ['screen_lock', 'screen_unlock']) monitor.on(name, (...rest) => seen.push([name, ...rest].join()));
    for (const [path, face, member, body] of args[0]) bus.emit(path, face, member, body, 1);
    bus.emit(...GNOME, '(true,)', 1000);
    // The silent ones have been handled before the last of these.
    const expected = args[0].filter((row) => row[4]).length + 1000;
    await until(() => seen.length >= expected, { what: 'the events' });
    report({ events: seen, logged: lines });`, { args: [TABLE] });
  assert.deepStrictEqual(events, [...TABLE.map((row) => row[4]).filter(Boolean), ...Array(1000).fill('screen_lock')]);
  assert.deepStrictEqual(logged, events.map(() => 'info Session: screen lock changed'));
});

test('the emit function: looked up until there is one, then kept; getters and listeners that misbehave', async () => {
  assert.deepStrictEqual(await inCase(`
    process.on('uncaughtException', (error) => seen.push('uncaught ' + error.message));
    let monitor = new kiv.ScreenLockMonitor();
    kept.push(monitor);
    for (const emit of [{ value: 'no function' }, { get() { throw new Error('getter'); } },
      { value(name) { seen.push('first ' + name + ' ' + (this === kept[1])); } }, { value: () => seen.push('second') }]) {
      Object.defineProperty(monitor, 'emit', Object.assign({ configurable: true }, emit));
      await send();
    }
    monitor = makeMonitor();
    const second = monitor;
    const deeds = {
      throws: () => { throw new Error('listener'); },
      drops: () => { monitor = null; global.gc(); },
      'tears down': () => { kiv.teardown(); kiv.init(); },
    };
    for (const name of Object.keys(deeds)) {
      second.once('screen_lock', () => { seen.push(name); deeds[name](); });
      await send();
    }
    second.once('screen_lock', () => seen.push('still there'));
    await until(() => { bus.emit(...GNOME, '(true,)'); return seen.includes('still there'); });
    report(seen);`), ['uncaught getter', 'first screen_lock true', 'first screen_lock true',
    'throws', 'uncaught listener', 'drops', 'tears down', 'still there']);
});

test('the newest monitor gets the events; the end of any leaves none', async () => {
  assert.deepStrictEqual(await inCase(`
    const monitors = {};
    const make = (name) => { monitors[name] = makeMonitor().on('screen_lock', () => seen.push(name)); };
    make('first');
    make('second');
    await send();
    delete monitors.first;
    await collect();
    await send();
    delete monitors.second;
    await collect();
    make('third');
    await send();
    delete monitors.third;
    await collect();
    await send();
    report(seen);`), ['second', 'third']);
});
