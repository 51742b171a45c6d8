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
const snap = (app, type = 'desktop') =>
  app.run((wanted) => {
    const { width, data } = kiv.getScreenSnap(wanted);
    return { width, data };
  }, type);
const width = async (app, type) => (await snap(app, type)).width;

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
    const probe = (how) => (how ? { signature: 's', body: ['<node/>'] } : NO);
    const Introspect = ({ path }) => probe(path === '/Screenshot' ? kwin : gnome);
    peer.answer({ Introspect, Screenshot: gnome, screenshotFullscreen: kwin, ...more });
  };
  const calls = (member) => peer.calls.filter((call) => call.member === member);

  test('services are probed once; without one that it knows each capture logs an error', () =>
    shared.withApp(async (app) => {
      serve({});
      assert.deepStrictEqual([await width(app), await width(app, 'display')], [0, 0]);
      serve({ gnome: saved(png(64, 48)) });
      assert.strictEqual(await width(app), 0);
      const probed = calls('Introspect').map(({ path }) => path);
      assert.deepStrictEqual(probed, ['/org/gnome/Shell/Screenshot', '/Screenshot']);
      const lines = ['desktop', 'display', 'desktop'].map((type) => `error Snap ${type} error`);
      assert.deepStrictEqual(await app.log(), lines);
    }));

  test('GNOME Shell is asked before KWin, once there is a bus; no file stays; it may refuse', () => {
    const env = { DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' };
    const work = async (app) => {
      serve({ gnome: saved(png(64, 48)), kwin: NO });
      assert.strictEqual(await width(app), 0);
      assert.match(
        (await app.log()).join(),
        /^error DBUS Screenshot: .+,error Snap desktop error$/,
      );
      await app.run((address) => {
        process.env.DBUS_SESSION_BUS_ADDRESS = address;
      }, shared.bus.address);
      assert.deepStrictEqual([await width(app), await width(app, 'display')], [64, 64]);
      assert.deepStrictEqual([files(), calls('screenshotFullscreen')], [[], []]);
      const [one, two] = calls('Screenshot').map(({ body }) => body.join());
      assert.match(one, new RegExp(`^false,true,${shared.env.TMPDIR}/brenik\\.\\w{10}$`));
      assert.notStrictEqual(one, two);
      const hangUp = () => peer.close() || 'hang';
      for (const [gnome, reason] of [
        [DONE, /No such file/],
        [NO, /org\.example\.No: not today$/],
        [hangUp, /disconnected/],
      ]) {
        serve({ gnome });
        assert.strictEqual(await width(app), 0);
        assert.match((await app.log()).join('\n'), reason);
      }
    };
    return shared.withApp(work, { env });
  });

  test('what KWin says or wrote and is no picture: a line without its path, the file gone', () =>
    shared.withApp(async (app) => {
      const path = shared.inside('tmp/picture');
      const claim = png(64, 48).subarray(0, 100);
      claim.writeUInt32BE(30000, 16);
      claim.writeUInt32BE(30000, 20);
      // What lies at the path that KWin names, or what it says, and the reason in the log.
      for (const [given, reason] of [
        ['not a picture', '.'],
        [png(640, 480).subarray(0, 300), '.'],
        [claim, '30000 x 30000'],
        ['P6 30000 30000 255\n', '30000 x 30000'],
        [fs.mkdirSync, 'not a regular file'],
        [(name) => execFileSync('mkfifo', [name]), 'not a regular file'],
        [() => {}, 'No such file'],
        [{ signature: 'i', body: [1] }, 'unexpected reply of type .i., wanted .s.'],
        [{}, 'unexpected reply of type .., wanted .s.'],
        [NO, 'not today'],
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
        assert.deepStrictEqual(files(), []);
      }
    }));

  test('a selected area completes once in every case and lets go of the guard', () =>
    shared.withApp(async (app) => {
      await app.run(() => {
        global.state = () => `${internals.guardIsFree()} ${internals.selectionBackendAlive()}`;
        internals.setupLogger((...line) => log.push(line.join(' ')));
        global.select = () =>
          internals.selectArea(({ errorCode, width }) =>
            log.push(`${errorCode} ${width} ${global.state()}`),
          );
      });
      const state = () => app.run(() => global.state());
      const AREA = { signature: 'iiii', body: [5, 6, 70, 80] };
      const cancelled = 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code19';
      // SelectArea's answer, ScreenshotArea's answer, code, width, what else is logged.
      for (const [SelectArea, ScreenshotArea, code, width, reason] of [
        [AREA, saved(png(70, 80)), 0, 70, ''],
        [AREA, DONE, 0, 0, 'No such file'],
        [AREA, NO, 102003, 0, 'not today'],
        [{ error: cancelled }, NO, 102005, 0, ''],
        [NO, NO, 102003, 0, 'not today'],
        [{ signature: 's', body: ['area'] }, NO, 102003, 0, 'wanted .iiii.'],
      ]) {
        serve({ gnome: NO, SelectArea, ScreenshotArea });
        await app.run(() => global.select());
        await until(async () => (await state()) === 'true false', 'the end of a selection');
        const line = reason && `error DBUS Screenshot: .*${reason}.*\n`;
        const end = `${code} ${width} false true\ndebug OnScreenSnapCompleted:${code}:End`;
        assert.match((await app.log()).join('\n'), new RegExp(`^${line}${end}$`));
      }
      assert.match(calls('ScreenshotArea')[0].body.join(), /^5,6,70,80,true,.*\/brenik\.\w{10}$/);
      assert.deepStrictEqual(files(), []);
      // The process may end while one is open.
      serve({ gnome: NO, SelectArea: 'hang' });
      await app.run(() => global.select());
      assert.strictEqual(await state(), 'false true');
    }));
});

for (const [name, starter, background, skip] of [
  ['GNOME Shell', compositors.startGnomeShell, 0x3465a4, lacking('gnome-shell', 'Xwayland')],
  ['KWin', compositors.startKwin, 0, compositors.lackingKwin()],
]) {
  describe(name, { skip }, () => {
    const shared = useSession(starter, compositors.startCompositor);
    test('its picture is the screen', () =>
      shared.withApp(async (app) => {
        const place = { x: 200, y: 100, width: 300, height: 200 };
        shared.x.map(shared.x.createWindow({ override: true, ...place, color: 0xc02080 }));
        // Two of the window's corners, and a place beyond its shadow.
        const wanted = [1280, 720, 0xc02080, 0xc02080, background].join();
        let seen;
        const look = async () => {
          const { data, width, height } = PNG.sync.read((await snap(app)).data);
          const pixel = (x, y) => data.readUIntBE((y * width + x) * 4, 3);
          seen = [width, height, pixel(200, 100), pixel(499, 299), pixel(1000, 600)].join();
          return seen === wanted;
        };
        await until(look, wanted).catch(() => assert.strictEqual(seen, wanted));
        assert.deepStrictEqual(fs.readdirSync(shared.env.TMPDIR), []);
        assert.doesNotMatch((await app.log()).join(), /^error|,error/);
      }));
  });
}
