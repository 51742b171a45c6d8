'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

let session;
before(async () => { session = await startSession({ display: false }); });
after(() => session.stop());
const run = (source, options) => runCase(source, { env: session.env, ...options });

// Runs in the case: a monitor that is an event emitter, a peer on the bus, and a way to know that
// everything sent before has been handled.
const prepare = `
  const EventEmitter = require('events');
  const GNOME = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged'];
  const UPSTART = ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted'];
  Object.setPrototypeOf(kiv.ScreenLockMonitor.prototype, EventEmitter.prototype);
  const lines = [];
  const log = (level, text) => lines.push(level + ' ' + text);
  const makeMonitor = () => { const monitor = new kiv.ScreenLockMonitor(); EventEmitter.call(monitor); return monitor; };
  host.startLoop();
  kiv.setupLogger(log);
  kiv.init();
  bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
  // The match rules are not at the bus at once: repeat until one signal comes through, then wait for
  // a last one of another kind, which arrives after all of them.
  const settled = async () => {
    let lastName = '';
    const probe = makeMonitor();
    probe.on('screen_lock', () => { lastName = 'lock'; });
    probe.on('screen_unlock', () => { lastName = 'unlock'; });
    await until(() => { bus.emit(...GNOME, '(true,)'); return lastName; }, { what: 'the subscription' });
    bus.emit(...GNOME, '(false,)');
    await until(() => lastName === 'unlock', { what: 'the last signal' });
    // The end of any monitor would leave the agent without one.
    global.probes = [...(global.probes || []), probe];
    lines.length = 0;
  };
  await settled();
`;

test('the class: its name, its constructor, its bare instances', async () => {
  const { json } = await run(() => {
    const { ScreenLockMonitor } = kiv;
    let message;
    try { ScreenLockMonitor(); } catch (error) { message = `${error.name}: ${error.message}`; }
    const monitor = new ScreenLockMonitor(1, 'ignored');
    report([ScreenLockMonitor.name, message, monitor instanceof ScreenLockMonitor, Object.keys(monitor),
      Object.getOwnPropertyNames(ScreenLockMonitor.prototype)]);
  });
  assert.deepStrictEqual(json, ['ScreenLockMonitor', 'Error: `new` is required', true, [], ['constructor']]);
});

// [path, interface, member, body, event or null]
const TABLE = [
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)', 'screen_lock'],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(false,)', 'screen_unlock'],
  ['/org/freedesktop/ScreenSaver', 'org.freedesktop.ScreenSaver', 'ActiveChanged', '(true,)', 'screen_lock'],
  ['/org/cinnamon/ScreenSaver', 'org.cinnamon.ScreenSaver', 'ActiveChanged', '(false, "more")', 'screen_unlock'],
  ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', '("desktop-lock", ["a"])', 'screen_lock'],
  ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', '("desktop-unlock",)', 'screen_unlock'],
  ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', '("session-end",)', null],
  ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', '(true,)', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '("true",)', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(1,)', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '((true,),)', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(<true>,)', null],
  ['/org/gnome/Other', 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)', null],
  ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'Other', '(true,)', null],
];

test('which signals are events; anything else is silence', async () => {
  const { json, stderr } = await run(`${prepare}
    const [table] = args;
    const monitor = makeMonitor();
    const events = [];
    for (const name of ['screen_lock', 'screen_unlock']) monitor.on(name, (...rest) => events.push([name, ...rest]));
    for (const row of table) bus.emit(...row);
    // One more that is an event, so that the silent ones before it have been handled.
    bus.emit(...GNOME, '(false,)');
    const expected = table.filter((row) => row[5]).length + 1;
    await until(() => events.length >= expected, { what: 'the events' });
    report({ events, lines });
    bus.close();
    kiv.teardown();
  `, { args: [TABLE.map(([path, iface, member, body, event]) => [path, iface, member, body, 1, event])] });
  const events = [...TABLE.map((row) => row[4]).filter(Boolean), 'screen_unlock'];
  assert.deepStrictEqual(json.events, events.map((name) => [name]), stderr);
  assert.deepStrictEqual(json.lines, events.map(() => 'info Session: screen lock changed'));
  assert.strictEqual(stderr, '');
});

test('a thousand signals make a thousand events', async () => {
  const { json, stderr } = await run(`${prepare}
    const monitor = makeMonitor();
    let events = 0;
    monitor.on('screen_lock', () => ++events);
    bus.emit(...GNOME, '(true,)', 1000);
    bus.emit(...GNOME, '(false,)', 1);
    let last = false;
    monitor.on('screen_unlock', () => { last = true; });
    await until(() => last, { what: 'the last signal' });
    report(events);
    bus.close();
    kiv.teardown();
  `);
  assert.strictEqual(json, 1000, stderr);
});

test('the emit function: looked up until there is one, then kept; getters and listeners that misbehave', async () => {
  const { json, code, stderr } = await run(`${prepare}
    const seen = [];
    process.on('uncaughtException', (error) => seen.push('uncaught ' + error.message));
    let monitor = new kiv.ScreenLockMonitor();
    const send = async () => {
      const before = lines.length;
      bus.emit(...GNOME, '(true,)');
      await until(() => lines.length > before, { what: 'the signal' });
      await new Promise(setImmediate);
    };
    Object.defineProperty(monitor, 'emit', { configurable: true, value: 'no function' });
    await send();
    Object.defineProperty(monitor, 'emit', { configurable: true, get() { throw new Error('getter'); } });
    await send();
    Object.defineProperty(monitor, 'emit', { configurable: true, writable: true,
      value(name) { seen.push('first ' + name + ' ' + (this === monitor)); } });
    await send();
    monitor.emit = () => seen.push('second');
    await send();

    // Kept: the end of any monitor leaves the agent without one.
    global.probes.push(monitor);
    monitor = makeMonitor();
    const second = monitor;
    monitor.once('screen_lock', () => { seen.push('throws'); throw new Error('listener'); });
    await send();
    monitor.once('screen_lock', () => { seen.push('drops'); monitor = null; global.gc(); });
    await send();
    second.once('screen_lock', () => { seen.push('tears down'); kiv.teardown(); kiv.init(); });
    await send();
    second.once('screen_lock', () => { seen.push('still there'); kiv.teardown(); });
    await until(() => { bus.emit(...GNOME, '(true,)'); return seen.includes('still there'); }, { what: 'the new subscription' });
    report(seen);
    bus.close();
  `, { nodeArgs: ['--expose-gc'] });
  assert.deepStrictEqual(json, ['uncaught getter', 'first screen_lock true', 'first screen_lock true',
    'throws', 'uncaught listener', 'drops', 'tears down', 'still there'], stderr);
  assert.strictEqual(code, 0);
});

test('the newest monitor gets the events; the end of any leaves none', async () => {
  const { json } = await run(`${prepare}
    const seen = [];
    let first = makeMonitor();
    first.on('screen_lock', () => seen.push('first'));
    let second = makeMonitor();
    second.on('screen_lock', () => seen.push('second'));
    const send = async () => {
      seen.length = 0;
      const before = lines.length;
      bus.emit(...GNOME, '(true,)');
      await until(() => lines.length > before, { what: 'the signal' });
      await new Promise(setImmediate);
      return seen.join();
    };
    const collect = async () => {
      for (let i = 0; i < 5; ++i) { global.gc(); await new Promise(setImmediate); }
    };
    const results = [await send()];
    first = null;
    await collect();
    results.push(await send());
    second = null;
    await collect();
    let third = makeMonitor();
    third.on('screen_lock', () => seen.push('third'));
    results.push(await send());
    third = null;
    await collect();
    results.push(await send());
    report(results);
    bus.close();
    kiv.teardown();
  `, { nodeArgs: ['--expose-gc'] });
  assert.deepStrictEqual(json, ['second', '', 'third', '']);
});
