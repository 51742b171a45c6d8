'use strict';

const fs = require('fs');
const path = require('path');
const { startBus } = require('./bus');
const { startXorgDummy, startXvfb } = require('./display');
const { temporaryFolder } = require('./folder');
const { baseEnv } = require('./processes');
const { startWindowManager } = require('./wm');

/**
 * A desktop of its own: folders, display, bus and window manager; nothing of the user's. `screens`
 * are Xvfb's sizes; `monitors` starts a real multi-monitor server instead; `wm` may name a window
 * manager; with display, wm or bus false that part is missing and cannot be reached. What is added
 * to `stops` ends before the rest does.
 */
async function startSession({
  display = true, screens, extraArgs, monitors, wm = true, bus = true,
} = {}) {
  const { path: folder, remove } = temporaryFolder('test');
  const stops = [remove];
  const stop = async () => {
    while (stops.length > 0) await stops.pop()();
  };
  const inside = (name) => path.join(folder, name);
  for (const name of ['home', 'tmp', 'run']) fs.mkdirSync(inside(name), { mode: 0o700 });
  const env = {
    ...baseEnv(),
    HOME: inside('home'),
    TMPDIR: inside('tmp'),
    XDG_RUNTIME_DIR: inside('run'),
    XDG_SESSION_TYPE: 'x11',
    GDK_BACKEND: 'x11',
    NO_AT_BRIDGE: '1',
    GSETTINGS_BACKEND: 'memory',
    // Without an address GLib would look for the machine's own buses.
    DBUS_SESSION_BUS_ADDRESS: `unix:path=${inside('no-session-bus')}`,
    DBUS_SYSTEM_BUS_ADDRESS: `unix:path=${inside('no-system-bus')}`,
  };
  const session = { env, folder, stop, stops };
  try {
    if (display) {
      const server = await (monitors ? startXorgDummy({ monitors }) : startXvfb({ screens, extraArgs }));
      stops.push(server.stop);
      env.DISPLAY = session.display = server.display;
      session.serverPid = server.pid;
      if (server.layOut) session.layOut = server.layOut;
    }
    if (bus) {
      session.bus = await startBus();
      stops.push(session.bus.stop);
      env.DBUS_SESSION_BUS_ADDRESS = session.bus.address;
    }
    if (display && wm) {
      session.wm = await startWindowManager(env, wm === true ? 'openbox' : wm);
      stops.push(session.wm.stop);
    }
  } catch (error) {
    await stop();
    throw error;
  }
  return session;
}

module.exports = { startSession };
