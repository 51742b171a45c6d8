'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const { describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { lacking, until } = require('../lib/processes');
const { useSession } = require('../lib/session');

const TEXTS = 'width,height,activeWindowTitle,activeProcessName,filename';
const IN_MEMORY = `data,dataThumbnail,${TEXTS}`;
const IN_FILES = `ScreenFullPath,ThumbnailFullPath,screen_hash,${TEXTS}`;
const snap = (app, ...args) => app.run((...given) => kiv.getScreenSnap(...given), ...args);
const keysOf = async (...args) => String(Object.keys(await snap(...args)));
// Without an active window every capture warns.
const linesOf = async (app) => (await app.log()).filter((line) => !line.startsWith('warn'));

describe('on one screen', () => {
  const shared = useSession({ wm: 'openbox' });
  const inApp = (title, f, options) => test(title, () => shared.withApp(f, options));

  inApp('a PNG holds exactly the pixels of the screen', async (app) => {
    const id = shared.x.createWindow({ x: 101, y: 57, width: 331, height: 203, override: true });
    shared.x.map(id);
    shared.x.draw(id, 331, 203, crypto.randomBytes(331 * 203 * 4));
    const screen = await shared.x.image(0, 0, 1280, 800);
    const seen = await snap(app, 'desktop');
    const [{ width, height, data }, small] = [seen.data, seen.dataThumbnail].map((png) =>
      PNG.sync.read(png),
    );
    const wrong = screen.filter((_, i) => screen[i] !== data[(i & ~3) + 2 - (i % 4)] && i % 4 < 3);
    assert.deepStrictEqual(
      [wrong.length, seen.width, seen.height, width, height, small.width, small.height],
      [0, 1280, 800, 1280, 800, 620, 320],
    );
    assert.deepStrictEqual([seen.filename, String(Object.keys(seen))], ['screen.png', IN_MEMORY]);
    shared.x.destroy(id);
  });

  inApp('unknown types and failing conversions throw, and nothing is captured', async (app) => {
    const thrown = await app.run(() => {
      host.loadUtilities();
      const rows = [['Desktop'], [], ['desktop\0'], [Symbol()], ['desktop', true, Symbol()]];
      return [
        ...rows.map((row) => attempt(kiv.getScreenSnap, ...row)),
        ...rows.slice(0, 4).map((row) => attempt(kiv.getScreenSnapAsync, ...row)),
      ];
    });
    const symbol = 'Cannot convert a Symbol value to a string';
    const either = 'Invalid snap type. Pass either "desktop", or "display".';
    const one = 'Invalid snap type. Pass one of "desktop", "display" or "selection".';
    const wanted = [either, either, either, symbol, symbol, one, one, one, symbol];
    assert.deepStrictEqual(thrown, wanted);
    assert.ok(!String(await app.log()).includes('warn'), 'something was captured');
  });

  inApp('through the host: two files, their names, the hash of the picture', async (app) => {
    await app.run(() => host.loadUtilities());
    for (const [jpeg, type, magic] of [
      [true, 'jpg', 'ffd8'],
      [false, 'png', '8950'],
    ]) {
      const seen = await snap(app, 'display', jpeg, `${shared.inside('tmp')}/a/../snaps é`);
      assert.strictEqual(String(Object.keys(seen)), IN_FILES);
      const stem = /^.*\/snaps é\/Screen[0-9a-f-]{36}/.exec(seen.ScreenFullPath)[0];
      const files = [`${stem}.${type}`, `${stem}_Thumbnail.${type}`];
      assert.deepStrictEqual([seen.ScreenFullPath, seen.ThumbnailFullPath], files);
      const bytes = files.map((file) => fs.readFileSync(file));
      for (const one of bytes) assert.strictEqual(one.toString('hex', 0, 2), magic);
      const hash = crypto.createHash('sha256').update(bytes[0]).digest('hex');
      assert.strictEqual(seen.screen_hash, hash);
    }
    fs.writeFileSync(shared.inside('file'), '');
    for (const folder of ['', shared.inside('file/under')])
      assert.strictEqual(await keysOf(app, 'desktop', true, folder), IN_MEMORY, folder);
  });

  const input = `#include <string>
    extern "C" {
    void KivoUtilsCreateGUID(std::string& id) { id = "one"; }
    void KivoUtilsNormalizeAndCreatePath(std::string&) {}
    bool KivoUtilsWriteFile(const std::string& name, const void*, size_t) {
      return name.find(REFUSED) == std::string::npos;
    }
    void HASH(std::string&, const void*, size_t) { if (THROWS) throw 1; }
    }`;
  const HASH = '-DHASH=KivoUtilsCreateSHA256Hash';
  for (const [what, ...flags] of [
    ['there are none'],
    ['one of four is missing', '-DREFUSED="nothing"', '-DHASH=other', '-DTHROWS=0'],
    ['one throws', '-DREFUSED="nothing"', HASH, '-DTHROWS=1'],
    ['the picture cannot be written', '-DREFUSED="one.jpg"', HASH, '-DTHROWS=0'],
    ['the thumbnail cannot be written', '-DREFUSED="Thumbnail"', HASH, '-DTHROWS=0'],
  ]) {
    inApp(`when of the host's functions ${what}, the snapshot stays in memory`, async (app) => {
      const file = shared.inside(`${what}.so`);
      const gcc = ['-shared', '-fPIC', '-x', 'c++', ...flags, '-', '-o', file];
      if (flags.length > 0) execFileSync('g++', gcc, { input });
      // It is no module, but loaded then.
      await app.run((name) => attempt(process.dlopen, { exports: {} }, name, 0x102), file);
      assert.strictEqual(await keysOf(app, 'desktop', true, '/'), IN_MEMORY);
    });
  }

  inApp(
    'without GTK there is no picture, and not a word',
    async (app) => {
      const { width, data, dataThumbnail, filename } = await snap(app, 'display', true);
      assert.deepStrictEqual([width, data.length, dataThumbnail.length, filename], [0, 0, 0, '']);
    },
    { setUp: false },
  );

  const early = { setUp: false };
  const setUp = () => {
    host.startLoop();
    kiv.setupLogger((...line) => log.push(line.join(' ')));
    kiv.init();
  };
  test('a failed capture keeps the last name, a failed encoding is told and gives what there is', () =>
    shared.withApp(async (app) => {
      await app.run(() => void faults);
      await app.run(setUp);
      await snap(app, 'desktop', true);
      await app.run(() => faults.failNewPixbuf(1));
      const failed = await snap(app, 'desktop');
      const seen = [failed.width, failed.data.length, failed.filename];
      assert.deepStrictEqual(seen, [0, 0, 'screen.jpg']);
      for (const [silent, line] of [
        [false, /^error Fetch image error:\d+:expected$/],
        [true, /^error Fetch image error:\d+:Not enough memory/],
      ]) {
        await app.run((how) => faults.failSave(how), silent);
        const { width, data, dataThumbnail } = await snap(app, 'desktop');
        assert.deepStrictEqual([width, `${data}`, dataThumbnail.length], [1280, 'partial', 0]);
        assert.match(String(await linesOf(app)), line);
      }
    }, early));

  test('GDK forgets windows that were active once when they are gone', () =>
    shared.withApp(async (app) => {
      // Has to be there before GTK is.
      await app.run(() => {
        global.census = require(`${process.env.KIV_BUILD_FOLDER}/bench_soak.node`);
        global.census.countObjects();
      });
      await app.run(setUp);
      const records = () => app.run(() => global.census.objects().GdkX11Window);
      const known = await records();
      const windows = [];
      for (let i = 1; i <= 3; ++i) {
        windows.push(await shared.x.activeWindow());
        await snap(app, 'display', true);
        assert.strictEqual(await records(), known + i);
      }
      for (const id of windows) shared.x.destroy(id);
      await until(async () => (await records()) === known, 'GDK without the windows');
    }, early));

  inApp('asynchronous ones call back once, in order, and throw what that throws', async (app) => {
    const seen = await app.run(() => {
      const seen = [];
      process.on('uncaughtException', () => seen.push('uncaught'));
      function done(...results) {
        seen.push([results.length, this === global, String(Object.keys(results[0]))]);
        const { width, height, data, errorCode } = results[0];
        seen.push([width, height, data.readUInt32BE(20), errorCode]);
        // A request from within is accepted: these types hold no guard.
        kiv.getScreenSnapAsync('display', () => seen.push('inner'));
        throw new Error('mine');
      }
      seen.push(attempt(kiv.getScreenSnapAsync, 'desktop', done));
      return [...seen, attempt(kiv.getScreenSnapAsync, 'desktop', {}) === undefined];
    });
    const keys = `${TEXTS},data,dataThumbnail,errorCode`;
    const wanted = [[1, true, keys], [1280, 800, 800, 0], 'inner', 'mine', true];
    assert.deepStrictEqual(seen, wanted);
    const [begin, end] = ['debug GetScreenSnapAsync', 'debug OnScreenSnapCompleted:0:End'];
    const [desktop, display] = [`${begin}:desktop:End`, `${begin}:display:End`];
    const lines = [begin, begin, end, display, end, desktop, begin, end, desktop];
    assert.deepStrictEqual(await linesOf(app), lines);
  });
});

// Screen, result with the limit, JPEG quality.
const LIMITS = {
  '5120x1440': '1920 540 50',
  '1000x2000': '540 1080 50',
  '1920x1080': '1920 1080 25',
  '32000x10': '',
};
describe('the size limit', { skip: lacking('identify') }, () => {
  const shared = useSession({ screens: Object.keys(LIMITS), bus: false });
  const format = ['-format', '%w %h %Q', '-'];
  const identify = (input) =>
    input.length ? `${execFileSync('identify', format, { input })}` : '';
  for (const [i, [screen, wanted]] of Object.entries(LIMITS).entries()) {
    test(`makes ${wanted || 'nothing'} (width, height, quality) of ${screen}`, async () => {
      const env = { DISPLAY: `${shared.env.DISPLAY}.${i}` };
      const { width, height, data, dataThumbnail } = await shared.withApp(
        (app) => snap(app, 'desktop', true),
        { env },
      );
      assert.strictEqual(identify(data), wanted);
      assert.strictEqual(identify(dataThumbnail), wanted.replace(/\d+ \d+/, '620 320'));
      assert.strictEqual(`${width} ${height}`, /^\d+ \d+/.exec(wanted)?.[0] || '0 0');
    });
  }
});

describe('two monitors', { skip: lacking('Xorg') }, () => {
  const monitors = [
    { width: 800, height: 600 },
    { width: 1024, height: 768, x: 800 },
  ];
  const shared = useSession({ monitors, wm: 'openbox' });
  const size = ({ width, height }) => `${width}x${height}`;
  test("the display is the active window's monitor, or all, in a session without a type", () =>
    shared.withApp(
      async (app) => {
        const { x } = shared;
        await x.deleteProperty(x.root, '_NET_ACTIVE_WINDOW');
        assert.strictEqual(size(await snap(app, 'display')), '1824x768');
        const id = await x.activeWindow({ x: 900, y: 100 });
        const seen = await snap(app, 'display');
        assert.strictEqual(size(seen), '1024x768');
        const { data } = PNG.sync.read(seen.data);
        assert.strictEqual(data.readUIntBE(4 * (200 * 1024 + 200), 3), 0x336699);
        x.place(id, 100, 100, 300, 200);
        await until(async () => (await x.geometry(id)).x < 500, 'the move');
        assert.strictEqual(size(await snap(app, 'display')), '800x600');
        assert.strictEqual(size(await snap(app, 'desktop')), '1824x768');
      },
      { env: { XDG_SESSION_TYPE: undefined } },
    ));
});
