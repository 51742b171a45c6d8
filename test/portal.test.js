'use strict';

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { after, test } = require('node:test');
const { pathToFileURL } = require('node:url');
const { Variant } = require('dbus-next');
const { PNG } = require('pngjs');
const { connect } = require('./lib/bus');
const { ENV, NODE, start, until } = require('./lib/processes');
const { startSession, useSession } = require('./lib/session');

const NO = { error: 'org.example.No', text: 'not today' };
const stored = (...values) => {
  const entries = values.length ? { '': values } : { other: ['yes'] };
  return { signature: 'a{sas}v', body: [entries, new Variant('y', 0)] };
};
// The process behind the portal's connection: its environment counts, not the application's.
const RELAY = `const { connect, createServer } = require('net');
  createServer((a) => a.pipe(connect(process.argv[1])).pipe(a)).listen(process.argv[2]);`;
const startRelay = ({ bus, inside, stops }) => {
  const [desk, folder, socket] = ['Other:DESK', inside('portals'), inside('portal')];
  const env = { ...ENV, XDG_CURRENT_DESKTOP: desk, XDG_DESKTOP_PORTAL_DIR: folder };
  const relay = start(NODE, ['-e', RELAY, bus.address.replace('unix:path=', ''), socket], { env });
  stops.push(relay.stop);
  return relay.ready(() => fs.existsSync(socket), 'the relay');
};
const options = { display: false, env: { XDG_SESSION_TYPE: 'wayland' } };
const shared = useSession(options, () => startSession(options, startRelay));
const picture = () => shared.inside('tmp/a picture');
const put = (bytes) => fs.writeFileSync(picture(), bytes);
const write = () => put(PNG.sync.write(new PNG({ width: 64, height: 48 })));
const width = () => kiv.getScreenSnap('desktop').width;

let portal;
after(() => portal?.close());
const count = (member) => portal.calls.filter((call) => call.member === member).length;
const respond = (path, code = 0, uri = pathToFileURL(picture()).href) => {
  const body = [code, uri ? { uri: new Variant('s', uri) } : {}];
  portal.emit(path, 'org.freedesktop.portal.Request', 'Response', 'ua{sv}', body);
};
const answer =
  (...values) =>
  (path) =>
    void setImmediate(respond, path, ...values);
const deliver = (path) => write() || answer()(path);

/**
 * A new portal in place of the one before, with the versions of its back ends. `shoot` gets the
 * request's path and may give another reply than that.
 */
async function serve(shoot, { Lookup = NO, versions = { Desk: 2 }, ...more } = {}) {
  portal?.close();
  fs.rmSync(picture(), { force: true, recursive: true });
  portal = await connect(`unix:path=${shared.inside('portal')}`);
  const backEnds = Object.keys(versions).map((name) => `org.example.${name}`);
  const services = ['portal.Desktop', 'impl.portal.PermissionStore'];
  await Promise.all(services.map((name) => portal.own(`org.freedesktop.${name}`)));
  await Promise.all(backEnds.map(portal.own));
  const Screenshot = ({ sender, body: [, { handle_token: token }] }) => {
    const place = `${sender.slice(1).replace('.', '_')}/${token.value}`;
    const path = `/org/freedesktop/portal/desktop/request/${place}`;
    return shoot(path) || { signature: 'o', body: [path] };
  };
  const Get = ({ body, destination }) => {
    const version = body[0].includes('.impl.') ? versions[destination.split('.').pop()] : 2;
    if (version === 0) return { error: 'org.freedesktop.DBus.Error.UnknownProperty' }; // KDE's
    const type = typeof version === 'number' ? 'u' : 's';
    return { signature: 'v', body: [new Variant(type, version)] };
  };
  portal.answer({ Get, Lookup, Screenshot, Close: {}, ...more });
}

const withApp = (work) => {
  fs.mkdirSync(shared.inside('portals'), { recursive: true });
  for (const [name, desktop] of Object.entries({ Desk: 'desk', Old: 'elsewhere' })) {
    const kind = 'Interfaces=org.freedesktop.impl.portal.Screenshot;';
    const lines = `[portal]\nDBusName=org.example.${name}\n${kind}\nUseIn=${desktop}\n`;
    fs.writeFileSync(shared.inside(`portals/${name.toLowerCase()}.portal`), lines);
  }
  return shared.withApp(work, { env: { XDG_CURRENT_DESKTOP: 'Elsewhere' } });
};
const reason = async (app) => /portal: (.*)/.exec((await app.log()).join('\n'))?.[1] || '';

test('a picture is read and deleted; whatever else the portal does gives a line', () =>
  withApp(async (app) => {
    const rules = async () => {
      const [bus, stats] = ['org.freedesktop.DBus', 'org.freedesktop.DBus.Debug.Stats'];
      const [all] = await shared.peer.call(bus, '/org/freedesktop/DBus', stats, 'GetAllMatchRules');
      return Object.values(all).flat();
    };
    // An old version chooses another path.
    const OTHER = '/org/freedesktop/portal/desktop/request/other';
    const old = () => {
      write();
      until(async () => String(await rules()).includes(OTHER)).then(() => respond(OTHER));
      return { signature: 'o', body: [OTHER] };
    };
    const lie = (make) => (path) => make() || answer()(path);
    const wrong = (path) =>
      portal.emit(path, 'org.freedesktop.portal.Request', 'Response', 'u', [0]);
    const foreign = () => write() || fs.chownSync(picture(), 12, 12);
    const late = [];
    await serve(deliver, { Lookup: stored('yes') });
    await app.run(width);
    const before = (await rules()).length;
    // What the portal does; the line; whether something is left at the picture's path.
    for (const [shoot, line, left = false] of [
      [(path) => write() || respond(path), ''], // before its reply
      [old, ''],
      [(path) => void wrong(path), "The portal's answer has another type"],
      [() => ({ signature: 's', body: ['a'] }), 'unexpected reply of type (s), wanted (o)'],
      [answer(1, ''), 'The screenshot was cancelled'],
      [answer(2, ''), 'The portal refuses, or its back end fails'],
      [answer(0, ''), "The portal's answer names no file"],
      [answer(0, 'http://example.org/a'), "The portal's answer names no file"],
      [answer(), 'The picture cannot be read: No such file or directory'],
      [lie(() => fs.symlinkSync('/etc/hostname', picture())), 'The picture cannot be read', true],
      [lie(() => fs.mkdirSync(picture())), 'The picture is not a regular file', true],
      [lie(() => void execFileSync('mkfifo', [picture()])), 'The picture is not a regular', true],
      ...(process.getuid() ? [] : [[lie(foreign), 'The picture belongs to another user', true]]),
      [lie(() => write() || fs.utimesSync(picture(), 1, 1)), 'The picture is older', true],
      [lie(() => write() || fs.linkSync(picture(), `${picture()} 2`)), "The picture's file", true],
      [lie(() => put('text')), 'Couldn'],
      [() => portal.close() || 'hang', 'The portal has ended'],
      [() => void setImmediate(portal.close), 'The portal has ended'],
      [(path) => void late.push(path), 'The portal does not answer'],
    ]) {
      await serve(shoot, { Lookup: stored('yes') });
      const seen = [await app.run(width), (await reason(app)).slice(0, line.length)];
      const present = Boolean(fs.lstatSync(picture(), { throwIfNoEntry: false }));
      assert.deepStrictEqual([...seen, present], [line ? 0 : 64, line, left]);
      if (late.length > 0) write() || respond(late.pop());
      await until(async () => (await rules()).length === before, 'its match rules to go');
    }
    assert(!fs.existsSync(picture()), 'the late picture is deleted');
  }));

test('no question: a portal that asks is called with a stored yes only', () =>
  withApp(async (app) => {
    const UNSET = 'Nobody has allowed screenshots yet';
    // What it says of itself, and the line.
    for (const [{ conf, ...what }, line] of [
      [{ Lookup: stored('yes') }, ''],
      [{ Lookup: stored('no') }, 'Screenshots were denied'],
      [{ Lookup: stored('ask') }, 'The desktop would ask each time'],
      [{ Lookup: stored('yes', 'yes') }, UNSET],
      [{ Lookup: stored() }, UNSET],
      [{ Lookup: { signature: 's', body: ['yes'] } }, UNSET],
      [{}, UNSET],
      [{ versions: { Desk: 'x' } }, UNSET],
      [{ versions: { Desk: 1 } }, ''],
      [{ versions: { Desk: 0 } }, ''],
      [{ versions: { Desk: 2, Old: 1 }, conf: 'default=gone;old' }, ''],
      [
        { versions: { Desk: 1, Old: 2 }, conf: 'org.freedesktop.impl.portal.Screenshot=old' },
        UNSET,
      ],
      [{ versions: { Desk: 1, Old: 2 }, conf: 'default=*' }, ''],
    ]) {
      fs.writeFileSync(shared.inside('portals/desk-portals.conf'), `[preferred]\n${conf || ''}\n`);
      await serve(deliver, what);
      const seen = [await app.run(width), (await reason(app)).slice(0, line.length || 1)];
      assert.deepStrictEqual([...seen, count('Screenshot')], [line ? 0 : 64, line, line ? 0 : 1]);
    }
    // One without screenshots is asked once, and its successor again.
    await serve(deliver, { Get: { error: 'org.freedesktop.DBus.Error.InvalidArgs' } });
    assert.deepStrictEqual([await app.run(width), await app.run(width), count('Get')], [0, 0, 1]);
    await serve(deliver, { Lookup: stored('yes') });
    assert.deepStrictEqual([await app.run(width), await reason(app)], [64, '']);
    // A package's update restarts a back end alone.
    const versions = { Desk: 1 };
    await serve((path) => deliver(path, Object.assign(versions, { Desk: 2 })), { versions });
    assert.deepStrictEqual([await app.run(width), await app.run(width)], [64, 0]);
  }));

test('the permission: its states; one question for all who ask, which always ends', () =>
  withApp(async (app) => {
    const ask = (one) =>
      one.run(async () => {
        const [state, first] = [permission.state(), permission.ask()];
        delete require.cache[require.resolve('../../permission')];
        return [state, await require('../../permission').ask(), await first];
      });
    // How it is, what the portal does when called, how it is then; state, after asking, questions.
    for (const [what, shoot, then, expected, left = false] of [
      [{ versions: { Desk: 1 } }, deliver, NO, 'not needed,not needed,not needed,0'],
      [{ Lookup: stored('yes') }, deliver, stored('yes'), 'granted,granted,granted,0'],
      [{ Lookup: stored('no') }, deliver, stored('no'), 'denied,denied,denied,0'],
      [{ Lookup: 'hang' }, deliver, 'hang', 'unavailable,unavailable,unavailable,0'],
      [{ Get: NO }, deliver, NO, 'unavailable,unavailable,unavailable,0'],
      [{}, deliver, stored('yes'), 'unknown,granted,granted,1'],
      [{}, answer(2, ''), stored('no'), 'unknown,denied,denied,1'],
      [{}, (path) => write() || answer(1)(path), NO, 'unknown,unknown,unknown,1', true],
      [{}, () => void setImmediate(portal.close), NO, 'unknown,unavailable,unavailable,1'],
    ]) {
      await serve((path) => void portal.answer({ Lookup: then }) || shoot(path), what);
      const seen = [...(await ask(app)), count('Screenshot')];
      assert.deepStrictEqual([String(seen), fs.existsSync(picture())], [expected, left]);
    }
    // It ends with the process, and with the bus, as a snapshot does.
    const end = () => portal.hasOwner('a.b').then(shared.bus.stop); // after the reply's delivery
    await serve(() => void (count('Screenshot') === 3 && setImmediate(end)));
    const other = await shared.app({ leaks: false });
    const asked = [other, app].map(ask);
    asked[0].catch(() => {});
    await until(() => count('Screenshot') === 2, 'the questions');
    other.run(() => process.exit(7)).catch(() => {});
    assert.strictEqual((await other.finished()).code, 7, other.output());
    portal.answer({ Lookup: stored('yes') });
    const snapped = [await app.run(width), await reason(app)];
    assert.deepStrictEqual(snapped, [0, 'The session bus has been closed']);
    assert.deepStrictEqual(await asked[1], ['unknown', 'unavailable', 'unavailable']);
    await app.run(() => Object.assign(process.env, { XDG_SESSION_TYPE: 'x11' }));
    assert.deepStrictEqual(await ask(app), Array(3).fill('not needed'));
  }));

test('the name by which a portal files the process is that of its systemd unit', () =>
  withApp(async (app) => {
    const user = '/user.slice/user-1000.slice/user@1000.service/app.slice/';
    const ids = {
      [`0::${user}app-gnome-org.example.App-182352.scope`]: 'org.example.App',
      [`0::${user}app-App-1.scope`]: 'App',
      [`0::${user}app-gnome-my\\x2dapp-1.scope/more`]: 'my-app',
      [`12:pids:/a\n1:name=systemd:${user}app-KDE-App@12af.service\n`]: 'App',
      [`0::${user}app-App-autostart.service`]: 'App',
      [`0::${user}app-gnome-App.mount`]: '',
      [`0::${user}vte-spawn-1-2.scope`]: '',
      '0::/user.slice/user-1000.slice/session-2.scope/app-App-1.scope': '',
    };
    const read = (texts) => texts.map((one) => internals.idOfUserUnit(one));
    assert.deepStrictEqual(await app.run(read, Object.keys(ids)), Object.values(ids));
  }));
