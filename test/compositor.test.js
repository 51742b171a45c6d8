'use strict';

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { afterEach, beforeEach, describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { connect } = require('./lib/bus');
const compositors = require('./lib/compositors');
const { lacking, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const png = (width, height) => PNG.sync.write(new PNG({ width, height }));
const snap = (app) => app.run(() => kiv.getScreenSnap('desktop').data);
const width = (app) => app.run(() => kiv.getScreenSnap('display').width);

describe('a stand-in', () => {
  const shared = useSession({ display: false, env: { XDG_SESSION_TYPE: 'wayland' } });
  const NO = { error: 'org.example.No', text: 'not today' };
  const DONE = { signature: 'bs', body: [true, ''] };
  const files = () => fs.readdirSync(shared.env.TMPDIR);
  const saved = (bytes) => (call) => {
    fs.writeFileSync(call.body.at(-1), bytes);
    return DONE;
  };
  let peer;
  beforeEach(async () => {
    peer = await connect(shared.bus.address);
    for (const name of ['org.gnome.Shell.Screenshot', 'org.kde.KWin']) await peer.own(name);
  });
  afterEach(() => peer.close());
  const serve = ({ gnome, kwin, ...more }) => {
    const Introspect = ({ path }) => ((path === '/Screenshot' ? kwin : gnome) ? DONE : NO);
    peer.answer({ Introspect, Screenshot: gnome, screenshotFullscreen: kwin, ...more });
  };
  const calls = (member) => peer.calls.filter((call) => call.member === member);

  test('GNOME Shell is asked before KWin, both are looked for once, and no file stays', () => {
    const work = async (app) => {
      serve({ gnome: saved(png(64, 48)), kwin: DONE });
      assert.strictEqual(await width(app), 0);
      assert.match(
        (await app.log()).join(),
        /^error DBUS Screenshot: .+,error Snap display error$/,
      );
      await app.run((address) => {
        process.env.DBUS_SESSION_BUS_ADDRESS = address;
      }, shared.bus.address);
      assert.deepStrictEqual([await width(app), await width(app), files()], [64, 64, []]);
      const [one, two] = calls('Screenshot').map(({ body }) => body.join());
      assert.match(one, new RegExp(`^false,true,${shared.env.TMPDIR}/brenik\\.\\w{10}$`));
      assert.notStrictEqual(one, two);
      const probed = calls('Introspect').map(({ path }) => path);
      assert.deepStrictEqual(probed, ['/org/gnome/Shell/Screenshot', '/Screenshot']);
      serve({ gnome: NO });
      assert.strictEqual(await width(app), 0);
      assert.match((await app.log()).join(), /^error DBUS Screenshot: .+No: not today/);
    };
    return shared.withApp(work, { env: { DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' } });
  });

  test('what KWin says or wrote and is no picture: a line without its path, the file gone', () =>
    shared.withApp(async (app) => {
      const path = shared.inside('tmp/picture');
      const claim = png(64, 48).subarray(0, 100);
      claim.fill(0x10, 16, 24);
      // What lies at the path that KWin names, or what it says, and the reason in the log.
      for (const [given, reason] of [
        ['not a picture', '.'],
        [png(640, 480).subarray(0, 300), '.'],
        [claim, '269488144 x 269488144'],
        ['P6 30000 30000 255\n', '30000 x 30000'],
        [fs.mkdirSync, 'not a regular file'],
        [(name) => execFileSync('mkfifo', [name]), 'not a regular file'],
        [() => {}, 'No such file'],
        [{ signature: 'i', body: [1] }, 'unexpected reply of type .i., wanted .s.'],
        [{}, 'unexpected reply of type .., wanted .s.'],
      ]) {
        const says = given.constructor === Object ? given : { signature: 's', body: [path] };
        if (typeof given === 'function') given(path);
        else if (says !== given) fs.writeFileSync(path, given);
        serve({ kwin: says });
        assert.strictEqual(await width(app), 0, reason);
        const line = (await app.log()).join('\n');
        assert.match(line, new RegExp(`^error DBUS Screenshot: .*${reason}.*$`));
        assert.ok(!line.includes(path), line);
        if (given === fs.mkdirSync) fs.rmdirSync(path); // unlinking deletes none
        assert.deepStrictEqual(files(), [], reason);
      }
    }));

  test('a selected area completes once in every case and lets go of the guard', () =>
    shared.withApp(async (app) => {
      await app.run(() => {
        internals.setupLogger((...line) => log.push(line.join(' ')));
        global.state = () => `${internals.guardIsFree()} ${internals.selectionBackendAlive()}`;
        const done = (snap) => log.push(`${snap.errorCode} ${snap.width} ${global.state()}`);
        global.select = () => internals.selectArea(done);
      });
      const AREA = { signature: 'iiii', body: [5, 6, 70, 80] };
      const cancelled = 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code19';
      // SelectArea's answer, ScreenshotArea's answer, code, width, what else is logged.
      for (const [SelectArea, ScreenshotArea, code, width, reason] of [
        [AREA, saved(png(70, 80)), 0, 70, ''],
        [AREA, DONE, 0, 0, 'No such file'],
        [AREA, NO, 102003, 0, 'not today'],
        [{ error: cancelled }, NO, 102005, 0, ''],
        [{ signature: 's', body: ['area'] }, NO, 102003, 0, 'wanted .iiii.'],
      ]) {
        serve({ gnome: NO, SelectArea, ScreenshotArea });
        await app.run(() => global.select());
        await until(() => app.run(() => global.state() === 'true false'), 'the end of a selection');
        const line = reason && `error DBUS Screenshot: .*${reason}.*\n`;
        const end = `${code} ${width} false true\ndebug OnScreenSnapCompleted:${code}:End`;
        assert.match((await app.log()).join('\n'), new RegExp(`^${line}${end}$`));
      }
      assert.match(calls('ScreenshotArea')[0].body.join(), /^5,6,70,80,true,.*\/brenik\.\w{10}$/);
      assert.deepStrictEqual(files(), []);
      // The process may end while one is open.
      serve({ gnome: NO, SelectArea: 'hang' });
      await app.run(() => global.select());
    }));
});

for (const [name, starter, skip] of [
  ['GNOME Shell', compositors.startGnomeShell, lacking('gnome-shell', 'Xwayland')],
  ['KWin', compositors.startKwin, compositors.lackingKwin()],
]) {
  describe(name, { skip }, () => {
    const shared = useSession(starter, compositors.startCompositor);
    test('its picture is the screen', () =>
      shared.withApp(async (app) => {
        const place = { x: 200, y: 100, width: 300, height: 200 };
        shared.x.map(shared.x.createWindow({ override: true, ...place, color: 0xc02080 }));
        let seen;
        const look = async () => {
          const { data, width, height } = PNG.sync.read(await snap(app));
          const corner = (x, y) => data.readUIntBE((y * width + x) * 4, 3);
          seen = [width, height, corner(200, 100), corner(499, 299)].join();
          return seen === [1280, 720, 0xc02080, 0xc02080].join();
        };
        await until(look, 'the window').catch(() => assert.fail(seen));
        assert.deepStrictEqual(fs.readdirSync(shared.env.TMPDIR), []);
        assert.doesNotMatch((await app.log()).join(), /^error|,error/);
      }));
  });
}
