'use strict';

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { describe, test } = require('node:test');
const { PNG } = require('pngjs');
const compositors = require('./lib/compositors');
const { act, openSelection, outcome } = require('./lib/overlay');
const { until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const png = (width, height) => PNG.sync.write(new PNG({ width, height }));
const width = (app) => app.run(() => kiv.getScreenSnap('display').width);

const shared = useSession({ display: false, env: { XDG_SESSION_TYPE: 'wayland' } });
const files = () => fs.readdirSync(shared.env.TMPDIR);
const NO = { error: 'org.example.No', text: 'not today' };
const DONE = { signature: 'bs', body: [true, ''] };
const saved = (bytes) => (call) => {
  fs.writeFileSync(call.body.at(-1), bytes);
  return DONE;
};
/** Stand-ins for both services; one without an answer does not exist. */
const serve = async ({ gnome, kwin, ...more }) => {
  const Introspect = ({ path }) => ((path === '/Screenshot' ? kwin : gnome) ? DONE : NO);
  shared.peer.calls.length = 0;
  await Promise.all(['org.gnome.Shell.Screenshot', 'org.kde.KWin'].map(shared.peer.own));
  shared.peer.answer({ Introspect, Screenshot: gnome, screenshotFullscreen: kwin, ...more });
};
const calls = (member) => {
  const those = shared.peer.calls.filter((call) => call.member === member);
  return those.map(({ path, body }) => [path, ...body].join());
};

test('GNOME Shell is asked before KWin, both are probed once, and no file is left', () => {
  const work = async (app) => {
    await serve({ gnome: saved(png(64, 48)), kwin: DONE });
    assert.strictEqual(await width(app), 0);
    assert.match((await app.log()).join(), /^error DBUS Screenshot: .+,error Snap display error$/);
    await app.run((env) => Object.assign(process.env, env), shared.env);
    assert.deepStrictEqual([await width(app), await width(app), files()], [64, 64, []]);
    const [one, two] = calls('Screenshot');
    assert.match(one, new RegExp(`false,true,${shared.env.TMPDIR}/brenik\\.\\w{10}$`));
    assert.notStrictEqual(one, two);
    assert.deepStrictEqual(calls('Introspect'), ['/org/gnome/Shell/Screenshot', '/Screenshot']);
  };
  return shared.withApp(work, { env: { DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' } });
});

test('each error or bad picture of KWin logs one line without the path; its file is deleted', () =>
  shared.withApp(async (app) => {
    const path = shared.inside('tmp/picture');
    const put = (bytes) => () => fs.writeFileSync(path, bytes);
    const huge = png(64, 48).fill(0xff, 16, 24);
    // What KWin does when called (what it returns is its reply), and the reason in the log.
    for (const [deed, reason] of [
      [put(png(640, 480).subarray(0, 300)), '.'],
      [put(huge), '4294967295 x 4294967295'],
      [put('P6 30000 30000 255\n'), '30000 x 30000'],
      [() => String(execFileSync('mkfifo', [path])), 'not a regular file'],
      [() => {}, 'No such file'],
      [() => NO, 'not today'],
      [() => ({ signature: 'i', body: [1] }), 'unexpected reply of type .i., wanted .s.'],
    ]) {
      await serve({ kwin: () => deed() || { signature: 's', body: [path] } });
      assert.strictEqual(await width(app), 0, reason);
      const line = (await app.log()).join('\n');
      assert.match(line, new RegExp(`^error DBUS Screenshot: .*${reason}.*$`));
      assert.deepStrictEqual([line.includes(path), files()], [false, []], line);
    }
  }));

test('a selected area completes exactly once and releases the guard', () =>
  shared.withApp(async (app) => {
    await app.run(() => {
      internals.setupLogger((...line) => log.push(line.join(' ')));
      global.state = () => `${internals.guardIsFree()} ${internals.selectionBackendAlive()}`;
      const done = (snap) => log.push(`${snap.errorCode} ${snap.width} ${global.state()}`);
      global.select = () => internals.selectArea(done);
    });
    const AREA = { signature: 'iiii', body: [5, 6, 70, 80] };
    const CANCELLED = 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code19';
    // Replies to SelectArea and ScreenshotArea; code and width; what else is logged.
    for (const [SelectArea, ScreenshotArea, ended, reason] of [
      [AREA, NO, '102003 0', 'error DBUS Screenshot: .*not today\n'],
      [{ error: CANCELLED }, NO, '102005 0', ''],
      [DONE, NO, '102003 0', 'error DBUS Screenshot: .*wanted .iiii.\n'],
      [AREA, saved(png(70, 80)), '0 70', ''],
    ]) {
      await serve({ gnome: NO, SelectArea, ScreenshotArea });
      await app.run(() => global.select());
      await until(() => app.run(() => global.state() === 'true false'), 'the end of a selection');
      const lines = `${reason}${ended} false true\ndebug OnScreenSnapCompleted:\\d+:End`;
      assert.match((await app.log()).join('\n'), new RegExp(`^${lines}$`));
    }
    assert.match(calls('ScreenshotArea').join(), /,5,6,70,80,true,.*\/brenik\.\w{10}$/);
    assert.deepStrictEqual(files(), []);
    await serve({ gnome: NO, SelectArea: 'hang' }); // the process may exit while one is open
    await app.run(() => global.select());
  }));

const COLOR = 0xc02080;
const map = ({ x }) => {
  const id = x.createWindow({ x: 200, y: 100, override: true, color: COLOR });
  x.map(id);
  return id;
};
const errors = async (app) => (await app.log()).filter((line) => line.startsWith('error'));
const pixel = ({ data, width }, x, y) => data.readUIntBE((y * width + x) * 4, 3);
const look = async (app) => PNG.sync.read(await app.run(() => kiv.getScreenSnap('desktop').data));
/** Waits until a snapshot shows the window, to the pixel. Returns the errors logged then. */
async function showsWindow(app, wanted, scale = 1) {
  let seen;
  await until(async () => {
    await app.log();
    const shot = await look(app);
    const corners = [
      [200, 100],
      [500, 300],
    ].flatMap(([x, y]) =>
      [-1, 0].map((by) => pixel(shot, x * scale + by, y * scale + by) === COLOR),
    );
    seen = [shot.width, shot.height, ...corners].join();
    return seen === [...wanted, false, true, true, false].join();
  }, 'the window').catch(() => assert.fail(seen));
  return errors(app);
}

const KWIN2 = ['org.kde.KWin.ScreenShot2'];
const NOT_ALLOWED = /^error DBUS Screenshot: .*AccessDenied: Screenshot is not allowed$/;
const NO_AUTHORITY = /^error DBUS Screenshot: .*NoAuthorized: The process is not authorized/;
const GNOME_PORTAL = compositors.lackingGnomePortal();
const kwin = compositors.lackingKwin();
for (const [name, starter, options, wanted, refusal, skip] of [
  ['GNOME Shell', compositors.startGnomeShell, {}, [1280, 720], null, GNOME_PORTAL],
  [
    "GNOME Shell's portal",
    compositors.startGnomeShell,
    { portal: true },
    [1280, 720],
    NOT_ALLOWED,
    GNOME_PORTAL,
  ],
  ['KWin', compositors.startKwin, {}, [1280, 720], null, kwin],
  [
    "KWin's ScreenShot2",
    compositors.startKwin,
    { interfaces: KWIN2 },
    [1280, 720],
    NO_AUTHORITY,
    kwin,
  ],
  [
    'sway',
    compositors.startSway,
    { outputs: ['1280x720', '640x480'] },
    [1920, 720],
    null,
    compositors.lackingSwayPortal(),
  ],
]) {
  const start = (session, launch) => starter(session, launch, options);
  describe(name, { skip }, () => {
    const real = useSession(start, compositors.startCompositor);
    test('the picture shows the screen, and no file is left', () =>
      real.withApp(async (app) => {
        map(real);
        if (options.portal) {
          assert.strictEqual(await width(app), 0);
          assert.match(
            (await errors(app))[1],
            /^error DBUS Screenshot: portal: Nobody has allowed/,
          );
          await compositors.setPermission(real, 'yes');
        }
        const lines = await showsWindow(app, wanted);
        assert.strictEqual(lines.filter((line) => !refusal?.test(line)).join(), '');
        for (const folder of ['home/Pictures', 'home', 'tmp'].map(real.inside)) {
          const left = fs.existsSync(folder) ? fs.readdirSync(folder) : [];
          assert.deepStrictEqual(
            left.filter((file) => /^Screenshot|brenik|png$/.test(file)),
            [],
          );
        }
      }));
  });
}

describe('a screen with two pixels per point', { skip: kwin }, () => {
  const more = '--scale 2 --width 640 --height 360'.split(' ');
  const start = (...session) => compositors.startKwin(...session, { interfaces: KWIN2, more });
  const real = useSession(start, compositors.startCompositor);
  test('the overlay shows the right pixels under the pointer and cuts them out', () =>
    real.withApp(async (app) => {
      const id = map(real);
      await showsWindow(app, [1280, 720], 2);
      await openSelection(real.x, app, null);
      real.x.destroy(id); // it covers the overlay, whose frozen picture still shows it
      const moved = async () => {
        act(real.x, [209, 109], [210, 110], 'sync');
        return pixel(await look(app), 420, 0) !== 0; // the cross
      };
      await until(moved, "the overlay's cross");
      act(real.x, 'press', [260, 150], [310, 160], 'release');
      assert.deepStrictEqual(await outcome(real.x, app), [[0, 200, 100]]);
      const cut = PNG.sync.read(await app.run(() => global.results[0].data));
      assert.deepStrictEqual(
        [0, 199].map((at) => pixel(cut, at, at >> 1)),
        [COLOR, COLOR],
      );
    }));
});
