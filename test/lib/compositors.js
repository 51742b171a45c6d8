'use strict';

const fs = require('fs');
const { Variant } = require('dbus-next');
const { connect } = require('./bus');
const { lacking, start, until } = require('./processes');
const { startBus, startSession } = require('./session');
const { openDisplay } = require('./x');

const GNOME_BACKGROUND = 0x3465a4;
const KWIN = '/usr/bin/kwin_wayland';
const SIZE = { width: 1280, height: 720 };

/** For a test's `skip`. */
const lackingKwin = () =>
  lacking(KWIN, 'Xwayland') ||
  (fs.readFileSync(KWIN).includes('libQt6') && 'KWin 6 has no org.kde.kwin.Screenshot');

// A shell that hangs while it starts a program leaves that half-made process behind.
const stopWithChildren = (compositor) => async () => {
  const file = `/proc/${compositor.pid}/task/${compositor.pid}/children`;
  const children = fs.existsSync(file) ? fs.readFileSync(file, 'utf8').match(/\d+/g) || [] : [];
  await compositor.stop(2000);
  const left = () => children.filter((pid) => fs.existsSync(`/proc/${pid}/exe`));
  await until(() => left().length === 0, 'its children to end', 3000).catch(() => {
    for (const pid of left()) process.kill(Number(pid), 'SIGKILL');
  });
};

async function startGnomeShell({ env, inside, peer, stops }) {
  fs.mkdirSync(inside('home/.config/glib-2.0/settings'), { recursive: true });
  fs.writeFileSync(
    inside('home/.config/glib-2.0/settings/keyfile'),
    `[org/gnome/desktop/background]\npicture-options='none'\nprimary-color='#${GNOME_BACKGROUND.toString(16)}'
[org/gnome/desktop/notifications]\nshow-banners=false\n[org/gnome/desktop/session]\nidle-delay=uint32 0\n`,
  );
  Object.assign(env, { XDG_CURRENT_DESKTOP: 'GNOME', GSETTINGS_BACKEND: 'keyfile' });
  // Unsafe: whoever asks gets a picture.
  const command = ['gnome-shell', '--headless', '--wayland', '--unsafe-mode', '--virtual-monitor'];
  command.push(`${SIZE.width}x${SIZE.height}`);
  const shell = start(command[0], command.slice(1), { env });
  stops.push(stopWithChildren(shell));
  await shell.ready(() => /GNOME Shell started at/.test(shell.output()), 'a shell');
  const SHELL = ['org.gnome.Shell', '/org/gnome/Shell', 'org.freedesktop.DBus.Properties'];
  const active = ['org.gnome.Shell', 'OverviewActive'];
  await peer.call(...SHELL, 'Set', 'ssv', [...active, new Variant('b', false)]);
  await until(
    async () => !(await peer.call(...SHELL, 'Get', 'ss', active))[0].value,
    'no overview',
  );
  env.DISPLAY = /using public X11 display (:\d+)/i.exec(shell.output())[1];
  env.WAYLAND_DISPLAY = /Wayland display name '(.+)'/.exec(shell.output())[1];
  const authority = fs.readdirSync(inside('run')).find((name) => /^\.mutter-Xwayl/.test(name));
  env.XAUTHORITY = inside(`run/${authority}`);
}

async function startKwin({ env, inside, peer, stops }) {
  // A copy has no file capabilities, which a container may forbid.
  fs.copyFileSync(KWIN, inside('kwin_wayland'));
  fs.writeFileSync(
    inside('tell'),
    `#!/bin/sh\necho "$DISPLAY $XAUTHORITY $WAYLAND_DISPLAY" >'${inside('told')}'\n`,
    { mode: 0o755 },
  );
  Object.assign(env, {
    XDG_CURRENT_DESKTOP: 'KDE',
    KDE_FULL_SESSION: 'true',
    KDE_SESSION_VERSION: '5',
  });
  env.KWIN_SCREENSHOT_NO_PERMISSION_CHECKS = '1';
  const size = ['--width', String(SIZE.width), '--height', String(SIZE.height)];
  const options = ['--virtual', ...size, '--xwayland', '--no-global-shortcuts', inside('tell')];
  const kwin = start(inside('kwin_wayland'), options, { env });
  stops.push(stopWithChildren(kwin));
  const told = () =>
    fs.existsSync(inside('told')) &&
    /(.*) (.*) (.*)\n/.exec(fs.readFileSync(inside('told'), 'utf8'));
  [, env.DISPLAY, env.XAUTHORITY, env.WAYLAND_DISPLAY] = await kwin.ready(told, 'displays');
  const probe = [
    'org.kde.KWin',
    '/Screenshot',
    'org.freedesktop.DBus.Introspectable',
    'Introspect',
  ];
  const offers = () =>
    peer.call(...probe).then(
      ([text]) => /screenshotFullscreen/.test(text),
      () => false,
    );
  await kwin.ready(offers, 'the screenshot service');
  return kwin;
}

const STARTERS = { gnome: startGnomeShell, kwin: startKwin };
// GNOME Shell now and then hangs while starting: it runs JavaScript between fork and exec.
const ATTEMPTS = 3;

/** A Wayland session without a screen: `kind` is 'gnome' or 'kwin', `peer` another program on its bus. */
async function startCompositor(kind) {
  // Compositors start Xwayland in a folder of this mode only.
  fs.mkdirSync('/tmp/.X11-unix', { recursive: true });
  if (process.getuid() === 0) fs.chmodSync('/tmp/.X11-unix', 0o1777);
  for (let attempt = 1; ; ++attempt) {
    const session = await startSession({ display: false });
    const { env, stops } = session;
    try {
      const system = await startBus();
      stops.push(system.stop);
      env.DBUS_SYSTEM_BUS_ADDRESS = system.address;
      Object.assign(env, { XDG_SESSION_TYPE: 'wayland', LIBGL_ALWAYS_SOFTWARE: '1' });
      session.peer = await connect(session.bus.address);
      stops.push(async () => session.peer.close());
      session.compositor = await STARTERS[kind](session);
      process.env.XAUTHORITY = env.XAUTHORITY;
      session.x = await openDisplay(env.DISPLAY);
      stops.push(async () => session.x.close());
      return session;
    } catch (error) {
      await session.stop();
      if (attempt === ATTEMPTS) throw error;
    }
  }
}

module.exports = { GNOME_BACKGROUND, SIZE, lackingKwin, startCompositor };
