'use strict';

const { spawnSync } = require('child_process');
const fs = require('fs');
const net = require('net');
const { Variant } = require('dbus-next');
const { NODE, lacking, start, until } = require('./processes');
const { startServed } = require('./session');
const { openDisplay } = require('./x');

const KWIN = '/usr/bin/kwin_wayland';
const PORTAL = '/usr/libexec/xdg-desktop-portal';
const NOBODY = 65534;
const SIZE = '1280x720';
/** Why a test must be skipped, or false. */
const lackingKwin = () =>
  lacking(KWIN, 'Xwayland') ||
  (fs.readFileSync(KWIN).includes('libQt6') && 'KWin 6 has no org.kde.kwin.Screenshot');
const lackingGnomePortal = () => lacking('gnome-shell', 'Xwayland', PORTAL, `${PORTAL}-gnome`);
const SWAY = ['sway', 'Xwayland', 'xhost', 'grim', 'pipewire'];
const lackingSwayPortal = () =>
  lacking(...SWAY, ...['', '-wlr', '-gtk'].map((end) => PORTAL + end));

/** Stores the permission of callers without an id: 'yes', 'no', 'ask' or undefined (not stored). */
function setPermission({ peer }, value) {
  const STORE = 'org.freedesktop.impl.portal.PermissionStore';
  const call = [STORE, '/org/freedesktop/impl/portal/PermissionStore', STORE];
  if (value === undefined)
    return peer.call(...call, 'Delete', 'ss', ['screenshot', 'screenshot']).catch(() => {});
  const entry = ['screenshot', true, 'screenshot', '', [value]];
  return peer.call(...call, 'SetPermission', 'sbssas', entry);
}

/** Starts the portal with the installed ones of these back ends; the compositor may be one. */
async function startPortal({ env, inside, peer }, launch, backEnds) {
  fs.mkdirSync(inside('portals'));
  fs.writeFileSync(inside('portals/portals.conf'), `[preferred]\ndefault=${backEnds.join(';')}\n`);
  env.XDG_DESKTOP_PORTAL_DIR = inside('portals');
  const services = [['/usr/libexec/xdg-permission-store', 'impl.portal.PermissionStore']];
  for (const name of backEnds) {
    const [file, program] = [`portals/${name}.portal`, `${PORTAL}-${name}`];
    const installed = `/usr/share/xdg-desktop-portal/${file}`;
    if (fs.existsSync(installed)) fs.copyFileSync(installed, inside(file));
    if (fs.existsSync(program)) services.push([program, `impl.portal.desktop.${name}`]);
  }
  for (const [program, name] of [...services, [PORTAL, 'portal.Desktop']]) {
    const service = launch(program, []);
    await service.ready(() => peer.hasOwner(`org.freedesktop.${name}`), name);
  }
}

/** Every program gets a picture; with `portal`, only through the portal. */
async function startGnomeShell(session, launch, { portal = false, size = SIZE } = {}) {
  const { env, inside, peer } = session;
  const mode = ['--headless', '--wayland', '--virtual-monitor', size];
  const shell = launch('gnome-shell', portal ? mode : [...mode, '--unsafe-mode']);
  await shell.ready(() => /GNOME Shell started at/.test(shell.output()), 'GNOME Shell');
  const SET = ['org.gnome.Shell', '/org/gnome/Shell', 'org.freedesktop.DBus.Properties', 'Set'];
  await peer.call(...SET, 'ssv', ['org.gnome.Shell', 'OverviewActive', new Variant('b', false)]);
  env.DISPLAY = /using public X11 display (:\d+)/i.exec(shell.output())[1];
  const authority = fs.readdirSync(inside('run')).find((name) => /^\.mutter-Xwayl/.test(name));
  env.XAUTHORITY = inside(`run/${authority}`);
  env.XDG_CURRENT_DESKTOP = 'GNOME';
  if (portal) await startPortal(session, launch, ['gnome-shell', 'gnome']);
}

// The compositor runs this once it serves X11, possibly as another user.
const SAY = '#!/bin/sh\nxhost +local:\necho at $DISPLAY $XAUTHORITY. >&2';
const told = (compositor) =>
  compositor.ready(() => /^at (.+) (.*)\.$/m.exec(compositor.output()), 'a display');

/** `interfaces`: what a .desktop file allows the application. Without it, all may call. */
async function startKwin({ env, inside, peer }, launch, { interfaces, more = [] } = {}) {
  // The copy has no file capabilities, which a container may forbid.
  fs.copyFileSync(KWIN, inside('kwin_wayland'));
  fs.writeFileSync(inside('say'), SAY, { mode: 0o755 });
  if (interfaces) {
    const folder = inside('home/.local/share/applications');
    fs.mkdirSync(folder, { recursive: true });
    const entry = `[Desktop Entry]\nType=Application\nName=app\nExec=${fs.realpathSync(NODE)}\n`;
    const allowed = `X-KDE-DBUS-Restricted-Interfaces=${interfaces.join()}\n`;
    fs.writeFileSync(`${folder}/app.desktop`, entry + allowed);
  } else {
    env.KWIN_SCREENSHOT_NO_PERMISSION_CHECKS = '1';
  }
  const size = ['--width', '1280', '--height', '720', ...more];
  const kwin = launch(inside('kwin_wayland'), ['--virtual', ...size, '--xwayland', inside('say')]);
  [, env.DISPLAY, env.XAUTHORITY] = await told(kwin);
  const INTROSPECT = ['/Screenshot', 'org.freedesktop.DBus.Introspectable', 'Introspect'];
  const said = () => peer.call('org.kde.KWin', ...INTROSPECT).then(String, String);
  await kwin.ready(async () => (await said()).includes('screenshotFullscreen'), 'KWin');
}

// Over sway the portal always writes /tmp/out.png, so two runs take turns.
async function awaitTurn({ stops }) {
  const listen = (ended) => {
    const turn = net.createServer().once('error', () => ended());
    turn.listen('\0kiv-sway', () => ended(turn));
  };
  const turn = await until(() => new Promise(listen), 'the end of another run');
  stops.push(async () => turn.close());
}

async function startSway(session, launch, { outputs = [SIZE] } = {}) {
  const { env, inside, folder } = session;
  await awaitTurn(session);
  const colored = (size, i) =>
    `output HEADLESS-${i + 1} resolution ${size} background #3465a4 solid_color`;
  const exec = `exec ${inside('say')}`;
  fs.writeFileSync(
    inside('sway.conf'),
    [...outputs.map(colored), 'xwayland enable', exec].join('\n'),
  );
  fs.writeFileSync(inside('say'), SAY, { mode: 0o755 });
  env.WLR_BACKENDS = 'headless';
  env.WLR_RENDERER = 'pixman';
  env.WLR_LIBINPUT_NO_DEVICES = '1';
  env.WLR_HEADLESS_OUTPUTS = String(outputs.length);
  let command = ['sway', '-c', inside('sway.conf')];
  if (process.getuid() === 0) {
    // sway refuses to run as root.
    fs.chmodSync(folder, 0o711);
    fs.chownSync(inside('run'), NOBODY, NOBODY);
    const other = `--reuid=${NOBODY} --regid=${NOBODY} --clear-groups --pdeathsig KILL`;
    command = ['setpriv', ...other.split(' '), ...command];
  }
  const sway = launch(command[0], command.slice(1));
  [, env.DISPLAY] = await told(sway);
  env.WAYLAND_DISPLAY = 'wayland-1';
  env.XDG_CURRENT_DESKTOP = 'sway';
  launch('pipewire', []); // the back end exits without it
  await startPortal(session, launch, ['wlr', 'gtk']);
}

/** Starts a Wayland session without a screen, 1280x720 by default, with a `starter` from above. */
function startCompositor(starter) {
  // Compositors start Xwayland only if this folder has this mode.
  fs.mkdirSync('/tmp/.X11-unix', { recursive: true });
  if (process.getuid() === 0) fs.chmodSync('/tmp/.X11-unix', 0o1777);
  const env = { XDG_SESSION_TYPE: 'wayland', LIBGL_ALWAYS_SOFTWARE: '1' };
  // Several attempts, because GNOME Shell sometimes hangs at start.
  return startServed({ display: false, env }, async (session) => {
    await starter(session, (command, args) => {
      // GDK's backend is for the application only.
      const env = { ...session.env, GDK_BACKEND: undefined };
      const compositor = start('setsid', [command, ...args], { env });
      // Runs last: kills what the compositor has started.
      session.stops.push(async () => spawnSync('kill', ['-KILL', '--', `-${compositor.pid}`]));
      session.stops.push(() => compositor.stop());
      return compositor;
    });
    process.env.XAUTHORITY = session.env.XAUTHORITY || '';
    session.x = await openDisplay(session.env.DISPLAY);
    session.stops.push(async () => session.x.close());
  });
}

module.exports = {
  lackingGnomePortal,
  lackingKwin,
  lackingSwayPortal,
  setPermission,
  startCompositor,
  startGnomeShell,
  startKwin,
  startSway,
};
