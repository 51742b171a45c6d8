'use strict';

const fs = require('fs');
const path = require('path');
const { gdbus } = require('./compositors');
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

const LOCKERS = {
  'light-locker': ['org.freedesktop.ScreenSaver', ({ env }) => {
    Object.assign(env, { XDG_SESSION_PATH: SESSION, XDG_SEAT_PATH: '/org/freedesktop/DisplayManager/Seat0' });
  }],
  // It asks loginctl for its session, which refuses where systemd does not run, and cannot unlock
  // without a picture of the user.
  'cinnamon-screensaver': ['org.cinnamon.ScreenSaver', ({ env, folder }) => {
    fs.writeFileSync(path.join(folder, 'loginctl'), '#!/bin/sh\necho c1\n', { mode: 0o755 });
    fs.writeFileSync(path.join(env.HOME, '.face'), Buffer.from(FACE, 'base64'));
    Object.assign(env, { PATH: `${folder}:${env.PATH}`, XDG_CURRENT_DESKTOP: 'X-Cinnamon' });
  }],
};

/** A private X11 session with a real screen locker. */
async function startLocker(command) {
  const [name, prepare] = LOCKERS[command];
  const session = await startSession({ wm: false });
  try {
    prepare(session);
    session.stops.push((await startSystemServices(session.env)).stop);
    const locker = start(command, [], { env: session.env });
    session.stops.push(locker.stop);
    const owned = () => gdbus(session.env, 'org.freedesktop.DBus', '/', 'org.freedesktop.DBus.NameHasOwner', name);
    await untilReady(locker, async () => /true/.test(await owned()), `the owner of ${name}`);
  } catch (error) {
    await session.stop();
    throw error;
  }
  return session;
}

module.exports = { startLocker, watchAnnouncements };
