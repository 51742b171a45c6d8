'use strict';

const fs = require('fs');
const path = require('path');
const { start, untilReady } = require('./processes');
const { startSession } = require('./session');
const { SESSION, startSystemServices } = require('./system-services');

const FACE = 'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==';

/** What screen lockers announce on a session's bus from now on: [path, interface, active] each. */
async function watchAnnouncements(env) {
  const monitor = start('dbus-monitor', ['--address', env.DBUS_SESSION_BUS_ADDRESS,
    "type='signal',member='ActiveChanged'", "type='signal',member='NameLost'"], { env });
  // It loses its own name when the bus has made it a monitor.
  await untilReady(monitor, () => /member=NameLost/.test(monitor.output), 'a monitor of the bus');
  const announcement = /path=(\S+); interface=(\S+); member=ActiveChanged\n +boolean (true|false)/g;
  const all = () => [...monitor.output.matchAll(announcement)]
    .map(([, object, name, active]) => [object, name, active === 'true']);
  return { all, stop: monitor.stop };
}

// It asks loginctl for its session, which refuses where systemd does not run, and cannot unlock
// without a picture of the user.
function prepareCinnamon({ env, folder }) {
  const programs = path.join(folder, 'bin');
  fs.mkdirSync(programs);
  fs.writeFileSync(path.join(programs, 'loginctl'), '#!/bin/sh\necho c1\n', { mode: 0o755 });
  fs.writeFileSync(path.join(env.HOME, '.face'), Buffer.from(FACE, 'base64'));
  Object.assign(env, { PATH: `${programs}:${env.PATH}`, XDG_CURRENT_DESKTOP: 'X-Cinnamon' });
}

function prepareLight({ env }) {
  Object.assign(env, { XDG_SESSION_PATH: SESSION, XDG_SEAT_PATH: '/org/freedesktop/DisplayManager/Seat0' });
}

const LOCKERS = {
  'light-locker': { name: 'org.freedesktop.ScreenSaver', prepare: prepareLight },
  'cinnamon-screensaver': { name: 'org.cinnamon.ScreenSaver', prepare: prepareCinnamon },
};

/** A private X11 session with a real screen locker. */
async function startLocker(command) {
  const { name, prepare } = LOCKERS[command];
  const session = await startSession({ wm: false });
  const stops = [session.stop];
  const stop = async () => {
    while (stops.length > 0) await stops.pop()();
  };
  try {
    prepare(session);
    stops.push((await startSystemServices(session.env)).stop);
    const locker = start(command, [], { env: session.env });
    stops.push(locker.stop);
    const owned = ['call', '--session', '--dest', 'org.freedesktop.DBus', '--object-path', '/',
      '--method', 'org.freedesktop.DBus.NameHasOwner', name];
    await untilReady(locker, async () => {
      const asking = start('gdbus', owned, { env: session.env });
      await asking.exited;
      return /true/.test(asking.output);
    }, `the owner of ${name}`);
  } catch (error) {
    await stop();
    throw error;
  }
  return { env: session.env, stop };
}

module.exports = { startLocker, watchAnnouncements };
