'use strict';

const fs = require('fs');
const { Variant } = require('dbus-next');
const { connect } = require('./bus');
const { start } = require('./processes');
const { startBus, startSession } = require('./session');

const SESSION = '/org/freedesktop/login1/session/c1';
// Without it there is no way to unlock: a picture of the user.
const FACE =
  'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==';

/** A system bus with one session and a display manager on it: what screen lockers ask for. */
async function startSystemServices({ env, stops }) {
  const bus = await startBus();
  stops.push(bus.stop);
  Object.assign(env, { DBUS_SYSTEM_BUS_ADDRESS: bus.address, XDG_SESSION_ID: 'c1' });
  const services = await connect(bus.address);
  stops.push(async () => services.close());
  const properties = { Id: 'c1', State: 'active', Class: 'user', Type: 'wayland', Version: '43.0' };
  const all = Object.entries(properties).map(([name, text]) => [name, new Variant('s', text)]);
  const seat = new Variant('(so)', ['seat0', '/org/freedesktop/login1/seat/seat0']);
  const display = new Variant('(so)', ['c1', SESSION]);
  all.push(['Active', new Variant('b', true)], ['Seat', seat], ['Display', display]);
  const path = (value) => ({ signature: 'o', body: [value] });
  services.answer({
    GetAll: { signature: 'a{sv}', body: [Object.fromEntries(all)] },
    Get: { signature: 'v', body: [new Variant('s', '43.0')] },
    GetSession: path(SESSION),
    GetSessionByPID: path(SESSION),
    GetUser: path('/org/freedesktop/login1/user/self'),
    ListSessions: {
      signature: 'a(susso)',
      body: [[['c1', process.getuid(), 'u', 'seat0', SESSION]]],
    },
  });
  const silent = ['Set', 'SetLockedHint', 'SetIdleHint', 'SetType', 'TakeControl', 'Activate'];
  for (const member of [...silent, 'RegisterSession']) services.answer({ [member]: {} });
  await services.own('org.freedesktop.login1');
  await services.own('org.gnome.DisplayManager');
}

/** An X11 session with a real screen locker that owns `name`; `peer` talks to it. */
async function startLocker({ command, name }) {
  const session = await startSession();
  const { env, folder, stops } = session;
  // cinnamon-screensaver asks loginctl, which refuses where systemd does not run.
  fs.writeFileSync(`${folder}/loginctl`, '#!/bin/sh\necho c1\n', { mode: 0o755 });
  fs.writeFileSync(`${env.HOME}/.face`, Buffer.from(FACE, 'base64'));
  env.XDG_SEAT_PATH = '/org/freedesktop/DisplayManager/Seat0';
  Object.assign(env, { PATH: `${folder}:${env.PATH}`, XDG_SESSION_PATH: SESSION });
  await startSystemServices(session);
  session.peer = await connect(env.DBUS_SESSION_BUS_ADDRESS);
  stops.push(async () => session.peer.close());
  const locker = start(command, [], { env });
  stops.push(locker.stop);
  await locker.ready(() => session.peer.hasOwner(name), name);
  return session;
}

module.exports = { startLocker, startSystemServices };
