'use strict';

const { execFile } = require('child_process');
const fs = require('fs');
const path = require('path');
const { promisify } = require('util');
const { startBus } = require('./bus');
const { need } = require('./need');
const { alive, start, untilReady } = require('./processes');
const { startSession } = require('./session');
const { startSystemServices } = require('./system-services');
const { until } = require('./until');

/** What fills a GNOME session's desktop; KWin's is black. */
const GNOME_BACKGROUND = [0x34, 0x65, 0xa4];
const KWIN = '/usr/bin/kwin_wayland';

// Compositors refuse to start Xwayland beneath any other mode.
function prepareSockets() {
  fs.mkdirSync('/tmp/.X11-unix', { recursive: true });
  if (process.getuid() === 0) fs.chmodSync('/tmp/.X11-unix', 0o1777);
}

/** For a test's `skip` option: false, or why there is no KWin with what the module uses. */
function needKwin(...tools) {
  return need(KWIN, ...tools) || (fs.readFileSync(KWIN).includes('libQt6')
    && 'KWin 6: no org.kde.kwin.Screenshot, and its virtual output crashes without a GPU (6.3)');
}

/** A call's reply, as gdbus prints it; empty when it failed. */
async function gdbus(env, destination, object, method, ...args) {
  const command = ['call', '--session', '--timeout', '5', '--dest', destination,
    '--object-path', object, '--method', method, ...args];
  try {
    return (await promisify(execFile)('gdbus', command, { env, timeout: 10000 })).stdout;
  } catch (error) {
    return '';
  }
}

// A shell that hangs while it starts a program leaves that half-made process behind.
async function stopWithChildren(compositor) {
  const listed = `/proc/${compositor.pid}/task/${compositor.pid}/children`;
  const children = fs.existsSync(listed) ? fs.readFileSync(listed, 'utf8').split(' ').filter(Boolean).map(Number) : [];
  await compositor.stop(2000);
  const left = () => children.filter(alive);
  await until(() => left().length === 0, { timeout: 3000 }).catch(() => {
    for (const pid of left()) process.kill(pid, 'SIGKILL');
  });
}

// GNOME has a lock screen only where this folder is; without it the shell sees another one.
const hasSeats = () => fs.existsSync('/run/systemd/seats');
const canLockGnome = () => hasSeats() || process.getuid() === 0;
const WITH_SEATS = ['-m', '--propagation', 'private', 'sh', '-c',
  'mount -t tmpfs tmpfs /run && mkdir -p /run/systemd/seats && exec "$@"', 'sh'];

async function startGnomeShell({ env }, { size, lockScreen }) {
  const settings = path.join(env.HOME, '.config', 'glib-2.0', 'settings');
  fs.mkdirSync(settings, { recursive: true });
  fs.writeFileSync(path.join(settings, 'keyfile'), `[org/gnome/desktop/background]
picture-options='none'
primary-color='#${Buffer.from(GNOME_BACKGROUND).toString('hex')}'
[org/gnome/desktop/notifications]
show-banners=false
[org/gnome/desktop/session]
idle-delay=uint32 0
`);
  Object.assign(env, { XDG_CURRENT_DESKTOP: 'GNOME', GSETTINGS_BACKEND: 'keyfile' });
  const args = ['--headless', '--wayland', '--virtual-monitor', size];
  const shell = lockScreen && !hasSeats() ? start('unshare', [...WITH_SEATS, 'gnome-shell', ...args], { env })
    : start('gnome-shell', args, { env });
  const stop = () => stopWithChildren(shell);
  try {
    await until(() => shell.result || /GNOME Shell started at/.test(shell.output), {
      timeout: 40000, what: 'the shell to have started' });
    if (shell.result) throw new Error('the shell ended');
    const overview = (verb, ...value) => gdbus(env, 'org.gnome.Shell', '/org/gnome/Shell',
      `org.freedesktop.DBus.Properties.${verb}`, 'org.gnome.Shell', 'OverviewActive', ...value);
    await overview('Set', '<false>');
    await until(async () => /false/.test(await overview('Get')), { what: 'the overview to be gone' });
  } catch (error) {
    await stop();
    throw new Error(`gnome-shell: ${error.message}\n${shell.output}`);
  }
  env.DISPLAY = /using public X11 display (:\d+)/i.exec(shell.output)[1];
  env.WAYLAND_DISPLAY = /Wayland display name '(.+)'/.exec(shell.output)[1];
  const authority = fs.readdirSync(env.XDG_RUNTIME_DIR).find((name) => name.startsWith('.mutter-Xwaylandauth'));
  env.XAUTHORITY = path.join(env.XDG_RUNTIME_DIR, authority);
  return stop;
}

async function startKwin(session, { size }) {
  const { env, folder } = session;
  // A copy has no file capabilities, which a container may forbid.
  const program = path.join(folder, 'kwin_wayland');
  fs.copyFileSync(KWIN, program);
  const [told, script] = ['told', 'tell'].map((name) => path.join(folder, name));
  fs.writeFileSync(script, `#!/bin/sh\nenv | grep -E '^(DISPLAY|XAUTHORITY|WAYLAND_DISPLAY)=.' >'${told}.new'
mv '${told}.new' '${told}'\n`, { mode: 0o755 });
  Object.assign(env, { XDG_CURRENT_DESKTOP: 'KDE', KDE_FULL_SESSION: 'true', KDE_SESSION_VERSION: '5' });
  const [width, height] = size.split('x');
  const kwin = start(program, ['--virtual', '--width', width, '--height', height, '--xwayland',
    '--no-global-shortcuts', script], { env });
  await untilReady(kwin, () => fs.existsSync(told), 'the displays\' names');
  for (const line of fs.readFileSync(told, 'utf8').trim().split('\n')) {
    env[line.slice(0, line.indexOf('='))] = line.slice(line.indexOf('=') + 1);
  }
  await untilReady(kwin, async () => /screenshotFullscreen/.test(await gdbus(env, 'org.kde.KWin', '/Screenshot',
    'org.freedesktop.DBus.Introspectable.Introspect')), 'the screenshot service');
  session.compositorPid = kwin.pid;
  return () => stopWithChildren(kwin);
}

const STARTERS = { gnome: startGnomeShell, kwin: startKwin };
// GNOME Shell now and then hangs while starting (about once in fifteen with 43): it runs JavaScript
// between fork and exec.
const ATTEMPTS = { gnome: 3, kwin: 1 };

/**
 * A Wayland session of its own, without a screen: `kind` is 'gnome' or 'kwin'. The session's `env`
 * has the compositor's X and Wayland displays; its system bus is empty. A `trusting` KWin lets
 * everybody take pictures. With `lockScreen` the session can be locked, and `send('Lock')` and
 * `send('Unlock')` do what loginctl does.
 */
async function startCompositor(kind, { size = '1280x720', trusting = false, lockScreen = false } = {}) {
  prepareSockets();
  for (let attempt = 1; ; ++attempt) {
    const session = await startSession({ display: false });
    const { env, stops } = session;
    try {
      const system = lockScreen ? await startSystemServices(env) : await startBus();
      stops.push(system.stop);
      if (!lockScreen) env.DBUS_SYSTEM_BUS_ADDRESS = system.address;
      Object.assign(env, { XDG_SESSION_TYPE: 'wayland', LIBGL_ALWAYS_SOFTWARE: '1' });
      if (trusting) env.KWIN_SCREENSHOT_NO_PERMISSION_CHECKS = '1';
      stops.push(await STARTERS[kind](session, { size, lockScreen }));
      return { ...session, send: system.send };
    } catch (error) {
      await session.stop();
      if (attempt >= ATTEMPTS[kind]) throw error;
    }
  }
}

module.exports = { GNOME_BACKGROUND, canLockGnome, gdbus, needKwin, startCompositor };
