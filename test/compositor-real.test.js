'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { describe, test } = require('node:test');
const { GNOME_BACKGROUND, needKwin, startCompositor } = require('./helpers/compositors');
const { need } = require('./helpers/need');
const { NODE } = require('./helpers/processes');
const { share } = require('./helpers/suite');
const { until } = require('./helpers/until');

/* global client, log, openSelection, settle */
const COLOR = [0xc0, 0x20, 0x80];

// One capture of each type with a window on the screen, as a caller whom the compositor trusts.
const capture = async (points, own, color) => {
  const { decodePng, jpegInfo, pixelAt } = require('./images');
  if (own) {
    bus.connect();
    bus.own(own);
  }
  client.map(client.createWindow({ overrideRedirect: true, x: 200, y: 100, width: 300, height: 200, color: 0xc02080 }));
  const { size, at, thumbnail } = await until(() => {
    const { data, dataThumbnail, width, height } = kiv.getScreenSnap('desktop');
    if (data.length === 0) throw new Error(log.join('\n'));
    const seen = points.map(([x, y]) => pixelAt(decodePng(data), x, y));
    return String(seen[0]) === String(color) && { size: [width, height], at: seen, thumbnail: decodePng(dataThumbnail) };
  }, { what: 'the window in a picture' });
  const jpeg = jpegInfo(kiv.getScreenSnap('display', true).data);
  report({ size, at, jpeg, thumbnail: [thumbnail.width, thumbnail.height],
    files: require('fs').readdirSync(process.env.TMPDIR), errors: log.filter((line) => line.startsWith('error')) });
};
const captured = (width, height, quality, at) => ({ size: [width, height], at, jpeg: { width, height, quality },
  thumbnail: [620, 320], files: [], errors: [] });

const refuse = () => {
  const { width, height, data } = kiv.getScreenSnap('display');
  report([width, height, data.length, ...log.filter((line) => line.startsWith('error'))]);
};
const refused = (reason) => [0, 0, 0, `error DBUS Screenshot: GDBus.Error:${reason}`];

describe('GNOME Shell', { skip: need('gnome-shell', 'Xwayland', 'gdbus') }, () => {
  const shared = share('gnome', startCompositor);

  test('a stranger gets a log line and no picture, the owner of a trusted name the desktop', async () => {
    assert.deepStrictEqual(await shared.hosted(refuse),
      refused('org.freedesktop.DBus.Error.AccessDenied: Screenshot is not allowed'));
    // The window's corners, and a place beyond its shadow.
    const args = [[[350, 200], [200, 100], [499, 299], [1000, 600]], 'org.gnome.Screenshot', COLOR];
    assert.deepStrictEqual(await shared.hosted(capture, { args }),
      captured(1280, 720, 25, [COLOR, COLOR, COLOR, GNOME_BACKGROUND]));
  });
});

describe('KWin', { skip: needKwin('Xwayland', 'kbuildsycoca5', 'gdbus') }, () => {
  const shared = share('kwin', (kind) => startCompositor(kind, { size: '2560x1440' }));

  test('a stranger gets a log line and no picture, a program with the right .desktop file the desktop', async () => {
    const { env } = shared.session;
    assert.deepStrictEqual(await shared.hosted(refuse),
      refused('org.kde.kwin.Screenshot.Error.NoAuthorized: The process is not authorized to take a screenshot'));
    const folder = path.join(env.HOME, '.local', 'share', 'applications');
    fs.mkdirSync(folder, { recursive: true });
    fs.writeFileSync(path.join(folder, 'kiv-test.desktop'), `[Desktop Entry]
Type=Application
Name=Test
Exec=${fs.realpathSync(NODE)}
X-KDE-DBUS-Restricted-Interfaces=org.kde.kwin.Screenshot
`);
    execFileSync('kbuildsycoca5', [], { env, timeout: 20000, stdio: 'pipe' });
    // KWin notices the new entry after a while.
    await until(async () => (await shared.hosted(refuse))[0] > 0, { what: 'KWin to let the program in' });
    assert.deepStrictEqual(await shared.hosted(capture, { args: [[[255, 135], [1500, 900]], null, COLOR] }),
      captured(1920, 1080, 50, [COLOR, [0, 0, 0]]));

    // One screen, in its own size, behind the overlay.
    assert.deepStrictEqual(await shared.hosted(async () => {
      const selection = await openSelection(client);
      const { width, height } = client.geometry(selection.id);
      kiv.teardown();
      report([width, height, ...await settle(selection), ...require('fs').readdirSync(process.env.TMPDIR)]);
    }), [2560, 1440, [102003, 0, 0, false]]);
  });
});
