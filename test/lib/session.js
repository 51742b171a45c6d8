'use strict';

const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { after, before } = require('node:test');
const { startApp } = require('./app');
const { connect } = require('./bus');
const { ENV, start, temporaryFolder, until } = require('./processes');

// Late, for those who do without the person and thus without its library.
const openDisplay = (display) => require('./x').openDisplay(display);
const SERVER = ['-displayfd', '3', '-nolisten', 'tcp', '-noreset', '-ac'];
// Where there is a set-uid wrapper, it refuses whoever does not sit at the console.
const XORG = ['/usr/lib/xorg/Xorg', '/usr/bin/Xorg'].find((file) => fs.existsSync(file)) || 'Xorg';

async function startServer(command, args) {
  const server = start(command, [...SERVER, ...args], {
    stdio: ['ignore', 'pipe', 'pipe', 'pipe'],
  });
  const [, number] = await server.ready(() => /^(\d+)\n/.exec(server.text[3]), 'a display');
  return { ...server, display: `:${number}` };
}

/** An X server in memory; `screens` are its sizes. */
const startXvfb = (screens = ['1280x800'], more = []) =>
  startServer('Xvfb', [
    ...screens.flatMap((size, i) => ['-screen', String(i), `${size}x24`]),
    ...more,
  ]);

const section = (name, ...lines) => `Section "${name}"\n${lines.join('\n')}\nEndSection\n`;

/** An X server with several monitors, which Xvfb cannot show; `layOut` changes them. */
async function startXorg(monitors) {
  const folder = temporaryFolder();
  const names = monitors.map((_, i) => `Monitor-DUMMY${i}`);
  fs.writeFileSync(
    path.join(folder, 'xorg.conf'),
    [
      section('ServerFlags', 'Option "AutoAddDevices" "false"', 'Option "AutoAddGPU" "false"'),
      ...names.map((name) =>
        section('Monitor', `Identifier "${name}"`, 'HorizSync 1-2000', 'VertRefresh 1-1000'),
      ),
      section(
        'Device',
        'Identifier "card"',
        'Driver "dummy"',
        'VideoRam 256000',
        ...names.map((name) => `Option "${name}" "${name}"`),
      ),
      section(
        'Screen',
        'Identifier "screen"',
        'Device "card"',
        'DefaultDepth 24',
        'SubSection "Display"',
        'Virtual 3840 2160',
        'EndSubSection',
      ),
    ].join(''),
  );
  const server = await startServer(XORG, [
    '-config',
    path.join(folder, 'xorg.conf'),
    '-configdir',
    folder,
    '-logfile',
    path.join(folder, 'log'),
    '-novtswitch',
  ]);
  const xrandr = (...args) =>
    execFileSync('xrandr', args, { env: { ...ENV, DISPLAY: server.display }, encoding: 'utf8' });
  const outputs = xrandr().match(/^DUMMY\d+/gm);
  const layOut = (wanted) => {
    xrandr(
      ...outputs.flatMap((output, i) => {
        if (!wanted[i]) return ['--output', output, '--off'];
        const { width, height, x = 0, y = 0 } = wanted[i];
        const mode = `${width}x${height}_kiv`;
        if (!xrandr().includes(mode)) {
          // Means nothing without hardware, but has to be plausible.
          xrandr(
            '--newmode',
            mode,
            String((width * height * 60) / 1e6),
            ...[width, width + 8, width + 40, width + 80].map(String),
            ...[height, height + 3, height + 8, height + 16].map(String),
          );
        }
        xrandr('--addmode', output, mode);
        return ['--output', output, '--mode', mode, '--pos', `${x}x${y}`];
      }),
    );
    xrandr(); // the server looks again: clients may ask for what it knows
  };
  layOut(monitors);
  return { ...server, layOut };
}

/** A message bus of its own, without service folders: nothing of the machine is started. */
async function startBus(address = `unix:path=${temporaryFolder()}/bus`) {
  const file = address.replace('unix:path=', '');
  fs.rmSync(file, { force: true });
  fs.writeFileSync(
    `${file}.conf`,
    `<busconfig><type>session</type><listen>${address}</listen><auth>EXTERNAL</auth>
    <policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy></busconfig>`,
  );
  const daemon = start('dbus-daemon', [
    `--config-file=${file}.conf`,
    '--nofork',
    '--nopidfile',
    '--print-address',
  ]);
  await daemon.ready(() => daemon.text[1].includes('\n'), 'a bus');
  return { ...daemon, address };
}

// A window mapped while the window manager starts may be missed.
async function startWindowManager(env, name) {
  const manager = start(name, [], { env });
  const x = await openDisplay(env.DISPLAY);
  await manager.ready(async () => {
    const id = x.createWindow({ width: 20, height: 20 });
    x.map(id);
    const managed = () => x.getProperty(id, 'WM_STATE').then((state) => state.length > 0);
    const seen = await until(managed, '', 300).catch(() => false);
    x.destroy(id);
    return seen;
  }, 'a window that is managed');
  await until(async () => !(await x.getProperty(x.root, '_NET_CLIENT_LIST')).length, 'no windows');
  x.close();
  return manager;
}

/** A desktop of its own. What is pushed to `stops` ends with it, first. */
async function startSession({
  screens,
  monitors,
  serverArgs,
  display = true,
  bus = true,
  person = true,
  wm,
  env: more,
} = {}) {
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
    // Without an address GLib would look for the machine's own.
    DBUS_SESSION_BUS_ADDRESS: 'unix:path=/nonexistent',
    DBUS_SYSTEM_BUS_ADDRESS: 'unix:path=/nonexistent',
    ...more,
  };
  const stops = [];
  const session = {
    env,
    folder,
    inside,
    stops,
    stop: async () => {
      while (stops.length > 0) await stops.pop()();
    },
  };
  const add = (started) => {
    stops.push(started.stop);
    return started;
  };
  if (display) {
    session.server = add(await (monitors ? startXorg(monitors) : startXvfb(screens, serverArgs)));
    env.DISPLAY = session.server.display;
  }
  if (bus) {
    session.bus = add(await startBus());
    env.DBUS_SESSION_BUS_ADDRESS = session.bus.address;
    session.peer = await connect(session.bus.address);
    stops.push(async () => session.peer.close());
  }
  if (display && wm) session.wm = add(await startWindowManager(env, wm));
  if (display && person) {
    session.x = await openDisplay(env.DISPLAY);
    stops.push(async () => session.x.close());
  }
  return session;
}

/** A session with a system bus, in which `prepare` starts more. */
async function startServed(options, prepare, attempts = 3) {
  const session = await startSession(options);
  try {
    session.system = await startBus();
    session.stops.push(session.system.stop);
    session.env.DBUS_SYSTEM_BUS_ADDRESS = session.system.address;
    await prepare(session);
    return session;
  } catch (error) {
    await session.stop();
    if (attempts === 1) throw error;
    return startServed(options, prepare, attempts - 1);
  }
}

/**
 * One session for a file or a describe block. `app(options)` starts an application that is set up;
 * `withApp(f, options)` calls `f` with one and ends it in order.
 */
function useSession(options, starter = startSession) {
  const use = {};
  before(async () => Object.assign(use, await starter(options)));
  const apps = [];
  after(async () => {
    for (const app of apps) await app.stop();
    await use.stop?.();
  });
  use.app = async (more) => {
    const app = await startApp(use, more);
    apps.push(app);
    return app;
  };
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

module.exports = { startBus, startServed, startSession, startWindowManager, startXvfb, useSession };
