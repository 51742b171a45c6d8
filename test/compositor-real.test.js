'use strict';

const assert = require('assert');
const { execFile } = require('child_process');
const fs = require('fs');
const path = require('path');
const { after, before, describe, test } = require('node:test');
const { promisify } = require('util');
const { runCase } = require('./helpers/case');
const { GNOME_BACKGROUND, KWIN, startCompositor } = require('./helpers/compositors');
const { need } = require('./helpers/need');
const { until } = require('./helpers/until');

const WINDOW = { x: 200, y: 100, width: 300, height: 200, color: 0xc02080 };
const WINDOW_COLOR = [0xc0, 0x20, 0x80];

const leftovers = ({ env }) => fs.readdirSync(env.TMPDIR);

// Looks at one capture of each type with a window on the screen, as a caller the compositor trusts.
const look = async (window, points, own) => {
  const { decodePng, jpegInfo, pixelAt } = require('./images');
  host.startLoop();
  const log = [];
  kiv.setupLogger((level, text) => log.push(`${level} ${text}`));
  kiv.init();
  if (own) {
    bus.connect();
    bus.own(own);
  }
  const client = X.open(process.env.DISPLAY);
  client.map(client.createWindow(Object.assign({ overrideRedirect: true }, window)));
  client.sync();
  const colors = () => {
    const { data, width, height } = kiv.getScreenSnap('desktop');
    if (data.length === 0) return { failed: true };
    const picture = decodePng(data);
    return { width, height, at: points.map(([x, y]) => pixelAt(picture, x, y)) };
  };
  const inWindow = (color) => color.reduce((sum, part) => sum * 256 + part) === window.color;
  let seen = null;
  await until(() => (seen = colors()).failed || inWindow(seen.at[0]), { what: 'the window in a picture' });
  const display = kiv.getScreenSnap('display', true);
  const thumbnail = decodePng(kiv.getScreenSnap('desktop').dataThumbnail);
  report({ seen, jpeg: jpegInfo(display.data), thumbnail: [thumbnail.width, thumbnail.height],
    errors: log.filter((line) => line.startsWith('error')) });
  client.close();
  kiv.teardown();
};

const refuse = () => {
  host.startLoop();
  const log = [];
  kiv.setupLogger((level, text) => log.push(`${level} ${text}`));
  const { width, height, data } = kiv.getScreenSnap('display');
  report({ width, height, bytes: data.length, log: log.filter((line) => line.startsWith('error')) });
  kiv.teardown();
};

describe('GNOME Shell', { skip: need('gnome-shell', 'Xwayland', 'gdbus') }, () => {
  let session;
  before(async () => { session = await startCompositor('gnome'); });
  after(() => session && session.stop());

  test('a stranger gets a log line and no picture', async () => {
    const { json } = await runCase(refuse, { env: session.env });
    assert.deepStrictEqual(json, { width: 0, height: 0, bytes: 0, log: [
      'error DBUS Screenshot: GDBus.Error:org.freedesktop.DBus.Error.AccessDenied: Screenshot is not allowed'] });
    assert.deepStrictEqual(leftovers(session), []);
  });

  test('the owner of a trusted name gets the desktop', async () => {
    // The window's corners, and a place beyond its shadow.
    const points = [[350, 200], [200, 100], [499, 299], [1000, 600]];
    const { json, stderr } = await runCase(look, { env: session.env, args: [WINDOW, points, 'org.gnome.Screenshot'] });
    assert.ok(json, stderr);
    assert.deepStrictEqual(json.seen, { width: 1280, height: 720,
      at: [WINDOW_COLOR, WINDOW_COLOR, WINDOW_COLOR, GNOME_BACKGROUND] });
    assert.deepStrictEqual(json.jpeg, { width: 1280, height: 720, quality: 25 });
    assert.deepStrictEqual([json.thumbnail, json.errors], [[620, 320], []]);
    assert.deepStrictEqual(leftovers(session), []);
  });

  test('an area is dragged out; Escape cancels', async () => {
    const { json, stderr } = await runCase(async () => {
      const { decodePng, pixelAt } = require('./images');
      host.startLoop();
      const log = [];
      internals.setupLogger((level, text) => log.push(`${level} ${text}`));
      bus.connect();
      bus.own('org.gnome.Screenshot');
      const NAME = 'org.gnome.Mutter.RemoteDesktop';
      const remote = /'(.+)'/.exec(bus.call(NAME, '/org/gnome/Mutter/RemoteDesktop', NAME, 'CreateSession', '()'))[1];
      const send = (member, body) => bus.call(NAME, remote, `${NAME}.Session`, member, body);
      const move = (x, y) => send('NotifyPointerMotionRelative', `(${x}.0, ${y}.0)`);
      const button = (down) => send('NotifyPointerButton', `(272, ${down})`);
      send('Start', '()');
      const results = [];
      const select = () => internals.selectArea((result) => results.push(Object.assign(result,
        { guard: internals.guardIsFree(), alive: internals.selectionBackendAlive() })));
      // The shell takes input once its own grab is there, and offers no sign of it: act again after a
      // while. What came too often, or a grab before that still lingers, cancels the next selection,
      // which is then repeated.
      const once = async (act) => {
        const before = results.length;
        select();
        for (let i = 0; results.length === before && i < 10; ++i) {
          act();
          await until(() => results.length > before, { timeout: 1000 }).catch(() => {});
        }
        const { errorCode, width, height, data, guard, alive } = results[before];
        await until(() => !internals.selectionBackendAlive(), { what: 'the backend to be gone' });
        return { errorCode, width, height, data, during: [guard, alive], after: internals.guardIsFree() };
      };
      const selection = (wanted, act) => until(async () => {
        const result = await once(act);
        return result.errorCode === wanted && result;
      }, { timeout: 15000, what: `a selection that ends with ${wanted}` });
      const cancelled = await selection(102005, () => {
        for (const down of [true, false]) send('NotifyKeyboardKeysym', `(uint32 0xff1b, ${down})`);
      });
      const dragged = await selection(0, () => {
        // From a corner that has no edge actions.
        move(20000, 20000);
        move(-400, -300);
        button(true);
        move(-60, -30);
        move(-60, -30);
        button(false);
      });
      send('Stop', '()');
      const picture = decodePng(dragged.data);
      report({
        cancelled: Object.assign(cancelled, { data: cancelled.data.length }),
        dragged: Object.assign(dragged, { data: [picture.width, picture.height, ...pixelAt(picture, 30, 20)] }),
        log, completions: results.map(({ errorCode }) => `debug OnScreenSnapCompleted:${errorCode}:End`), files: require('fs').readdirSync(process.env.TMPDIR) });
    }, { env: session.env, timeout: 60000 });
    assert.ok(json, stderr);
    assert.deepStrictEqual(json.cancelled, { errorCode: 102005, width: 0, height: 0, data: 0,
      during: [false, true], after: true });
    const { width, height, data, ...rest } = json.dragged;
    assert.deepStrictEqual(rest, { errorCode: 0, during: [false, true], after: true });
    // The shell counts the last pixel in, or not, by version.
    assert.ok(Math.abs(width - 120) <= 1 && Math.abs(height - 60) <= 1, `${width} x ${height}`);
    assert.deepStrictEqual(data, [width, height, ...GNOME_BACKGROUND]);
    assert.deepStrictEqual([json.log, json.files], [json.completions, []]);
  });
});

describe('KWin', { skip: need(KWIN, 'Xwayland', 'kbuildsycoca5', 'gdbus') }, () => {
  let session;
  before(async () => { session = await startCompositor('kwin', { size: '2560x1440' }); });
  after(() => session && session.stop());

  test('a stranger gets a log line and no picture', async () => {
    const { json } = await runCase(refuse, { env: session.env });
    assert.deepStrictEqual(json, { width: 0, height: 0, bytes: 0, log: ['error DBUS Screenshot: GDBus.Error:'
      + 'org.kde.kwin.Screenshot.Error.NoAuthorized: The process is not authorized to take a screenshot'] });
  });

  test('a program with the right .desktop file gets the desktop', async () => {
    const folder = path.join(session.env.HOME, '.local', 'share', 'applications');
    fs.mkdirSync(folder, { recursive: true });
    fs.writeFileSync(path.join(folder, 'kiv-test.desktop'), `[Desktop Entry]
Type=Application
Name=Test
Exec=${fs.realpathSync(process.execPath)}
X-KDE-DBUS-Restricted-Interfaces=org.kde.kwin.Screenshot
`);
    await promisify(execFile)('kbuildsycoca5', [], { env: session.env, timeout: 20000 });
    // KWin notices the new entry after a while.
    await until(async () => (await runCase(refuse, { env: session.env })).json.width > 0, {
      what: 'KWin to let the program in', timeout: 30000 });

    const points = [[255, 135], [1500, 900]];
    const { json, stderr } = await runCase(look, { env: session.env, args: [WINDOW, points, null] });
    assert.ok(json, stderr);
    assert.deepStrictEqual(json.seen, { width: 1920, height: 1080, at: [WINDOW_COLOR, [0, 0, 0]] });
    assert.deepStrictEqual(json.jpeg, { width: 1920, height: 1080, quality: 50 });
    assert.deepStrictEqual([json.thumbnail, json.errors], [[620, 320], []]);
    assert.deepStrictEqual(leftovers(session), []);
  });

  test('one screen, in its own size; a selection does nothing', async () => {
    const { json, stderr } = await runCase(() => {
      host.startLoop();
      const files = () => require('fs').readdirSync(process.env.TMPDIR).length;
      const backend = internals.createBackend();
      const sizes = [internals.snapDisplay(), internals.snapDisplay()];
      const during = files();
      internals.dropBackend();
      const calls = [];
      internals.selectArea((result) => calls.push(result));
      report({ backend, sizes, files: [during, files()], calls, alive: internals.selectionBackendAlive() });
    }, { env: session.env });
    assert.ok(json, stderr);
    assert.deepStrictEqual(json, { backend: { name: 'plasma', selects: false },
      sizes: [[2560, 1440], [2560, 1440]], files: [2, 0], calls: [], alive: false });
  });
});
