'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const { describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { lacking, until } = require('../lib/processes');
const { useSession } = require('../lib/session');

const TEXTS = 'width height activeWindowTitle activeProcessName filename';
const IN_MEMORY = `data dataThumbnail ${TEXTS}`;
const IN_FILES = `ScreenFullPath ThumbnailFullPath screen_hash ${TEXTS}`;
const snap = (app, ...args) =>
  app.run((...given) => {
    const result = kiv.getScreenSnap(...given);
    return Object.assign(result, { keys: Object.keys(result).join(' ') });
  }, ...args);

describe('on one screen', () => {
  const shared = useSession({ wm: 'openbox' });

  test('a PNG holds exactly the pixels of the screen, and its thumbnail lies next to it', () =>
    shared.withApp(async (app) => {
      const [left, top, width, height] = [101, 57, 331, 203];
      const id = shared.x.createWindow({ x: left, y: top, width, height, override: true });
      shared.x.map(id);
      const bytes = crypto.randomBytes(width * height * 4);
      shared.x.draw(id, width, height, bytes);
      await shared.x.sync();
      const seen = await snap(app, 'desktop');
      const picture = PNG.sync.read(seen.data);
      for (let i = 0; i < width * height; ++i) {
        const at = 4 * ((top + Math.floor(i / width)) * 1280 + left + (i % width));
        const there = picture.data.readUIntBE(at, 3);
        assert.strictEqual(there, bytes.readUIntLE(4 * i, 3), `pixel ${i}`);
      }
      const thumbnail = PNG.sync.read(seen.dataThumbnail);
      assert.deepStrictEqual(
        [seen.width, seen.height, picture.width, picture.height, thumbnail.width, thumbnail.height],
        [1280, 800, 1280, 800, 620, 320],
      );
      assert.deepStrictEqual([seen.filename, seen.keys], ['screen.png', IN_MEMORY]);
      shared.x.destroy(id);
    }));

  test('unknown types and failing conversions throw, and nothing is captured', () =>
    shared.withApp(async (app) => {
      const thrown = await app.run(() => {
        host.loadUtilities();
        const bad = {
          toString() {
            throw new RangeError('mine');
          },
        };
        const rows = [['Desktop'], [], ['selection'], ['desktop\0'], [bad], ['desktop', true, bad]];
        return rows.map((row) => {
          try {
            return kiv.getScreenSnap(...row);
          } catch (error) {
            return error.message;
          }
        });
      });
      const invalid = 'Invalid snap type. Pass either "desktop", or "display".';
      assert.deepStrictEqual(thrown, [...Array(4).fill(invalid), 'mine', 'mine']);
      // Every capture here logs a line, since no window is active.
      assert.deepStrictEqual(await app.log(), []);
    }));

  test('through the host two files are written and the hash is that of the picture', () =>
    shared.withApp(async (app) => {
      await app.run(() => host.loadUtilities());
      for (const [jpeg, extension, magic] of [[true, 'jpg', 'ffd8'], [false, 'png', '8950']]) {
        const seen = await snap(app, 'display', jpeg, `${shared.inside('tmp')}/a/../snaps é`);
        assert.strictEqual(seen.keys, IN_FILES);
        const [, stem] = /^(.*\/snaps é\/Screen[0-9a-f-]{36})\.(\w+)$/.exec(seen.ScreenFullPath);
        assert.deepStrictEqual([`${stem}.${extension}`, `${stem}_Thumbnail.${extension}`], [seen.ScreenFullPath, seen.ThumbnailFullPath]);
        const [picture, thumbnail] = [seen.ScreenFullPath, seen.ThumbnailFullPath].map((file) => fs.readFileSync(file));
        assert.strictEqual(seen.screen_hash, crypto.createHash('sha256').update(picture).digest('hex'));
        assert.deepStrictEqual([picture, thumbnail].map((file) => file.toString('hex', 0, 2)), [magic, magic]);
        assert.ok(thumbnail.length !== picture.length)
      }
      fs.writeFileSync(shared.inside('file'), '');
      for (const folder of ['', shared.inside('file/under')]) assert.strictEqual((await snap(app, 'desktop', true, folder)).keys, IN_MEMORY, folder);
    }));

  const LIBRARY = `
    #include <string>
    extern "C" {
    void KivoUtilsCreateGUID(std::string& id) { id = "one"; }
    void KivoUtilsNormalizeAndCreatePath(std::string&) {}
    bool KivoUtilsWriteFile(const std::string& name, const void*, size_t) {
      return name.find(REFUSED) == std::string::npos;
    }
    #ifdef HASH
    void KivoUtilsCreateSHA256Hash(std::string&, const void*, size_t) { throw 1; }
    #endif
    }`;
  const HOSTS = {
    none: null,
    'three of the four': ['-DREFUSED="nothing"'],
    'one that throws': ['-DREFUSED="nothing"', '-DHASH'],
    'one that cannot write the picture': ['-DREFUSED="one.jpg"', '-DHASH=noexcept'],
    'one that cannot write the thumbnail': ['-DREFUSED="one_Thumbnail"', '-DHASH'],
  };
  for (const [name, flags] of Object.entries(HOSTS)) {
    test(`with ${name} of the host's functions the snapshot stays in memory`, () => shared.withApp(async (app) => {
      const file = shared.inside(`${name}.so`);
      if (flags) execFileSync('g++', ['-shared', '-fPIC', '-x', 'c++', ...flags, '-', '-o', file], { input: LIBRARY });
      await app.run((library) => {
        // It is no module, but loaded then.
        try { process.dlopen({ exports: {} }, library, 0x102); } catch (error) {}
      }, file);
      assert.strictEqual((await snap(app, 'desktop', true, '/')).keys, IN_MEMORY);
    }));
  }

  test('without GTK there is no picture, and not a word', () => shared.withApp(async (app) => {
    const { width, height, data, dataThumbnail, filename } = await snap(app, 'display', true);
    assert.deepStrictEqual([width, height, data.length, dataThumbnail.length, filename], [0, 0, 0, 0, '']);
  }, { setUp: false }));

  test('after a failed capture or encoding: what there is of it, a line, the last name', () => shared.withApp(async (app) => {
    await app.run(() => {
      faults;
      host.startLoop();
      kiv.setupLogger((...line) => log.push(line.join(' ')));
      kiv.getScreenSnap('desktop', true);
      faults.failNewPixbuf(1);
    });
    const failed = await snap(app, 'desktop');
    assert.deepStrictEqual([failed.width, failed.data.length, failed.filename], [0, 0, 'screen.jpg']);
    await app.log();
    for (const [silent, line] of [[false, /^error Fetch image error:.*:expected$/], [true, /^error Fetch image error:.*:Not enough memory/]]) {
      await app.run((how) => faults.failSave(how), silent);
      const { width, data, dataThumbnail, filename } = await snap(app, 'desktop');
      assert.deepStrictEqual([width, String(data), dataThumbnail.length, filename], [1280, 'partial', 0, 'screen.png']);
      assert.match((await app.log()).filter((one) => !one.startsWith('warn')).join(), line);
    }
  }, { setUp: false }));

  test('GDK forgets windows that were active once when they are gone', () => shared.withApp(async (app) => {
    await app.run(() => {
      // Has to be there before GTK is.
      global.census = require(`${process.env.KIV_BUILD_FOLDER}/bench_soak.node`);
      census.countObjects();
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
    });
    const records = () => app.run(() => census.objects().GdkX11Window);
    const known = await records();
    const windows = [];
    for (let i = 1; i <= 3; ++i) {
      windows.push(await shared.x.activeWindow({ title: `window ${i}` }));
      assert.strictEqual((await snap(app, 'display', true)).activeWindowTitle, `window ${i}`);
      assert.strictEqual(await records(), known + i);
    }
    for (const id of windows) shared.x.destroy(id);
    await until(async () => (await records()) === known, 'GDK without the windows');
  }, { setUp: false }));
  
  test('asynchronous ones call back once, before the call returns, and throw what the callback throws', () => shared.withApp(async (app) => {
    const { seen, lines } = await app.run(() => {
      const seen = [];
      for (const type of ['desktop', 'display']) {
        seen.push(kiv.getScreenSnapAsync(type, function (result, ...more) {
          seen.push(Object.keys(result).join(' '), result.width, result.data.readUInt32BE(20), result.errorCode, more.length, this === global);
          // A request from within is accepted: these types hold no guard.
          kiv.getScreenSnapAsync(type, () => seen.push('inner'));
        }) === undefined);
      }
      return { seen, lines: log.splice(0).filter((line) => !line.startsWith('warn')) };
    });
    const one = [`${TEXTS} data dataThumbnail errorCode`, 1280, 800, 0, 0, true, 'inner', true];
    assert.deepStrictEqual(seen, [...one, ...one]);
    const [begin, done] = ['debug GetScreenSnapAsync', 'debug OnScreenSnapCompleted:0:End'];
    assert.deepStrictEqual(lines, ['desktop', 'display'].flatMap((type) => [begin, begin, done, `${begin}:${type}:End`, done, `${begin}:${type}:End`]));
    const attempts = await app.run(() => {
      const uncaught = [];
      process.on('uncaughtException', (error) => uncaught.push(error.message));
      const attempt = (...args) => {
        log.length = 0;
        try { kiv.getScreenSnapAsync(...args); } catch (error) { log.unshift(error.message); }
        return log.filter((line) => !line.startsWith('warn')).concat(uncaught.splice(0)).join();
      };
      const bad = { toString() { throw new RangeError('mine'); } };
      return [attempt('Selection', attempt), attempt(), attempt('desktop\0', attempt), attempt(bad, attempt),
        attempt('desktop', () => { throw new TypeError('mine'); }), attempt('desktop'), attempt('display', {})];
    });
    const unknown = ['Selection', 'undefined', 'desktop\0'].map((type) => `Invalid snap type. Pass one of "desktop", "display" or "selection".,${begin},${begin}:${type}:End`);
    assert.deepStrictEqual(attempts, [...unknown, `mine,${begin}`, ...['mine,', ''].map((error) => `${error}${begin},${done},${begin}:desktop:End`), `${begin},${done},${begin}:display:End`]);
  }));
});

// Screen, result with the limit, JPEG quality.
const LIMITS = [['5120x1440', '1920 540 50'], ['1000x2000', '540 1080 50'], ['1920x1080', '1920 1080 25'], ['32000x10', '']];
describe('the size limit', { skip: lacking('identify') }, () => {
  const shared = useSession({ screens: LIMITS.map(([screen]) => screen), bus: false });
  for (const [i, [screen, wanted]] of LIMITS.entries()) {
    test(`makes ${wanted || 'nothing'} (width, height, quality) of ${screen}`, () => shared.withApp(async (app) => {
      const { width, height, data, dataThumbnail } = await snap(app, 'desktop', true);
      const identify = (input) => input.length > 0 ? String(execFileSync('identify', ['-format', '%w %h %Q', '-'], { input })) : '';
      assert.deepStrictEqual([identify(data), identify(dataThumbnail)], [wanted, wanted.replace(/\d+ \d+/, '620 320')]);
      assert.deepStrictEqual([width, height], wanted ? wanted.split(' ').map(Number).slice(0, 2) : [0, 0]);
      await app.run(() => kiv.getScreenSnapAsync('desktop', (full) => { global.full = `${full.width}x${full.height}`; }));
      assert.strictEqual(await app.run(() => full), screen, 'asynchronous ones have no limit');
    }, { env: { DISPLAY: `${shared.env.DISPLAY}.${i}` } }));
  }
});

describe('two monitors', { skip: lacking('Xorg') }, () => {
  const shared = useSession({ monitors: [{ width: 800, height: 600 }, { width: 1024, height: 768, x: 800 }], wm: 'openbox' });
  test("the display is the active window's monitor, the whole desktop without one, also when the session has no type", () => shared.withApp(async (app) => {
    const { x } = shared;
    await x.deleteProperty(x.root, '_NET_ACTIVE_WINDOW');
    const size = async (type) => {
      const { width, height, data } = await snap(app, type);
      return [width, height, PNG.sync.read(data)];
    };
    assert.deepStrictEqual((await size('display')).slice(0, 2), [1824, 768]);
    const id = await x.activeWindow({ x: 900, y: 100 });
    const [width, height, picture] = await size('display');
    assert.deepStrictEqual([width, height], [1024, 768]);
    assert.strictEqual(picture.data.readUIntBE(4 * (200 * 1024 + 200), 3), 0x336699);
    x.place(id, 100, 100, 300, 200);
    await until(async () => (await x.geometry(id)).x < 500, 'the move');
    assert.deepStrictEqual((await size('display')).slice(0, 2), [800, 600]);
    assert.deepStrictEqual((await size('desktop')).slice(0, 2), [1824, 768]);
    assert.strictEqual(await app.run(() => kiv.isWayland()), false);
  }, { env: { XDG_SESSION_TYPE: undefined } }));
});
