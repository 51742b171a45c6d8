'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const { describe, test } = require('node:test');
const { need } = require('./helpers/need');
const { inSession, look, share, withHost } = require('./helpers/suite');

/* global activeWindow, client, log */
const TEXTS = ['width', 'height', 'activeWindowTitle', 'activeProcessName', 'filename'];
const BUFFER_KEYS = ['data', 'dataThumbnail', ...TEXTS];
const FILE_KEYS = ['ScreenFullPath', 'ThumbnailFullPath', 'screen_hash', ...TEXTS];

describe('on one screen', () => {
  const shared = share();

  test('a PNG holds exactly the pixels that were painted', async () => {
    assert.deepStrictEqual(await shared.hosted(() => {
      const { decodePng, pixelAt } = require('./images');
      const [left, top, columns, rows] = [101, 57, 331, 203];
      const id = client.createWindow({ x: left, y: top, width: columns, height: rows, overrideRedirect: true });
      client.map(id);
      const bytes = Buffer.alloc(columns * rows * 4);
      for (let i = 0; i < bytes.length; ++i) bytes[i] = (i * 2654435761) >>> 24;
      client.drawImage(id, 0, 0, columns, rows, bytes);
      const snap = kiv.getScreenSnap('desktop');
      const picture = decodePng(snap.data);
      let wrong = 0;
      for (let i = 0; i < columns * rows; ++i) {
        const wanted = [...bytes.slice(4 * i, 4 * i + 3)].reverse();
        const there = pixelAt(picture, left + (i % columns), top + Math.floor(i / columns));
        if (String(there) !== String(wanted)) ++wrong;
      }
      const thumbnail = decodePng(snap.dataThumbnail);
      report({ keys: Object.keys(snap), wrong, size: [picture.width, picture.height, snap.width, snap.height],
        thumbnail: [thumbnail.width, thumbnail.height], filename: snap.filename });
    }), { keys: BUFFER_KEYS, wrong: 0, size: [1280, 800, 1280, 800], thumbnail: [620, 320], filename: 'screen.png' });
  });

  test('GDK forgets windows that were active once when they are gone', async () => {
    assert.deepStrictEqual(await shared.look(async () => {
      const { activeWindow } = require('./windows');
      // Has to be there before GTK is.
      const census = require(require('path').resolve('build', process.env.KIV_BUILD, 'bench_soak.node'));
      census.countObjects();
      host.startLoop();
      kiv.init();
      const records = () => census.objects().GdkX11Window;
      const known = records();
      const seen = [];
      // All open together: the next client would get the ids of one that has left.
      const open = [];
      for (let i = 0; i < 3; ++i) {
        open.push(await activeWindow({ title: `window ${i}` }));
        seen.push([kiv.getScreenSnap('display', true).activeWindowTitle, records() - known]);
      }
      for (const { close } of open) close();
      await until(() => records() === known, { what: 'GDK without the windows' });
      report(seen);
      kiv.teardown();
    }), [['window 0', 1], ['window 1', 2], ['window 2', 3]]);
  });

  test('unknown types and failing conversions throw, and nothing is captured', async () => {
    const invalid = 'Error: Invalid snap type. Pass either "desktop", or "display".';
    assert.deepStrictEqual(await shared.hosted(() => {
      const thrown = (...args) => {
        try { return kiv.getScreenSnap(...args); } catch (error) { return `${error.name}: ${error.message}`; }
      };
      host.loadUtilities();
      const bad = { toString() { throw new RangeError('mine'); } };
      // Every capture of this screen logs a line, since no window is active.
      report([thrown('Desktop'), thrown(), thrown('selection'), thrown(bad), thrown('desktop', true, bad), ...log]);
    }), [invalid, invalid, invalid, 'RangeError: mine', 'RangeError: mine']);
  });

  test('saved through the host: two files, their names and the hash', async () => {
    const { results, kept, folder, named } = await shared.hosted(() => {
      const crypto = require('crypto');
      const fs = require('fs');
      const path = require('path');
      host.loadUtilities();
      const inTmp = (...names) => path.join(process.env.TMPDIR, ...names);
      const saved = [true, false].map((jpeg) => {
        const snap = kiv.getScreenSnap('display', jpeg, `${inTmp('a')}/../snaps é`);
        const bytes = fs.readFileSync(snap.ScreenFullPath);
        return { keys: Object.keys(snap), files: [snap.ScreenFullPath, snap.ThumbnailFullPath],
          hash: crypto.createHash('sha256').update(bytes).digest('hex') === snap.screen_hash,
          begins: [bytes, fs.readFileSync(snap.ThumbnailFullPath)].map((file) => file.toString('hex', 0, 2)) };
      });
      fs.writeFileSync(inTmp('file'), '');
      // A folder beneath a file cannot be made, so the write fails.
      const snaps = ['', inTmp('file', 'under')].map((name) => kiv.getScreenSnap('desktop', true, name));
      process.chdir(process.env.TMPDIR);
      const { ScreenFullPath } = kiv.getScreenSnap('desktop', true, undefined);
      report({ results: saved, folder: inTmp('snaps é'), named: path.basename(path.dirname(ScreenFullPath)),
        kept: snaps.map(({ data, ...rest }) => [Object.keys(rest).length, data.toString('hex', 0, 2)]) });
    });
    results.forEach(({ keys, files, hash, begins }, i) => {
      const [extension, signature] = [['.jpg', 'ffd8'], ['.png', '8950']][i];
      const [, stem] = /^(.*\/Screen[0-9a-f-]{36})\....$/.exec(files[0]);
      assert.ok(stem.startsWith(`${folder}/Screen`), stem);
      assert.deepStrictEqual({ keys, files, hash, begins }, { keys: FILE_KEYS, hash: true,
        files: [`${stem}${extension}`, `${stem}_Thumbnail${extension}`], begins: [signature, signature] });
    });
    // Nothing of the saved pictures is left in front of the next ones.
    assert.deepStrictEqual(kept, Array(2).fill([BUFFER_KEYS.length - 1, 'ffd8']));
    assert.strictEqual(named, 'undefined');
  });

  // Libraries in place of the host's; the module looks once.
  const LIBRARIES = {
    none: '',
    throwing: `#include <string>
      extern "C" {
      void KivoUtilsCreateGUID(std::string&) {}
      void KivoUtilsNormalizeAndCreatePath(std::string&) {}
      bool KivoUtilsWriteFile(const std::string&, const void*, size_t) { return true; }
      void KivoUtilsCreateSHA256Hash(std::string&, const void*, size_t) { throw 1; }
      }`,
  };
  for (const [name, input] of Object.entries(LIBRARIES)) {
    test(`with ${name} of the host's functions the snapshot stays in memory`, async () => {
      const library = `${shared.session.folder}/${name}.so`;
      execFileSync('g++', ['-shared', '-fPIC', '-x', 'c++', '-', '-o', library], { input });
      assert.deepStrictEqual(await shared.hosted((file) => {
        const { RTLD_NOW, RTLD_GLOBAL } = require('os').constants.dlopen;
        // It is no module, but loaded then.
        try { process.dlopen({ exports: {} }, file, RTLD_NOW | RTLD_GLOBAL); } catch (error) { /* as expected */ }
        const snap = () => Object.keys(kiv.getScreenSnap('desktop', true, process.env.TMPDIR));
        const before = snap();
        if (file.includes('none')) host.loadUtilities();
        report([before, snap()]);
      }, { args: [library] }), [BUFFER_KEYS, BUFFER_KEYS]);
    });
  }

  test('without GTK: no picture, empty buffers, not a word', async () => {
    const { json, stderr } = await shared.run(() => {
      kiv.setupLogger(() => {});
      const snap = kiv.getScreenSnap('display', true);
      report([snap.width, snap.height, snap.data.length, snap.dataThumbnail.length, snap.filename]);
    });
    assert.deepStrictEqual([json, stderr], [[0, 0, 0, 0, ''], '']);
  });
});

// Screen, result with the limit, JPEG quality.
for (const [screen, width, height, quality] of [
  ['5120x1440', 1920, 540, 50], ['1000x2000', 540, 1080, 50], ['1920x1080', 1920, 1080, 25], ['32000x10', 0, 0, null],
]) {
  test(`${screen} becomes ${width} x ${height} at quality ${quality}`, () =>
    inSession({ screens: [`${screen}x24`], wm: false, bus: false }, async ({ env }) => {
      const picture = quality && { quality, width, height };
      assert.deepStrictEqual(await look(withHost(() => {
        const { jpegInfo } = require('./images');
        const snap = kiv.getScreenSnap('desktop', true);
        const describe = (bytes) => (bytes.length > 0 ? jpegInfo(bytes) : null);
        report([snap.width, snap.height, describe(snap.data), describe(snap.dataThumbnail)]);
      }), { env }), [width, height, picture, picture && { ...picture, width: 620, height: 320 }]);
    }));
}

const MONITORS = [{ width: 800, height: 600 }, { width: 1024, height: 768, x: 800 }];
test('two monitors: the display is the active window\'s, the whole desktop without one', { skip: need('Xorg') }, () =>
  inSession({ monitors: MONITORS }, async ({ env }) => {
    assert.deepStrictEqual(await look(withHost(async () => {
      const { decodePng, pixelAt } = require('./images');
      require('./windows').forgetActiveWindow();
      const sizes = [];
      const snap = () => {
        const { width, height, data } = kiv.getScreenSnap('display');
        sizes.push([width, height]);
        return decodePng(data);
      };
      snap();
      const window = await activeWindow({ x: 900, y: 100 });
      const picture = snap();
      const { x, y } = client.geometry(window.id);
      client.moveResize(window.id, 100, 100, 300, 200);
      await until(() => client.geometry(window.id).x < 500, { what: 'the move' });
      snap();
      window.close();
      internals.xOpen(process.env.DISPLAY);
      report({ sizes, inside: pixelAt(picture, x - 800 + 20, y + 20), screens: internals.xScreens() });
    }), { env }), { sizes: [[1824, 768], [1024, 768], [800, 600]], inside: [0x33, 0x66, 0x99],
      screens: [[0, 0, 800, 600], [800, 0, 1024, 768]] });
  }));
