'use strict';

const { spawnSync } = require('child_process');
const fs = require('fs');
const { Variant } = require('dbus-next');
const { lacking, start } = require('./processes');
const { startServed } = require('./session');
const { openDisplay } = require('./x');

const KWIN = '/usr/bin/kwin_wayland';
/** For a test's `skip`. */
const lackingKwin = () =>
  lacking(KWIN, 'Xwayland') ||
  (fs.readFileSync(KWIN).includes('libQt6') && 'KWin 6 has no org.kde.kwin.Screenshot');

async function startGnomeShell({ env, inside, peer }, launch) {
  // Unsafe: whoever asks gets a picture.
  const mode = ['--headless', '--wayland', '--unsafe-mode', '--virtual-monitor', '1280x720'];
  const shell = launch('gnome-shell', mode);
  await shell.ready(() => /GNOME Shell started at/.test(shell.output()), 'a shell');
  const SET = ['org.gnome.Shell', '/org/gnome/Shell', 'org.freedesktop.DBus.Properties', 'Set'];
  await peer.call(...SET, 'ssv', ['org.gnome.Shell', 'OverviewActive', new Variant('b', false)]);
  env.DISPLAY = /using public X11 display (:\d+)/i.exec(shell.output())[1];
  const authority = fs.readdirSync(inside('run')).find((name) => /^\.mutter-Xwayl/.test(name));
  env.XAUTHORITY = inside(`run/${authority}`);
}

async function startKwin({ env, inside, peer }, launch) {
  // A copy has no file capabilities, which a container may forbid.
  fs.copyFileSync(KWIN, inside('kwin_wayland'));
  fs.writeFileSync(inside('say'), '#!/bin/sh\necho at $DISPLAY $XAUTHORITY. >&2', { mode: 0o755 });
  env.KWIN_SCREENSHOT_NO_PERMISSION_CHECKS = '1';
  const size = ['--width', '1280', '--height', '720'];
  const kwin = launch(inside('kwin_wayland'), ['--virtual', ...size, '--xwayland', inside('say')]);
  const told = () => /^at (.+) (.*)\.$/m.exec(kwin.output());
  [, env.DISPLAY, env.XAUTHORITY] = await kwin.ready(told, 'a display');
  const INTROSPECT = ['/Screenshot', 'org.freedesktop.DBus.Introspectable', 'Introspect'];
  const said = () => peer.call('org.kde.KWin', ...INTROSPECT).then(String, String);
  await kwin.ready(async () => (await said()).includes('screenshotFullscreen'), 'its service');
}

/** A Wayland session without a screen, 1280x720; `starter` is one of the two above. */
function startCompositor(starter) {
  // Compositors start Xwayland in a folder of this mode only.
  fs.mkdirSync('/tmp/.X11-unix', { recursive: true });
  if (process.getuid() === 0) fs.chmodSync('/tmp/.X11-unix', 0o1777);
  const env = { XDG_SESSION_TYPE: 'wayland', LIBGL_ALWAYS_SOFTWARE: '1' };
  // More than one attempt, since GNOME Shell now and then hangs while starting.
  return startServed({ display: false, env }, async (session) => {
    await starter(session, (command, args) => {
      const compositor = start('setsid', [command, ...args], { env: session.env });
      // Last what it has started itself.
      session.stops.push(async () => spawnSync('kill', ['-KILL', '--', `-${compositor.pid}`]));
      session.stops.push(() => compositor.stop());
      return compositor;
    });
    process.env.XAUTHORITY = session.env.XAUTHORITY || '';
    session.x = await openDisplay(session.env.DISPLAY);
    session.stops.push(async () => session.x.close());
  });
}

module.exports = { lackingKwin, startCompositor, startGnomeShell, startKwin };
