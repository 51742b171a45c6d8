'use strict';

const { connect } = require('./bus');
const { start, until } = require('./processes');
const { startServed } = require('./session');

/** An X11 session with light-locker, which needs a login manager. */
const startLocker = () =>
  startServed({}, async ({ env, peer, stops, system }) => {
    const login = await connect(system.address);
    stops.push(async () => login.close());
    await login.own('org.freedesktop.login1');
    env.XDG_SESSION_PATH = '/org/freedesktop/login1/session/c1';
    const path = { signature: 'o', body: [env.XDG_SESSION_PATH] };
    login.answer({ GetSession: path, GetSessionByPID: path });
    const locker = start('light-locker', [], { env });
    stops.push(locker.stop);
    await locker.ready(() => peer.hasOwner('org.freedesktop.ScreenSaver'), 'a locker');
  });

/** Gives the application a monitor that logs its events. Returns once signals arrive. */
async function listen(app, peer) {
  await app.run(() => {
    global.monitor = new kiv.ScreenLockMonitor();
    global.monitor.emit = (event) => log.push(event);
  });
  const signal = ['/com/ubuntu/Upstart', 'com.ubuntu.Upstart0_6', 'EventEmitted', 's'];
  const heard = (event) => app.run((name) => log.includes(name), event);
  await until(() => {
    peer.emit(...signal, ['desktop-lock']);
    return heard('screen_lock');
  }, 'the first signal');
  peer.emit(...signal, ['desktop-unlock']);
  await until(() => heard('screen_unlock'), 'the last signal');
  await app.log();
}

module.exports = { listen, startLocker };
