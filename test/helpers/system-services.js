'use strict';

const { startBus } = require('./bus');
const { startCase } = require('./case');

const SESSION = '/org/freedesktop/login1/session/c1';

/* global bus, report */
// Just what screen lockers ask for: one session, and a display manager that can come back to it.
const serve = (address, session) => {
  const MANAGER = 'org.freedesktop.login1.Manager';
  const PROPERTIES = 'org.freedesktop.DBus.Properties';
  const user = '/org/freedesktop/login1/user/self';
  bus.connect(address);
  const manager = (member, body) => bus.answer('/org/freedesktop/login1', MANAGER, member, { body });
  for (const member of ['GetSession', 'GetSessionByPID']) manager(member, `(objectpath '${session}',)`);
  manager('GetUser', `(objectpath '${user}',)`);
  manager('ListSessions', `([('c1', uint32 ${process.getuid()}, 'user', 'seat0', objectpath '${session}')],)`);
  const properties = (path, text) => {
    bus.answer(path, PROPERTIES, 'GetAll', { body: `({${text}},)` });
    bus.answer(path, PROPERTIES, 'Set', { body: '()' });
  };
  properties('/org/freedesktop/login1', "'PreparingForSleep': <false>");
  properties(session, "'Id': <'c1'>, 'Active': <true>, 'State': <'active'>, 'Class': <'user'>, 'Type': <'wayland'>, " +
    "'Remote': <false>, 'LockedHint': <false>, 'Seat': <('seat0', objectpath '/org/freedesktop/login1/seat/seat0')>");
  properties(user, `'Display': <('c1', objectpath '${session}')>, 'Sessions': <[('c1', objectpath '${session}')]>`);
  for (const member of ['SetLockedHint', 'SetIdleHint', 'SetType', 'TakeControl', 'Activate']) {
    bus.answer(session, 'org.freedesktop.login1.Session', member, { body: '()' });
  }
  const displays = '/org/gnome/DisplayManager/Manager';
  properties(displays, "'Version': <'43.0'>");
  bus.answer(displays, PROPERTIES, 'Get', { body: "(<'43.0'>,)" });
  bus.answer(displays, 'org.gnome.DisplayManager.Manager', 'RegisterSession', { body: '()' });
  bus.own('org.freedesktop.login1');
  bus.own('org.gnome.DisplayManager');
  process.stdin.on('data', (data) => {
    for (const word of String(data).trim().split('\n')) {
      bus.emit(session, 'org.freedesktop.login1.Session', word, '', 1);
    }
  });
  report('ready');
};

/** A system bus with what screen lockers want on it. `send('Lock')`, `send('Unlock')` as loginctl does. */
async function startSystemServices(env) {
  const bus = await startBus();
  env.DBUS_SYSTEM_BUS_ADDRESS = bus.address;
  env.XDG_SESSION_ID = 'c1';
  const services = startCase(serve, { env, args: [bus.address, SESSION], timeout: 300000 });
  const stop = async () => {
    await services.stop();
    await bus.stop();
  };
  try {
    await services.reported();
  } catch (error) {
    await stop();
    throw error;
  }
  return { send: (word) => services.child.stdin.write(`${word}\n`), stop };
}

module.exports = { SESSION, startSystemServices };
