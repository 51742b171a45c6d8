'use strict';

const assert = require('assert');
const { after, before, describe, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { need } = require('./helpers/need');
const { startSession } = require('./helpers/session');

const BUFFER_KEYS = [
  'data', 'dataThumbnail', 'width', 'height', 'activeWindowTitle', 'activeProcessName', 'filename',
];
const FILE_KEYS = ['ScreenFullPath', 'ThumbnailFullPath', 'screen_hash', ...BUFFER_KEYS.slice(2)];

describe('on one screen', () => {
  let session;
  before(async () => { session = await startSession(); });
  after(() => session.stop());
  const run = (source, options) => runCase(source, { env: session.env, ...options });

  test('a PNG holds exactly the pixels that were painted', async () => {
    const { json } = await run(async () => {
      const { decodePng, pixelAt } = require('./images');
      host.startLoop();
      kiv.init();
      const client = X.open(process.env.DISPLAY);
      const area = { x: 101, y: 57, width: 331, height: 203 };
      const id = client.createWindow({ ...area, overrideRedirect: true });
      client.map(id);
      client.sync();
      const bytes = Buffer.alloc(area.width * area.height * 4);
      for (let i = 0; i < bytes.length; ++i) bytes[i] = (i * 2654435761) >>> 24;
      client.drawImage(id, 0, 0, area.width, area.height, bytes);
      client.sync();
      const snap = kiv.getScreenSnap('desktop');
      const picture = decodePng(snap.data);
      let wrong = 0;
      for (let y = 0; y < area.height; ++y) {
        for (let x = 0; x < area.width; ++x) {
          const at = (y * area.width + x) * 4;
          const [red, green, blue] = pixelAt(picture, area.x + x, area.y + y);
          if (red !== bytes[at + 2] || green !== bytes[at + 1] || blue !== bytes[at]) ++wrong;
        }
      }
      const thumbnail = decodePng(snap.dataThumbnail);
      report({ keys: Object.keys(snap), wrong, size: [picture.width, picture.height, snap.width, snap.height],
        thumbnail: [thumbnail.width, thumbnail.height], filename: snap.filename });
      client.close();
      kiv.teardown();
    });
    assert.deepStrictEqual(json, { keys: BUFFER_KEYS, wrong: 0, size: [1280, 800, 1280, 800],
      thumbnail: [620, 320], filename: 'screen.png' });
  });

  test('windows that were active once leave no record of themselves in GDK', async () => {
    const { json } = await run(async () => {
      const { activeWindow } = require('./windows');
      const census = require(require('path').resolve('build', process.env.KIV_BUILD, 'bench_soak.node'));
      census.countObjects();
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
      const counts = [];
      // All open together: the next client would get the ids of one that has left.
      const open = [];
      for (let i = 0; i < 3; ++i) {
        open.push(await activeWindow({ title: `window ${i}` }));
        const { activeWindowTitle } = kiv.getScreenSnap('display', true);
        counts.push([activeWindowTitle, census.objects().GdkX11Window]);
      }
      for (const { close } of open) close();
      report(counts);
      kiv.teardown();
    });
    const [[, windows]] = json;
    assert.ok(windows > 0);
    assert.deepStrictEqual(json, [0, 1, 2].map((i) => [`window ${i}`, windows]));
  });

  test('unknown types and failing conversions throw, and nothing is captured', async () => {
    const { json } = await run(() => {
      host.startLoop();
      const captured = [];
      kiv.setupLogger((level, text) => captured.push(text));
      kiv.init();
      const thrown = (...args) => {
        try { kiv.getScreenSnap(...args); return null; } catch (error) { return `${error.name}: ${error.message}`; }
      };
      host.loadUtilities();
      const bad = { toString() { throw new RangeError('mine'); } };
      report({ types: [thrown('Desktop'), thrown(), thrown('selection')],
        conversions: [thrown(Symbol('type')), thrown(bad), thrown('desktop', true, bad)], captured });
      kiv.teardown();
    });
    for (const message of json.types) {
      assert.strictEqual(message, 'Error: Invalid snap type. Pass either "desktop", or "display".');
    }
    assert.match(json.conversions[0], /^TypeError: /);
    assert.deepStrictEqual(json.conversions.slice(1), ['RangeError: mine', 'RangeError: mine']);
    // Every capture of this screen logs a line, since no window is active.
    assert.deepStrictEqual(json.captured, []);
  });

  test('saved through the host: two files, their names and the hash', async () => {
    const { json } = await run(() => {
      const fs = require('fs');
      const path = require('path');
      const crypto = require('crypto');
      host.startLoop();
      kiv.init();
      host.loadUtilities();
      const folder = path.join(process.env.TMPDIR, 'a', '..', 'snaps é');
      const results = [true, false].map((jpeg) => {
        const snap = kiv.getScreenSnap('display', jpeg, folder);
        const bytes = fs.readFileSync(snap.ScreenFullPath);
        return { keys: Object.keys(snap), folder: path.dirname(snap.ScreenFullPath),
          name: path.basename(snap.ScreenFullPath), thumbnail: path.basename(snap.ThumbnailFullPath),
          hash: crypto.createHash('sha256').update(bytes).digest('hex') === snap.screen_hash,
          thumbnailSize: fs.statSync(snap.ThumbnailFullPath).size > 0, signature: bytes.toString('hex', 0, 2) };
      });
      fs.writeFileSync(path.join(process.env.TMPDIR, 'file'), '');
      const fallbacks = {
        empty: Object.keys(kiv.getScreenSnap('desktop', true, '')),
        // A folder beneath a file cannot be made, so the write fails.
        failing: Object.keys(kiv.getScreenSnap('desktop', true, path.join(process.env.TMPDIR, 'file', 'under'))),
      };
      process.chdir(process.env.TMPDIR);
      const named = kiv.getScreenSnap('desktop', true, undefined);
      report({ results, fallbacks, expected: path.join(process.env.TMPDIR, 'snaps é'),
        undefined: path.basename(path.dirname(named.ScreenFullPath)) });
      fs.rmdirSync(path.dirname(named.ScreenFullPath), { recursive: true });
      kiv.teardown();
    });
    json.results.forEach((result, i) => {
      const extension = ['.jpg', '.png'][i];
      assert.deepStrictEqual(result.keys, FILE_KEYS);
      assert.strictEqual(result.folder, json.expected);
      assert.match(result.name, new RegExp(`^Screen[0-9a-f-]{36}\\${extension}$`));
      assert.strictEqual(result.thumbnail, result.name.replace(extension, `_Thumbnail${extension}`));
      assert.ok(result.hash && result.thumbnailSize);
      assert.strictEqual(result.signature, ['ffd8', '8950'][i]);
    });
    assert.deepStrictEqual(json.fallbacks, { empty: BUFFER_KEYS, failing: BUFFER_KEYS });
    assert.strictEqual(json.undefined, 'undefined');
  });

  // Three of the four names come from a library that the case builds; the module looks once.
  const partial = (library, late) => {
    host.startLoop();
    kiv.init();
    const holder = { exports: {} };
    const { RTLD_NOW, RTLD_GLOBAL } = require('os').constants.dlopen;
    try { process.dlopen(holder, library, RTLD_NOW | RTLD_GLOBAL); } catch (error) { /* no module, but loaded */ }
    const fs = require('fs');
    const folder = fs.mkdtempSync(`${process.env.TMPDIR}/partial-`);
    const before = Object.keys(kiv.getScreenSnap('desktop', true, folder));
    if (late) host.loadUtilities();
    report({ before, after: Object.keys(kiv.getScreenSnap('desktop', true, folder)), files: fs.readdirSync(folder) });
    kiv.teardown();
  };
  const compile = (name, source) => {
    const { execFileSync } = require('child_process');
    const library = `${session.folder}/${name}.so`;
    execFileSync('g++', ['-shared', '-fPIC', '-x', 'c++', '-', '-o', library], { input: `#include <string>
      #include <cstdlib>
      #include <cstdint>
      extern "C" {${source}}` });
    return library;
  };

  test('without all four functions, and when one throws, the snapshot stays in memory', async () => {
    const three = compile('three', `
      void KivoUtilsCreateGUID(std::string&) { abort(); }
      void KivoUtilsNormalizeAndCreatePath(std::string&) { abort(); }
      void KivoUtilsCreateSHA256Hash(std::string&, const void*, uint64_t) { abort(); }`);
    const throwing = compile('throwing', `
      void KivoUtilsCreateGUID(std::string&) {}
      void KivoUtilsNormalizeAndCreatePath(std::string&) {}
      bool KivoUtilsWriteFile(const std::string&, const void*, uint64_t) { return true; }
      void KivoUtilsCreateSHA256Hash(std::string&, const void*, uint64_t) { throw 1; }`);
    for (const [library, late] of [['/nonexistent', true], [three, true], [throwing, false]]) {
      const { json, stderr } = await run(partial, { args: [library, late] });
      assert.ok(json, stderr);
      assert.deepStrictEqual(json, { before: BUFFER_KEYS, after: BUFFER_KEYS, files: [] }, library);
    }
  });

  test('without GTK: no picture, empty buffers, not a word', async () => {
    const { json, stderr } = await run(() => {
      kiv.setupLogger(() => {});
      kiv.init();
      const snap = kiv.getScreenSnap('display', true);
      report([snap.width, snap.height, snap.data.length, snap.dataThumbnail.length, snap.filename]);
      kiv.teardown();
    });
    assert.deepStrictEqual(json, [0, 0, 0, 0, '']);
    assert.strictEqual(stderr, '');
  });
});

// [screen, result with the limit, JPEG quality]
const SIZES = [
  ['3840x2160', [1920, 1080], 50],
  ['2560x1440', [1920, 1080], 50],
  ['1000x2000', [540, 1080], 50],
  ['5120x1440', [1920, 540], 50],
  ['1920x1080', [1920, 1080], 25],
  ['800x600', [800, 600], 25],
  ['32000x10', [0, 0], undefined],
];

for (const [screen, size, quality] of SIZES) {
  test(`${screen} becomes ${size.join(' x ')} at quality ${quality}`, async () => {
    const session = await startSession({ screens: [`${screen}x24`], wm: false, bus: false });
    try {
      const { json, stderr } = await runCase(() => {
        const { jpegInfo } = require('./images');
        host.startLoop();
        kiv.setupLogger(() => {});
        const snap = kiv.getScreenSnap('desktop', true);
        const look = (bytes) => (bytes.length > 0 ? jpegInfo(bytes) : null);
        report({ size: [snap.width, snap.height], image: look(snap.data), thumbnail: look(snap.dataThumbnail) });
      }, { env: session.env });
      assert.strictEqual(stderr, '');
      if (!quality) return assert.deepStrictEqual(json, { size, image: null, thumbnail: null });
      assert.deepStrictEqual(json, { size, image: { width: size[0], height: size[1], quality },
        thumbnail: { width: 620, height: 320, quality } });
    } finally {
      await session.stop();
    }
  });
}

test('two monitors: the display is the active window\'s, the whole desktop without one', { skip: need('Xorg') }, async () => {
  const monitors = [{ width: 800, height: 600 }, { width: 1024, height: 768, x: 800 }];
  const session = await startSession({ monitors });
  try {
    const { json } = await runCase(async () => {
      const { activeWindow, forgetActiveWindow } = require('./windows');
      const { decodePng, pixelAt } = require('./images');
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
      forgetActiveWindow();
      const sizes = [];
      const snap = () => {
        const { width, height, data } = kiv.getScreenSnap('display');
        sizes.push([width, height]);
        return decodePng(data);
      };
      snap();
      const window = await activeWindow({ title: 'right', x: 900, y: 100 });
      const picture = snap();
      const { x, y } = window.client.geometry(window.id);
      const inside = pixelAt(picture, x - 800 + 20, y + 20);
      window.client.moveResize(window.id, 100, 100, 300, 200);
      await until(() => window.client.geometry(window.id).x < 500, { what: 'the move' });
      snap();
      report({ sizes, inside });
      window.close();
      kiv.teardown();
    }, { env: session.env });
    assert.deepStrictEqual(json, { sizes: [[1824, 768], [1024, 768], [800, 600]], inside: [0x33, 0x66, 0x99] });
  } finally {
    await session.stop();
  }
});
