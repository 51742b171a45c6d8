'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { listen, startLocker } = require('./lib/lockers');
const { lacking, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const skip = lacking('light-locker');
const shared = useSession({}, skip ? undefined : startLocker);
const listening = (f) => shared.withApp((app) => listen(app, shared.peer).then(() => f(app)));
const saver = (name) => [`/org/${name}/ScreenSaver`, `org.${name}.ScreenSaver`, 'ActiveChanged'];
const GNOME = saver('gnome');
const UPSTART = ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted'];
const CHANGED = 'info Session: screen lock changed';
const logged = (app, count) =>
  until(() => app.run((least) => log.length >= least, count), 'events').then(app.log);

test("every desktop's lock signals give events; other paths and types are ignored", () =>
  listening(async (app) => {
    const rows = [
      [GNOME, 'b', [true], 'screen_lock'],
      [saver('freedesktop'), 'b', [false], 'screen_unlock'],
      [saver('cinnamon'), 'bs', [true, 'more'], 'screen_lock'],
      [UPSTART, 's', ['session-end']],
      [GNOME, '', []],
      [GNOME, 's', ['true']],
      [['/org/gnome/Other', ...GNOME.slice(1)], 'b', [true]],
      [UPSTART, 'sas', ['desktop-unlock', ['a']], 'screen_unlock'],
    ];
    for (const [signal, type, body] of rows) shared.peer.emit(...signal, type, body);
    const wanted = rows.flatMap((row) => (row[3] ? [CHANGED, row[3]] : []));
    assert.deepStrictEqual(await logged(app, wanted.length), wanted);
  }));

test("the newest monitor's first emit function gets the events until a monitor is collected", () =>
  listening(async (app) => {
    await app.run(() => {
      process.on('uncaughtException', (thrown) => log.push(String(thrown)));
      global.Monitor = kiv.ScreenLockMonitor;
      global.newest = new global.Monitor();
      Object.defineProperty(global.newest, 'emit', { get: () => global.get() });
    });
    for (const [step, ...wanted] of [
      ['get = () => "no function"'],
      ['get = () => { throw "a getter"; }', 'a getter'],
      ['get = () => function (x) { throw [x, this === newest]; }', 'screen_lock,true'],
      ['get = () => () => log.push("another")', 'screen_lock,true'],
      ['monitor = null'],
      ['(monitor = new Monitor()).emit = () => [monitor = 0, gc(), kiv.teardown(), kiv.init()]'],
    ]) {
      await app.run(`() => { ${step}; }`);
      await app.run(() => gc());
      shared.peer.emit(...GNOME, 'b', [true]);
      assert.deepStrictEqual(await logged(app, 1), [CHANGED, ...wanted], step);
    }
    await listen(app, shared.peer);
  }));

test("a real locker's signals give events", { skip }, () =>
  listening(async (app) => {
    const [path, name] = saver('freedesktop');
    for (const event of ['screen_lock', 'screen_unlock']) {
      await shared.peer.call(name, path, name, 'SetActive', 'b', [event === 'screen_lock']);
      assert.deepStrictEqual(await logged(app, 4), [CHANGED, event, CHANGED, event]);
    }
  }),
);
