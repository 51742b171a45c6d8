'use strict';

const fs = require('fs');
const { Variant } = require('dbus-next');
const { lacking, start, until } = require('./processes');
const { startServed } = require('./session');
const { openDisplay } = require('./x');

const KWIN = '/usr/bin/kwin_wayland';
/** For a test's `skip`. */
const lackingKwin = () =>
  lacking(KWIN, 'Xwayland') ||
  (fs.readFileSync(KWIN).includes('libQt6') && 'KWin 6 has no org.kde.kwin.Screenshot');

async function startGnomeShell({ env, inside, peer }, launch) {
  const settings = `[org/gnome/desktop/background]\npicture-options='none'\nprimary-color='#3465a4'
[org/gnome/desktop/notifications]\nshow-banners=false\n`;
  fs.mkdirSync(inside('home/.config/glib-2.0/settings'), { recursive: true });
  fs.writeFileSync(inside('home/.config/glib-2.0/settings/keyfile'), settings);
  Object.assign(env, { XDG_CURRENT_DESKTOP: 'GNOME', GSETTINGS_BACKEND: 'keyfile' });
  // Unsafe: whoever asks gets a picture.
  const mode = ['--headless', '--wayland', '--unsafe-mode', '--virtual-monitor', '1280x720'];
  const shell = launch('gnome-shell', mode);
  await shell.ready(() => /GNOME Shell started at/.test(shell.output()), 'a shell');
  const ask = (...rest) =>
    peer.call('org.gnome.Shell', '/org/gnome/Shell', 'org.freedesktop.DBus.Properties', ...rest);
  const active = ['org.gnome.Shell', 'OverviewActive'];
  await ask('Set', 'ssv', [...active, new Variant('b', false)]);
  await until(async () => !(await ask('Get', 'ss', active))[0].value, 'no overview');
  env.DISPLAY = /using public X11 display (:\d+)/i.exec(shell.output())[1];
  const authority = fs.readdirSync(inside('run')).find((name) => /^\.mutter-Xwayl/.test(name));
  env.XAUTHORITY = inside(`run/${authority}`);
}

async function startKwin({ env, inside, peer }, launch) {
  // A copy has no file capabilities, which a container may forbid.
  fs.copyFileSync(KWIN, inside('kwin_wayland'));
  const script = `#!/bin/sh\necho "$DISPLAY $XAUTHORITY" >'${inside('told')}'\n`;
  fs.writeFileSync(inside('tell'), script, { mode: 0o755 });
  Object.assign(env, { XDG_CURRENT_DESKTOP: 'KDE', KWIN_SCREENSHOT_NO_PERMISSION_CHECKS: '1' });
  const size = ['--width', '1280', '--height', '720'];
  const rest = ['--no-global-shortcuts', inside('tell')];
  const kwin = launch(inside('kwin_wayland'), ['--virtual', ...size, '--xwayland', ...rest]);
  const told = () =>
    fs.existsSync(inside('told')) && /(.+) (.*)\n/.exec(fs.readFileSync(inside('told'), 'utf8'));
  [, env.DISPLAY, env.XAUTHORITY] = await kwin.ready(told, 'a display');
  const offers = () =>
    peer
      .call('org.kde.KWin', '/Screenshot', 'org.freedesktop.DBus.Introspectable', 'Introspect')
      .then(([text]) => text.includes('screenshotFullscreen'))
      .catch(() => false);
  await kwin.ready(offers, 'the screenshot service');
}

const WAYLAND = { XDG_SESSION_TYPE: 'wayland', LIBGL_ALWAYS_SOFTWARE: '1' };
/** A Wayland session without a screen, 1280x720; `starter` is one of the two above. */
function startCompositor(starter) {
  // Compositors start Xwayland in a folder of this mode only.
  fs.mkdirSync('/tmp/.X11-unix', { recursive: true });
  if (process.getuid() === 0) fs.chmodSync('/tmp/.X11-unix', 0o1777);
  // More than one attempt, since GNOME Shell now and then hangs while starting.
  return startServed({ display: false, env: WAYLAND }, async (session) => {
    const { env, stops } = session;
    await starter(session, (command, args) => {
      const compositor = start('setsid', [command, ...args], { env });
      stops.push(async () => {
        await compositor.stop(2000);
        try {
          process.kill(-compositor.pid, 'SIGKILL');
        } catch (_) {} // nobody is left
      });
      return compositor;
    });
    process.env.XAUTHORITY = env.XAUTHORITY;
    session.x = await openDisplay(env.DISPLAY);
    stops.push(async () => session.x.close());
  });
}

module.exports = { lackingKwin, startCompositor, startGnomeShell, startKwin };
