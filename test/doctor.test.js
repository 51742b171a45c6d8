'use strict';

const { doesNotMatch, match } = require('node:assert');
const { test } = require('node:test');
const { BUILD, NODE, ROOT, start } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ wm: 'openbox' });
const own = { skip: BUILD !== `${ROOT}/build/Release` && 'not the build that it looks at' };
async function doctor(options, more) {
  const env = { ...shared.env, HOME: '/home/alice', ...more };
  const started = start(NODE, [`${ROOT}/bin/kiv_native.js`, 'doctor', ...options], { env });
  return `${(await started.finished()).code} ${started.output()}`;
}
async function report(env, wanted) {
  const text = await doctor(['--json'], env);
  doesNotMatch(text, /alice|rabbit|\//, 'of the person');
  match(text.replace(/\s/g, ''), wanted);
}
// As GNOME Shell does: the area, the caller, the file, and only then a picture.
const quark = 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code';
const file = (name) => (name.startsWith('/dev/null/') ? `${quark}4` : 'a.picture');
const shell = (refusal, body) => (body[2] < 1 ? `${quark}19` : refusal || file(body[5]));

test('doctor sees X11, what lacks, and whom a compositor refuses; no picture', own, async () => {
  await shared.x.activeWindow({ title: 'white\x1b[1m rabbit' });
  match(await doctor([]), /^0 Screenshots: work through X11\n(.*\n)*.*“white \[1m rabbit”/);
  const none = { DISPLAY: undefined, DBUS_SESSION_BUS_ADDRESS: undefined };
  await report(none, /^1.*"reason":"display".*"set":false.*"known":false,"answers":false/);
  await report({ WAYLAND_DISPLAY: 'w' }, /^1.*"reason":"sessiontype".*"width":1280/);
  match(await doctor(['--jsn']), /^2 usage/);
  const names = ['gnome.Shell.Screenshot', 'kde.KWin', 'freedesktop.ScreenSaver'];
  for (const name of names) await shared.peer.own(`org.${name}`);
  const denied = 'org.freedesktop.DBus.Error.AccessDenied';
  const kwin = (name) => ({ error: `org.kde.kwin.Screenshot.Error.${name}` });
  const signals = '"org.gnome.ScreenSaver":false,"org.freedesktop.ScreenSaver":true';
  for (const [refusal, answer, code, seen] of [
    [denied, kwin('NoAuthorized'), '1.*"portalun', 'refused","kwin":"refused'],
    [denied, kwin('InvalidScreen'), '0.*"kwin', 'refused","kwin":"allowed'],
    ['', 'hang', '0.*"gnome', 'allowed","kwin":"timeout'],
  ]) {
    const ScreenshotArea = ({ body }) => ({ error: shell(refusal, body) });
    const screenshotScreen = ({ body }) => body[0] < 0 && answer; // else a picture
    shared.peer.answer({ ScreenshotArea, screenshotScreen });
    const wanted = new RegExp(`^${code}.*${signals}.*"gnome":"${seen}`);
    await report({ XDG_SESSION_TYPE: 'wayland' }, wanted);
  }
});
