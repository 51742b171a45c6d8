'use strict';

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { afterEach, beforeEach, describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { connect } = require('../lib/bus');
const compositors = require('../lib/compositors');
const { lacking, start, until } = require('../lib/processes');
const { startBus, startSession, useSession } = require('../lib/session');

const png = (width, height) => PNG.sync.write(new PNG({ width, height }));
/** The start of a picture that claims a size. */
const claim = (width, height) => {
  const bytes = png(64, 48);
  bytes.writeUInt32BE(width, 16);
  bytes.writeUInt32BE(height, 20);
  return bytes.subarray(0, 100);
};
const bitmap = (width, height) => {
  const bytes = Buffer.alloc(1000);
  bytes.write('BM');
  bytes.writeUInt32LE(54 + width * height * 3, 2);
  for (const [i, value] of [54, 40, width, height].entries())
    bytes.writeUInt32LE(value, 10 + 4 * i);
  bytes.set([1, 0, 24, 0], 26);
  return bytes;
};
const snap = (app, type = 'desktop') =>
  app.run((wanted) => {
    const { width, data } = kiv.getScreenSnap(wanted);
    return data.length > 0 ? { width, data } : { width };
  }, type);
const width = async (app, type) => (await snap(app, type)).width;
const errors = async (app) => (await app.log()).filter((line) => line.startsWith('error'));

describe('a stand-in', () => {
  const shared = useSession({ display: false }, async (options) => {
    const session = await startSession(options);
    session.env.XDG_SESSION_TYPE = 'wayland';
    return session;
  });
  const NO = { error: 'org.example.No', text: 'not today' };
  const files = () => fs.readdirSync(shared.env.TMPDIR);
  const saved = (bytes) => (call) => {
    fs.writeFileSync(call.body.at(-1), bytes);
    return { signature: 'bs', body: [true, ''] };
  };
  let peer;
  const join = async (address) => {
    peer = await connect(address);
    for (const name of ['org.gnome.Shell.Screenshot', 'org.kde.KWin']) await peer.own(name);
  };
  const serve = ({ gnome, kwin, ...more }) => {
    const probe = (how) => (how ? { signature: 's', body: ['<node/>'] } : NO);
    const Introspect = ({ path }) => probe(path === '/Screenshot' ? kwin : gnome);
    peer.answer({ Introspect, Screenshot: gnome, screenshotFullscreen: kwin, ...more });
  };
  const calls = (member) => peer.calls.filter((call) => call.member === member);
  const probed = () => calls('Introspect').map(({ path }) => path);
  beforeEach(() => join(shared.bus.address));
  afterEach(() => peer.close());

  test('without a compositor that it knows: services are probed once, each capture logs an error', () =>
    shared.withApp(async (app) => {
      serve({});
      assert.deepStrictEqual([await width(app), await width(app, 'display')], [0, 0]);
      serve({ gnome: saved(png(64, 48)) });
      assert.strictEqual(await width(app), 0);
      assert.deepStrictEqual(probed(), ['/org/gnome/Shell/Screenshot', '/Screenshot']);
      const lines = ['desktop', 'display', 'desktop'].map((type) => `error Snap ${type} error`);
      assert.deepStrictEqual(await app.log(), lines);
    }));

  test('GNOME Shell is asked before KWin, once there is a bus; no file and no descriptor stays', () => {
    const env = { DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent' };
    return shared.withApp(
      async (app) => {
        serve({ gnome: saved(png(64, 48)), kwin: NO });
        assert.strictEqual(await width(app), 0);
        assert.match(
          (await app.log()).join(),
          /^error DBUS Screenshot: .+,error Snap desktop error$/,
        );
        await app.run((address) => {
          process.env.DBUS_SESSION_BUS_ADDRESS = address;
        }, shared.bus.address);
        assert.strictEqual(await width(app), 64);
        const descriptors = () => app.run(() => require('fs').readdirSync('/proc/self/fd').length);
        const before = await descriptors();
        for (let i = 0; i < 20; ++i)
          assert.strictEqual(await width(app, i % 2 ? 'display' : 'desktop'), 64);
        // GDBus closes a connection from its own thread.
        await until(async () => (await descriptors()) <= before, 'descriptors are closed');
        assert.deepStrictEqual(
          [files(), await app.log(), calls('screenshotFullscreen')],
          [[], [], []],
        );
        assert.strictEqual(probed().length, 2);
        const asked = calls('Screenshot').map(({ body }) => body.join());
        const wanted = new RegExp(`^false,true,${shared.env.TMPDIR}/brenik\\.\\w{10}$`);
        for (const one of asked) assert.match(one, wanted);
        assert.strictEqual(new Set(asked).size, 21);
      },
      { env },
    );
  });

  // What lies at the path that KWin names, and what the log says about it.
  const write = (bytes) => (path) => fs.writeFileSync(path, bytes);
  const PICTURES = {
    'a text': [write('not a picture'), /./],
    'an empty file': [write(''), /./],
    'half a picture': [write(png(640, 480).subarray(0, 300)), /./],
    'a PNG of too many pixels': [write(claim(30000, 30000)), /30000 x 30000/],
    'a PNG too broad': [write(claim(1 << 30, 1)), /1073741824 x 1/],
    'a bitmap of too many pixels': [write(bitmap(30000, 30000)), /30000 x 30000/],
    'a folder': [fs.mkdirSync, /not a regular file/],
    'a FIFO': [(path) => execFileSync('mkfifo', [path]), /not a regular file/],
    nothing: [() => {}, /No such file/],
  };
  const type = (text) =>
    new RegExp(`unexpected reply of type \\${text.replace(')', '\\)')}, wanted \\(s\\)$`);
  const REPLIES = {
    'no value': [{}, type('()')],
    'a number': [{ signature: 'i', body: [1] }, type('(i)')],
    'two texts': [{ signature: 'ss', body: ['a', 'b'] }, type('(ss)')],
    bytes: [{ signature: 'ay', body: [Buffer.from('/etc/passwd\0')] }, type('(ay)')],
    'an error': [NO, /org\.example\.No: not today$/],
  };

  test('what KWin says or wrote and is no picture: one line without its path, no picture, the file gone', () =>
    shared.withApp(async (app) => {
      const path = shared.inside('tmp/picture');
      const named = { signature: 's', body: [path] };
      serve({ kwin: named });
      write(png(640, 480))(path);
      const { data, ...whole } = await snap(app);
      assert.deepStrictEqual(
        [whole, PNG.sync.read(data).height, files()],
        [{ width: 640 }, 480, []],
      );
      const rows = Object.entries({ ...PICTURES, ...REPLIES });
      for (const [name, [given, reason]] of rows) {
        if (typeof given === 'function') given(path);
        serve({ kwin: typeof given === 'function' ? named : given });
        assert.deepStrictEqual(await snap(app), { width: 0 }, name);
        const lines = await app.log();
        assert.match(lines.join('\n'), /^error DBUS Screenshot: .+$/, name);
        assert.match(lines[0], reason, name);
        assert.ok(!lines[0].includes(shared.folder), lines[0]);
        if (name === 'a folder') fs.rmdirSync(path); // unlinking deletes none
        assert.deepStrictEqual(files(), [], name);
      }
    }));

  test('GNOME Shell writes nothing, refuses, or hangs up: a line, no picture', () =>
    shared.withApp(async (app) => {
      const hangUp = () => {
        peer.close();
        return 'hang';
      };
      for (const [gnome, reason] of [
        [{ signature: 'bs', body: [true, ''] }, /No such file/],
        [NO, /org\.example\.No: not today$/],
        [hangUp, /disconnected/],
      ]) {
        serve({ gnome });
        assert.strictEqual(await width(app), 0);
        assert.match((await app.log()).join('\n'), reason);
      }
    }));

  const AREA = { signature: 'iiii', body: [5, 6, 70, 80] };
  const QUARK = 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark';
  // SelectArea's answer, ScreenshotArea's answer, [code, width, bytes], line beyond the completion's.
  const SELECTIONS = {
    success: [AREA, saved(png(70, 80)), [0, 70, true], /^$/],
    'no file': [AREA, { signature: 'bs', body: [true, ''] }, [0, 0, false], /No such file/],
    'area refused': [AREA, NO, [102003, 0, false], /not today$/],
    cancelled: [{ error: `${QUARK}.Code19` }, NO, [102005, 0, false], /^$/],
    refused: [NO, NO, [102003, 0, false], /not today$/],
    'another type': [
      { signature: 's', body: ['area'] },
      NO,
      [102003, 0, false],
      /wanted \(iiii\)$/,
    ],
  };

  test('a selected area completes once in every case and lets go of the guard; the bus may die, or the process end', async () => {
    const bus = await startBus();
    await join(bus.address);
    const env = { DBUS_SESSION_BUS_ADDRESS: bus.address };
    await shared.withApp(
      async (app) => {
        const state = () =>
          app.run(() => [internals.guardIsFree(), internals.selectionBackendAlive()]);
        const select = () =>
          app.run(() => {
            internals.setupLogger((...line) => log.push(line.join(' ')));
            global.results = [];
            const state = () => [internals.guardIsFree(), internals.selectionBackendAlive()].join();
            internals.selectArea(({ errorCode, width, data }) =>
              results.push([errorCode, width, data.length > 0, state()]),
            );
            return state();
          });
        const results = async () => {
          await until(async () => String(await state()) === 'true,false', 'the end of a selection');
          return app.run(() => results);
        };
        serve({ gnome: NO });
        for (const [name, [SelectArea, ScreenshotArea, wanted, reason]] of Object.entries(
          SELECTIONS,
        )) {
          serve({ gnome: NO, SelectArea, ScreenshotArea });
          assert.strictEqual(await select(), 'false,true', name);
          assert.deepStrictEqual(await results(), [[...wanted, 'false,true']], name);
          const lines = await app.log();
          assert.strictEqual(lines.pop(), `debug OnScreenSnapCompleted:${wanted[0]}:End`, name);
          assert.match(lines.join('\n'), reason, name);
        }
        assert.match(calls('ScreenshotArea')[0].body.join(), /^5,6,70,80,true,.*\/brenik\.\w{10}$/);
        assert.deepStrictEqual(files(), []);
        peer.answer({ SelectArea: 'hang' });
        await select();
        await until(() => calls('SelectArea').length === 7, 'a selection');
        await bus.stop();
        assert.strictEqual((await results())[0][0], 102003);
        await select();
        assert.strictEqual((await results())[0][0], 102003, 'no bus');
      },
      { env },
    );
    await shared.withApp(async (app) => {
      await join(shared.bus.address);
      serve({ gnome: NO, SelectArea: 'hang' });
      await app.run(() => internals.selectArea(() => {}));
      await until(() => calls('SelectArea').length > 0, 'a selection');
    });
  });
});

/** A picture of the desktop with a window on it is what the screen shows. */
async function compare({ env, x }, app, background) {
  const { SIZE } = compositors;
  const color = 0xc02080;
  x.map(x.createWindow({ override: true, x: 200, y: 100, width: 300, height: 200, color }));
  // The window's corners, and a place beyond its shadow.
  const points = [
    [350, 200],
    [200, 100],
    [499, 299],
    [1000, 600],
  ];
  const seen = () =>
    snap(app).then(({ data }) => {
      const { width, height, data: pixels } = PNG.sync.read(data);
      assert.deepStrictEqual({ width, height }, SIZE);
      return points.map(([left, y]) => pixels.readUIntBE((y * width + left) * 4, 3));
    });
  const wanted = [color, color, color, background];
  await until(async () => String(await seen()) === String(wanted), 'the window in a picture').catch(
    async () => assert.deepStrictEqual(await seen(), wanted),
  );
  assert.deepStrictEqual([await errors(app), fs.readdirSync(env.TMPDIR)], [[], []]);
}

describe('GNOME Shell', { skip: lacking('gnome-shell', 'Xwayland') }, () => {
  const shared = useSession('gnome', compositors.startCompositor);

  test('its picture is the screen', () =>
    shared.withApp((app) => compare(shared, app, compositors.GNOME_BACKGROUND)));

  test('its idle time is the last input', () =>
    shared.withApp(async (app) => {
      const MONITOR = ['/org/gnome/Mutter/IdleMonitor/Core', 'org.gnome.Mutter.IdleMonitor'];
      const ask = async () => {
        const [time] = await shared.peer.call(
          'org.gnome.Mutter.IdleMonitor',
          ...MONITOR,
          'GetIdletime',
        );
        return Math.floor(Number(time) / 1000);
      };
      await until(async () => (await ask()) >= 2, 'two idle seconds');
      const least = await ask();
      const seconds = await app.run(() => kiv.getInputInfo().last.input);
      assert.ok(least <= seconds && seconds <= (await ask()), `${least} <= ${seconds}`);
    }));

  const REPEATER = '/usr/share/dbus-1/services/org.gnome.ScreenSaver.service';
  const skip = lacking(REPEATER) || (!compositors.canLockGnome() && 'no lock screen');
  test("its lock screen's announcements, which a service repeats, are events", { skip }, () =>
    shared.withApp(async (app) => {
      const [program, ...args] = /^Exec=(.*)$/m
        .exec(fs.readFileSync(REPEATER, 'utf8'))[1]
        .split(' ');
      const repeater = start(program, args, { env: shared.env });
      try {
        const NAME = ['org.gnome.ScreenSaver', '/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver'];
        await repeater.ready(() => shared.peer.hasOwner(NAME[0]), 'a service');
        await app.run(() => {
          global.monitor = new kiv.ScreenLockMonitor();
          global.events = [];
          monitor.emit = (name) => events.push(name);
        });
        for (const [active, event] of [
          [true, 'screen_lock'],
          [false, 'screen_unlock'],
        ]) {
          await shared.peer.call(...NAME, 'SetActive', 'b', [active]);
          await until(
            () => app.run((name) => events.filter((one) => one === name).length === 2, event),
            event,
          );
        }
      } finally {
        await repeater.stop();
      }
    }),
  );
});

describe('KWin', { skip: compositors.lackingKwin() }, () => {
  const shared = useSession('kwin', compositors.startCompositor);

  test('its picture is the screen; it may die while it takes one', () =>
    shared.withApp(async (app) => {
      await compare(shared, app, 0);
      process.kill(shared.compositor.pid, 'SIGSTOP');
      const lost = snap(app);
      await new Promise((resolve) => setTimeout(resolve, 300));
      process.kill(shared.compositor.pid, 'SIGKILL');
      assert.deepStrictEqual(await lost, { width: 0 });
      assert.match((await errors(app)).join('\n'), /^error DBUS Screenshot: .*disconnected/);
    }));
});
