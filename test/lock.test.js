'use strict';

const assert = require('node:assert');
const { describe, test } = require('node:test');
const { LOCKERS, listen, startLocker } = require('./lib/lockers');
const { lacking, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ display: false });
const saver = (name) => [`/org/${name}/ScreenSaver`, `org.${name}.ScreenSaver`, 'ActiveChanged'];
const GNOME = saver('gnome');
const UPSTART = ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted'];
const CHANGED = 'info Session: screen lock changed';

const listening = (f) =>
  shared.withApp(async (app) => {
    await listen(app, shared.peer);
    await f(app, shared.peer);
  });

test('the signals of every desktop are events; those of another path, member or type are not', () =>
  listening(async (app, peer) => {
    const rows = [
      [GNOME, 'b', [true], 'screen_lock'],
      [GNOME, 'b', [false], 'screen_unlock'],
      [saver('freedesktop'), 'b', [true], 'screen_lock'],
      [saver('cinnamon'), 'bs', [false, 'more'], 'screen_unlock'],
      [UPSTART, 'sas', ['desktop-lock', ['a']], 'screen_lock'],
      [UPSTART, 's', ['desktop-unlock'], 'screen_unlock'],
      [UPSTART, 's', ['session-end']],
      [GNOME, '', []],
      [GNOME, 's', ['true']],
      [['/org/gnome/Other', ...GNOME.slice(1)], 'b', [true]],
      [[...GNOME.slice(0, 2), 'Other'], 'b', [true]],
      [GNOME, 'b', [true], 'screen_lock'],
    ];
    for (const [signal, signature, body] of rows) peer.emit(...signal, signature, body);
    const wanted = rows.flatMap((row) => (row[3] ? [CHANGED, row[3]] : []));
    await until(() => app.run((count) => log.length >= count, wanted.length), 'the events');
    assert.deepStrictEqual(await app.log(), wanted);
  }));

test("the newest monitor's first emit function gets the events, until a monitor is collected", () =>
  listening(async (app, peer) => {
    await app.run(() => {
      process.on('uncaughtException', (error) => log.push(error.message));
      global.newest = new kiv.ScreenLockMonitor();
      Object.defineProperty(global.newest, 'emit', { get: () => global.emit() });
      global.first = function (name) {
        log.push(`${name} ${this === global.newest}`);
        global.deed();
      };
      global.deed = () => {};
    });
    for (const [step, ...wanted] of [
      ['emit = () => "no function"'],
      ['emit = () => { throw new Error("expected"); }', 'expected'],
      ['emit = () => first', 'screen_lock true'],
      ['emit = () => () => log.push("another")', 'screen_lock true'],
      ['deed = () => { throw new Error("expected"); }', 'screen_lock true', 'expected'],
      ['monitor = null'],
    ]) {
      await app.run(`() => { ${step}; setImmediate(gc); }`);
      peer.emit(...GNOME, 'b', [true]);
      await until(() => app.run(() => log.length > 0), 'the signal');
      assert.deepStrictEqual(await app.log(), [CHANGED, ...wanted], step);
    }
    // A listener may tear down and set up.
    await app.run(() => {
      global.again = new kiv.ScreenLockMonitor();
      global.again.emit = () => kiv.teardown() || kiv.init();
    });
    peer.emit(...GNOME, 'b', [true]);
    await listen(app, peer);
  }));

for (const [command, [name, count]] of Object.entries(LOCKERS)) {
  describe(command, { skip: lacking(command) }, () => {
    const locker = useSession(command, startLocker);
    test('its announcements are the events', () =>
      locker.withApp(async (app) => {
        await listen(app, locker.peer);
        for (const event of ['screen_lock', 'screen_unlock']) {
          const path = `/${name.replace(/\./g, '/')}`;
          const active = event === 'screen_lock';
          await locker.peer.call(name, path, name, 'SetActive', 'b', [active]);
          await until(() => app.run((least) => log.length >= least, 2 * count), event);
          assert.deepStrictEqual(await app.log(), Array(count).fill([CHANGED, event]).flat());
        }
      }));
  });
}
