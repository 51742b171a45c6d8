'use strict';

const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { after, before } = require('node:test');
const { startApp } = require('./app');
const { ENV, start, temporaryFolder, until } = require('./processes');

const SERVER = '-displayfd 3 -nolisten tcp -noreset -ac'.split(' ');
// A set-uid wrapper, where installed, rejects users who are not at the console.
const XORG = ['/usr/lib/xorg/Xorg', '/usr/bin/Xorg'].find((file) => fs.existsSync(file)) || 'Xorg';
const XORG_CONF = `
Section "ServerFlags" Option "AutoAddDevices" "false" Option "AutoAddGPU" "false" EndSection
Section "Device" Identifier "card" Driver "dummy" VideoRam 256000 EndSection
Section "Monitor" Identifier "any" HorizSync 1-1000 VertRefresh 1-1000 EndSection
Section "Screen" Identifier "all" Device "card" Monitor "any" EndSection
`;

async function startServer(command, args) {
  const server = start(command, [...SERVER, ...args], { stdio: Array(4).fill('pipe') });
  const [, number] = await server.ready(() => /^(\d+)\n/.exec(server.text[3]), 'a display');
  return { ...server, display: `:${number}` };
}

/** Starts an X server in memory with screens of these sizes. */
function startXvfb(screens = ['1280x800']) {
  const sizes = screens.map((size, i) => `-screen ${i} ${size}x24`);
  return startServer('Xvfb', sizes.join(' ').split(' '));
}

/** Starts an X server with one or two monitors, unlike Xvfb; `layOut` changes them. */
async function startXorg(monitors) {
  const folder = temporaryFolder();
  const [config, log] = ['xorg.conf', 'log'].map((name) => path.join(folder, name));
  fs.writeFileSync(config, XORG_CONF);
  const files = ['-config', config, '-configdir', folder, '-logfile', log];
  const server = await startServer(XORG, [...files, '-novtswitch']);
  const xrandr = (...args) => execFileSync('xrandr', ['-display', server.display, ...args]);
  server.layOut = (wanted) => {
    const places = ['DUMMY0', 'DUMMY1'].flatMap((output, i) => {
      if (!wanted[i]) return ['--output', output, '--off'];
      const { width, height, x = 0, y = 0 } = wanted[i];
      const mode = `${width}x${height}`;
      xrandr('--addmode', output, mode);
      return ['--output', output, '--mode', mode, '--pos', `${x}x${y}`];
    });
    xrandr(...places);
    xrandr(); // the server looks again, because clients may ask for cached values
  };
  try {
    server.layOut(monitors);
  } catch (error) {
    await server.stop();
    throw error;
  }
  return server;
}

/** Starts a message bus without service folders, so that it starts no services of this machine. */
async function startBus(address = `unix:path=${temporaryFolder()}/bus`) {
  const file = address.replace('unix:path=', '');
  fs.rmSync(file, { force: true });
  const config = `<busconfig><type>session</type><listen>${address}</listen>
    <policy context="default"><allow own="*"/>
    <allow send_destination="*"/><allow receive_sender="*"/></policy></busconfig>`;
  fs.writeFileSync(`${file}.conf`, config);
  const daemon = start('dbus-daemon', [`--config-file=${file}.conf`, '--print-address']);
  await daemon.ready(() => daemon.text[1].includes('\n'), 'a bus');
  return { ...daemon, address };
}

async function startWindowManager(env, name) {
  const manager = start(name, [], { env });
  const x = await require('./x').openDisplay(env.DISPLAY);
  // A window manager may miss a window that is mapped while it starts.
  await manager.ready(async () => {
    const id = x.createWindow();
    x.map(id);
    const managed = async () => (await x.getProperty(id, 'WM_STATE')).length;
    const seen = until(managed, '', 300).catch(() => 0);
    return seen.finally(() => x.destroy(id));
  }, 'a window that is managed');
  await until(async () => !(await x.getProperty(x.root, '_NET_CLIENT_LIST')).length, 'no window');
  x.close();
  return manager;
}

/** Starts a desktop; `prepare` starts more. Functions on `stops` run last to first. */
async function startSession(options = {}, prepare = () => {}) {
  const folder = temporaryFolder();
  const inside = (name) => path.join(folder, name);
  for (const name of ['home', 'tmp', 'run']) fs.mkdirSync(inside(name), { mode: 0o700 });
  const env = {
    ...ENV,
    HOME: inside('home'),
    TMPDIR: inside('tmp'),
    XDG_RUNTIME_DIR: inside('run'),
    XDG_SESSION_TYPE: 'x11',
    GDK_BACKEND: 'x11',
    NO_AT_BRIDGE: '1',
    GSETTINGS_BACKEND: 'memory',
    // Without an address, GLib would look for the machine's bus.
    DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent',
    DBUS_SYSTEM_BUS_ADDRESS: 'unix:path=/nonexistent',
    ...options.env,
  };
  const session = { env, folder, inside, stops: [] };
  session.stop = async () => {
    while (session.stops.length > 0) await session.stops.pop()();
  };
  return fill(session, options, prepare).catch(async (error) => {
    await session.stop();
    throw error;
  });
}

async function fill(session, options, prepare) {
  const { screens, monitors, wm, display = true, bus = true, person = true } = options;
  const { env } = session;
  const add = (name, started) => {
    session[name] = started;
    session.stops.push(started.stop || started.close);
  };
  if (display) {
    add('server', await (monitors ? startXorg(monitors) : startXvfb(screens)));
    env.DISPLAY = session.server.display;
  }
  if (bus) {
    add('bus', await startBus());
    env.DBUS_SESSION_BUS_ADDRESS = session.bus.address;
  }
  if (wm) add('wm', await startWindowManager(env, wm));
  // The demo does not need these or their libraries.
  if (bus && person) add('peer', await require('./bus').connect(session.bus.address));
  if (display && person) add('x', await require('./x').openDisplay(env.DISPLAY));
  await prepare(session);
  return session;
}

/** Starts a session with a system bus; `prepare` starts more. Tries again if that fails. */
function startServed(options, prepare, attempts = 3) {
  const serve = async (session) => {
    session.system = await startBus();
    session.stops.push(session.system.stop);
    session.env.DBUS_SYSTEM_BUS_ADDRESS = session.system.address;
    await prepare(session);
  };
  return startSession(options, serve).catch((error) => {
    if (attempts === 1) throw error;
    return startServed(options, prepare, attempts - 1);
  });
}

/** One session for a file or block. `app` starts an application; `withApp` also ends it. */
function useSession(options, starter = startSession) {
  const use = {};
  before(async () => Object.assign(use, await starter(options)));
  after(() => use.stop?.());
  use.app = (more) => startApp(use, more);
  use.withApp = async (f, more) => {
    const app = await use.app(more);
    try {
      const result = await f(app);
      await app.end();
      return result;
    } finally {
      await app.stop();
    }
  };
  return use;
}

module.exports = { startBus, startServed, startSession, startXvfb, useSession };
