'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const { describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { lacking } = require('./lib/processes');
const { useSession } = require('./lib/session');

const TEXTS = 'width,height,activeWindowTitle,activeProcessName,filename';
const IN_MEMORY = `data,dataThumbnail,${TEXTS}`;
const IN_FILES = `ScreenFullPath,ThumbnailFullPath,screen_hash,${TEXTS}`;
const snap = (app, ...args) => app.run((...given) => kiv.getScreenSnap(...given), ...args);
const keysOf = (object) => String(Object.keys(object));
const size = ({ width, height }) => `${width}x${height}`;
// Screens; the size and quality of their JPEG.
const LIMITS = [
  ['1920x1080', '1920x1080', 25],
  ['5120x1440', '1920x540', 50],
  ['1000x2000', '540x1080', 50],
  ['32000x10', '0x0'],
];

const shared = useSession({ screens: LIMITS.map(([screen]) => screen) });
const inApp = (title, options, f) => test(title, () => shared.withApp(f, options));

const FORMAT = ['-format', '%wx%h %Q', '-'];
const identify = (input) => `${execFileSync('identify', FORMAT, { input })}`;
const skip = lacking('identify');
for (const [i, [screen, limited, quality]] of LIMITS.entries()) {
  test(`the size limit turns ${screen} into ${limited}`, { skip }, async () => {
    const env = { DISPLAY: `${shared.env.DISPLAY}.${i}` };
    const seen = await shared.withApp((app) => snap(app, 'desktop', true), { env });
    const pictures = [seen.data, seen.dataThumbnail].filter(({ length }) => length > 0);
    const wanted = quality ? [`${limited} ${quality}`, `620x320 ${quality}`] : [];
    assert.deepStrictEqual([size(seen), ...pictures.map(identify)], [limited, ...wanted]);
  });
}

inApp('unknown types and failing conversions throw', {}, async (app) => {
  const thrown = await app.run(() => {
    host.loadUtilities();
    const rows = [['Desktop'], ['desktop\0'], [Symbol()]];
    const seen = rows.map((row) => attempt(kiv.getScreenSnapAsync, ...row));
    rows.push(['desktop', true, Symbol()]);
    return [...seen, ...rows.map((row) => attempt(kiv.getScreenSnap, ...row))];
  });
  const symbol = 'Cannot convert a Symbol value to a string';
  const either = 'Invalid snap type. Pass either "desktop", or "display".';
  const one = 'Invalid snap type. Pass one of "desktop", "display" or "selection".';
  assert.deepStrictEqual(thrown, [one, one, symbol, either, either, symbol, symbol]);
});

inApp("the host's functions save two files and return the picture's hash", {}, async (app) => {
  await app.run(() => host.loadUtilities());
  // Pictures that are too large for one chunk of memory.
  const id = shared.x.createWindow({ override: true });
  shared.x.map(id);
  shared.x.draw(id, 300, 200, crypto.randomBytes(240000));
  const seen = await snap(app, 'display', false, `${shared.inside('a')}/../snaps é`);
  const names = [seen.ScreenFullPath, seen.ThumbnailFullPath];
  assert.match(String(names), /(.*\/snaps é\/Screen[0-9a-f-]{36})\.png,\1_Thumbnail\.png$/);
  const files = names.map((name) => fs.readFileSync(name));
  const hash = crypto.createHash('sha256').update(files[0]).digest('hex');
  assert.deepStrictEqual([keysOf(seen), seen.screen_hash], [IN_FILES, hash]);
  const sizes = files.map((file) => size(PNG.sync.read(file)));
  assert.deepStrictEqual(sizes, ['1920x1080', '620x320']);
  assert.strictEqual(keysOf(await snap(app, 'desktop', true, '')), IN_MEMORY);
});

const input = `#include <string>
  extern "C" {
  void KivoUtilsCreateGUID(std::string& id) { id = "one"; }
  void KivoUtilsNormalizeAndCreatePath(std::string&) {}
  bool KivoUtilsWriteFile(const std::string& name, const void*, size_t) {
    return WRITTEN || name != "/Screenone.jpg";
  }
  void HASH(std::string&, const void*, size_t) { if (WRITTEN) throw 1; }
  }`;
for (const [what, written, hash] of [
  ['a host function is missing', 1, 'Other'],
  ['a host function throws', 1, 'KivoUtilsCreateSHA256Hash'],
  ['the picture cannot be written', 0, 'KivoUtilsCreateSHA256Hash'],
]) {
  inApp(`the snapshot stays in memory when ${what}`, {}, async (app) => {
    const file = shared.inside(`${what}.so`);
    const flags = [`-DWRITTEN=${written}`, `-DHASH=${hash}`, '-x', 'c++', '-', '-o', file];
    execFileSync('g++', ['-shared', '-fPIC', '-Wl,-z,nodelete', ...flags], { input });
    // Fails, because it is not a Node module, but the library stays loaded.
    await app.run((name) => attempt(process.dlopen, { exports: {} }, name, 0x102), file);
    assert.strictEqual(keysOf(await snap(app, 'desktop', true, '/')), IN_MEMORY);
  });
}

const completions = 'asynchronous snapshots call back once, in order, and throw what that throws';
inApp(completions, {}, async (app) => {
  const seen = await app.run(() => {
    const seen = [];
    function done(result, ...more) {
      seen.push(more.length, this === global, String(Object.keys(result)));
      seen.push(result.data.readUInt32BE(20), result.errorCode);
      // Accepted, because these types do not take the guard.
      kiv.getScreenSnapAsync('display', () => seen.push('inner'));
      throw new Error('mine');
    }
    seen.push(attempt(kiv.getScreenSnapAsync, 'desktop', done));
    return [...seen, attempt(kiv.getScreenSnapAsync, 'desktop', {})];
  });
  const keys = `${TEXTS},data,dataThumbnail,errorCode`;
  assert.deepStrictEqual(seen, [0, true, keys, 1080, 0, 'inner', 'mine', null]);
});

describe('two monitors', { skip: lacking('Xorg', 'xrandr') }, () => {
  const right = { width: 1024, height: 768, x: 800 };
  const monitors = [{ width: 800, height: 600 }, right];
  const env = { XDG_SESSION_TYPE: undefined };
  const on = useSession({ monitors, wm: 'openbox', env });
  const title = "without a session type, the display is the active window's monitor or the desktop";
  const look = async (app) => {
    await on.x.deleteProperty(on.x.root, '_NET_ACTIVE_WINDOW');
    assert.strictEqual(size(await snap(app, 'display')), '1824x768');
    await on.x.activeWindow({ x: 900, y: 100 });
    const seen = PNG.sync.read((await snap(app, 'display')).data);
    assert.strictEqual(size(seen), '1024x768');
    assert.strictEqual(seen.data.readUIntBE(4 * (200 * 1024 + 200), 3), 0x336699);
  };
  test(title, () => on.withApp(look));
});
