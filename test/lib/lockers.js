'use strict';

const fs = require('fs');
const { PNG } = require('pngjs');
const { connect } = require('./bus');
const { start, until } = require('./processes');
const { startServed } = require('./session');

/** Of each locker: the name it owns, and on how many watched paths it tells a change. */
const LOCKERS = {
  'light-locker': ['org.freedesktop.ScreenSaver', 2],
  'cinnamon-screensaver': ['org.cinnamon.ScreenSaver', 1],
};

/** An X11 session with a real screen locker. */
const startLocker = (command) =>
  startServed({}, async ({ env, folder, inside, peer, stops, system }) => {
    const login = await connect(system.address);
    stops.push(async () => login.close());
    await login.own('org.freedesktop.login1');
    env.XDG_SESSION_PATH = '/org/freedesktop/login1/session/c1';
    const path = { signature: 'o', body: [env.XDG_SESSION_PATH] };
    login.answer({ GetSession: path, GetSessionByPID: path });
    // cinnamon-screensaver asks loginctl, which refuses where systemd does not run, and cannot
    // unlock without a picture of the user.
    fs.writeFileSync(inside('loginctl'), '#!/bin/sh\necho c1\n', { mode: 0o755 });
    fs.writeFileSync(inside('home/.face'), PNG.sync.write(new PNG({ width: 1, height: 1 })));
    env.PATH = `${folder}:${env.PATH}`;
    const locker = start(command, [], { env });
    stops.push(locker.stop);
    const [name] = LOCKERS[command];
    await locker.ready(() => peer.hasOwner(name), name);
  });

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
