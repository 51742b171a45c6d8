'use strict';

const fs = require('fs');
const { PNG } = require('pngjs');
const { connect } = require('./bus');
const { start, until } = require('./processes');
const { startBus, startSession } = require('./session');

/** Of each locker: the name it owns, and on how many watched paths it tells a change. */
const LOCKERS = {
  'light-locker': ['org.freedesktop.ScreenSaver', 2],
  'cinnamon-screensaver': ['org.cinnamon.ScreenSaver', 1],
};

/** An X11 session with a real screen locker; `peer` talks to it. */
async function startLocker(command) {
  const session = await startSession();
  const { env, inside, stops } = session;
  const system = await startBus();
  session.peer = await connect(env.DBUS_SESSION_BUS_ADDRESS);
  env.DBUS_SYSTEM_BUS_ADDRESS = system.address;
  const login = await connect(system.address);
  await login.own('org.freedesktop.login1');
  env.XDG_SESSION_PATH = '/org/freedesktop/login1/session/c1';
  const path = { signature: 'o', body: [env.XDG_SESSION_PATH] };
  login.answer({ GetSession: path, GetSessionByPID: path });
  // cinnamon-screensaver asks loginctl, which refuses where systemd does not run, and cannot unlock
  // without a picture of the user.
  fs.writeFileSync(inside('loginctl'), '#!/bin/sh\necho c1\n', { mode: 0o755 });
  fs.writeFileSync(inside('home/.face'), PNG.sync.write(new PNG({ width: 1, height: 1 })));
  env.PATH = `${session.folder}:${env.PATH}`;
  const locker = start(command, [], { env });
  const leave = async (peer) => peer.close();
  stops.push(
    system.stop,
    () => leave(login),
    () => leave(session.peer),
    locker.stop,
  );
  const [name] = LOCKERS[command];
  await locker
    .ready(() => session.peer.hasOwner(name), name)
    .catch(async (error) => {
      await session.stop();
      throw error;
    });
  return session;
}

/** Gives the application a monitor that writes its events to the log; it hears the bus then. */
async function listen(app, peer) {
  await app.run(() => {
    global.monitor = new kiv.ScreenLockMonitor();
    global.monitor.emit = (event) => log.push(event);
  });
  const upstart = ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', 's'];
  const heard = (event) => app.run((name) => log.includes(name), event);
  await until(() => {
    peer.emit(...upstart, ['desktop-lock']);
    return heard('screen_lock');
  }, 'a signal that is heard');
  peer.emit(...upstart, ['desktop-unlock']);
  await until(() => heard('screen_unlock'), 'the last of them');
  await app.log();
}

module.exports = { LOCKERS, listen, startLocker };
