'use strict';

const assert = require('node:assert');
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const { after, test } = require('node:test');
const { pathToFileURL } = require('node:url');
const { Variant } = require('dbus-next');
const { PNG } = require('pngjs');
const { connect } = require('./lib/bus');
const { until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ display: false, env: { XDG_SESSION_TYPE: 'wayland' } });
after(() => portal?.close());
const REQUEST = 'org.freedesktop.portal.Request';
const STORE = 'org.freedesktop.impl.portal.PermissionStore';
const NO = { error: 'org.example.No', text: 'not today' };
const YES = ['yes'];
const stored = (values) => ({
  signature: 'a{sas}v',
  body: [values ? { '': values } : { other: YES }, new Variant('y', 0)],
});
const width = () => kiv.getScreenSnap('desktop').width;
const picture = () => shared.inside('tmp/a picture');
const write = () => fs.writeFileSync(picture(), PNG.sync.write(new PNG({ width: 64, height: 48 })));
const present = () => Boolean(fs.lstatSync(picture(), { throwIfNoEntry: false }));

/** The portal's answer; what it says instead of a handle, if anything, is returned. */
let portal;
const respond = (path, code = 0, results = { uri: pathToFileURL(picture()).href }) => {
  const values = Object.entries(results).map(([key, value]) => [key, new Variant('s', value)]);
  const body = [code, Object.fromEntries(values)];
  portal.emit(path, REQUEST, 'Response', 'ua{sv}', body);
};
const deliver = (path) => write() || void setImmediate(respond, path);
const count = (member) => portal.calls.filter((call) => call.member === member).length;

/** A new portal in place of the one before, with the versions that its back ends tell. */
async function serve(shoot = deliver, { permission = NO, versions = { Desk: 2 }, ...more } = {}) {
  portal?.close();
  fs.rmSync(picture(), { force: true, recursive: true });
  portal = await connect(shared.bus.address);
  const backEnds = Object.keys(versions).map((name) => `org.example.${name}`);
  for (const name of ['org.freedesktop.portal.Desktop', STORE, ...backEnds]) await portal.own(name);
  const Screenshot = ({ sender, body }) => {
    const place = `${sender.slice(1).replace('.', '_')}/${body[1].handle_token.value}`;
    const path = `/org/freedesktop/portal/desktop/request/${place}`;
    return shoot(path) || { signature: 'o', body: [path] };
  };
  const Get = ({ body, destination }) => {
    const version = body[0].includes('.impl.') ? versions[destination.split('.').pop()] : 2;
    const type = typeof version === 'number' ? 'u' : 's';
    return version ? { signature: 'v', body: [new Variant(type, version)] } : NO;
  };
  portal.answer({ Get, Lookup: permission, Screenshot, Close: {}, ...more });
}

/** What a back end's file says. */
function install(name, desktop) {
  fs.mkdirSync(shared.inside('portals'), { recursive: true });
  const interfaces = 'Interfaces=org.freedesktop.impl.portal.Screenshot;';
  const lines = ['[portal]', `DBusName=org.example.${name}`, interfaces, `UseIn=${desktop}`];
  fs.writeFileSync(shared.inside(`portals/${name.toLowerCase()}.portal`), lines.join('\n'));
}
const withApp = (work, env) => {
  install('Desk', 'desk');
  const desktop = { XDG_CURRENT_DESKTOP: 'Other:DESK' };
  return shared.withApp(work, {
    env: { XDG_DESKTOP_PORTAL_DIR: shared.inside('portals'), ...desktop, ...env },
  });
};
const line = async (app) =>
  (await app.log()).find((one) => one.includes('portal: '))?.split('portal: ')[1];

test('a picture is read and deleted, and whatever else the portal does gives a line', () =>
  withApp(async (app) => {
    const DBUS = ['org.freedesktop.DBus', '/org/freedesktop/DBus'];
    const rules = async () => {
      const all = await shared.peer.call(...DBUS, `${DBUS[0]}.Debug.Stats`, 'GetAllMatchRules');
      return Object.values(all[0]).flat();
    };
    // A portal of an old version chooses the path itself.
    const OTHER = '/org/freedesktop/portal/desktop/request/other';
    const followed = async () => String(await rules()).includes(OTHER);
    const old = () => {
      write();
      until(followed).then(() => respond(OTHER));
      return { signature: 'o', body: [OTHER] };
    };
    const answers =
      (...values) =>
      (path) =>
        void respond(path, ...values);
    const lies = (put) => (path) => put() || respond(path);
    const wrong = (path) => portal.emit(path, REQUEST, 'Response', 's', ['a']);
    const foreign = () => write() || fs.chownSync(picture(), 12, 12);
    const link = () => fs.symlinkSync('/etc/hostname', picture());
    let before;
    // What the portal does, the line, whether something is left at the picture's path.
    for (const [shoot, reason, left = false] of [
      [deliver],
      [(path) => write() || respond(path)], // before its reply
      [old],
      [(path) => void wrong(path), "The portal's answer has another type"],
      [() => ({ signature: 's', body: ['a'] }), 'unexpected reply of type (s), wanted (o)'],
      [answers(1, {}), 'The screenshot was cancelled'],
      [answers(2, {}), 'The portal refuses, or its back end fails'],
      [answers(0, {}), "The portal's answer names no file"],
      [answers(0, { uri: 'http://example.org/a' }), "The portal's answer names no file"],
      [answers(), 'The picture cannot be read: No such file or directory'],
      [lies(link), 'The picture cannot be read: Too many levels of symbolic links', true],
      [lies(() => fs.mkdirSync(picture())), 'The picture is not a regular file', true],
      [lies(() => void execFileSync('mkfifo', [picture()])), 'The picture is not a regular', true],
      ...(process.getuid() ? [] : [[lies(foreign), 'The picture belongs to another user', true]]),
      [lies(() => fs.writeFileSync(picture(), 'text')), 'Couldn'],
      [() => portal.close() || 'hang', 'The portal has ended'],
      [() => setImmediate(portal.close) && undefined, 'The portal has ended'],
      [() => {}, 'The portal does not answer'],
    ]) {
      await serve(shoot, { permission: stored(YES) });
      before = before || (await app.run(width), (await rules()).length);
      const wanted = [reason ? 0 : 64, reason || 'undefined', left];
      const seen = [await app.run(width), String(await line(app)), present()];
      seen[1] = seen[1].slice(0, wanted[1].length);
      assert.deepStrictEqual([...seen, (await rules()).length], [...wanted, before]);
    }
    assert.strictEqual(count('Close'), 1);
  }));

test('no question: a portal that asks is called with a stored yes only', () =>
  withApp(async (app) => {
    const write64 = { permission: stored(YES) };
    const DENIED = 'Screenshots were denied; allow them';
    const UNSET = 'Nobody has allowed screenshots yet';
    const CONF = shared.inside('portals/desk-portals.conf');
    const prefer = (value) => fs.writeFileSync(CONF, `[preferred]\ndefault=none\n${value}\n`);
    install('Old', 'elsewhere');
    for (const [what, reason, looked = 1] of [
      [write64],
      [{ permission: stored(['no']) }, DENIED],
      [{ permission: stored(['ask']) }, 'The desktop would ask each time'],
      [{ permission: stored(['yes', 'yes']) }, UNSET],
      [{ permission: stored() }, UNSET],
      [{ permission: { signature: 's', body: ['yes'] } }, UNSET],
      [{}, UNSET],
      [{ versions: { Desk: 'x' } }, UNSET],
      [{ versions: { Desk: 1 } }, undefined, 0],
      [{ versions: { Desk: 2, Old: 1 }, conf: 'default=gone;old' }, undefined, 0],
      [
        { versions: { Desk: 1, Old: 2 }, conf: 'org.freedesktop.impl.portal.Screenshot=old' },
        UNSET,
      ],
      [{ versions: { Desk: 1, Old: 2 }, conf: 'default=*' }, undefined, 0],
    ]) {
      fs.rmSync(CONF, { force: true });
      if (what.conf) prefer(what.conf);
      await serve(deliver, what);
      const seen = [await app.run(width), await line(app)];
      seen[1] = seen[1]?.slice(0, reason.length);
      const wanted = [reason ? 0 : 64, reason, reason ? 0 : 1, looked];
      assert.deepStrictEqual([...seen, count('Screenshot'), count('Lookup')], wanted);
    }
  }));

test('a portal without screenshots is asked once, and a new one again', () =>
  withApp(async (app) => {
    const missing = { Get: { error: 'org.freedesktop.DBus.Error.InvalidArgs' } };
    for (const [more, expected, asked] of [
      [missing, 0, 1],
      [{ permission: stored(YES) }, 64, 4],
    ]) {
      await serve(deliver, more);
      const seen = [await app.run(width), await app.run(width), count('Get'), await line(app)];
      assert.deepStrictEqual(seen, [expected, expected, asked, undefined]);
    }
  }));

test('the permission: its states, one question for all who ask, an answer in every case', () =>
  withApp(async (app) => {
    const STATE = () => permission.state();
    const ASK = () => Promise.all([permission.ask(), permission.ask()]);
    let entry;
    // What happens before, during the question; the state, after asking; questions.
    for (const [before, during, expected] of [
      [{ versions: { Desk: 1 } }, deliver, 'not needed,not needed,0'],
      [{ permission: stored(YES) }, deliver, 'granted,granted,0'],
      [{ permission: stored(['no']) }, deliver, 'denied,denied,0'],
      [{ Lookup: 'hang' }, deliver, 'unavailable,unavailable,0'],
      [{ Get: NO }, deliver, 'unavailable,unavailable,0'],
      [{}, (path) => (entry = stored(YES)) && deliver(path), 'unknown,granted,1'],
      [{}, (path) => (entry = stored(['no'])) && void respond(path, 2, {}), 'unknown,denied,1'],
      [{}, (path) => void respond(path, 1, {}), 'unknown,unknown,1'],
      [{}, () => setImmediate(portal.close) && undefined, 'unknown,unavailable,1'],
    ]) {
      entry = before.permission || NO;
      await serve(during, { ...before, permission: () => entry });
      const seen = [await app.run(STATE), ...new Set(await app.run(ASK)), count('Screenshot')];
      assert.deepStrictEqual([String(seen), present()], [expected, false]);
    }
    // Whoever closes the bus ends the question, and so does the end of the process.
    await serve(() => {});
    const pending = app.run(() => permission.ask());
    await until(() => count('Screenshot'), 'the question');
    await app.run(() => kiv.teardown());
    assert.strictEqual(await pending, 'unknown');
    await app.run(() => kiv.init());
    const last = await shared.app({ leaks: false });
    const late = last.run(() => permission.ask()).catch(() => 'ended');
    await until(() => count('Screenshot') === 2, 'the question');
    last.run(() => process.exit(7)).catch(() => {});
    assert.deepStrictEqual([(await last.finished()).code, await late], [7, 'ended']);
    const x11 = { XDG_SESSION_TYPE: 'x11' };
    await app.run((env) => Object.assign(process.env, env), x11);
    assert.strictEqual(
      String([await app.run(STATE), ...(await app.run(ASK))]),
      'not needed,not needed,not needed',
    );
  }));

test('the name by which a portal files the process is that of its systemd unit', () =>
  withApp(async (app) => {
    const read = (texts) => texts.map((text) => internals.idOfUserUnit(text));
    const user = '/user.slice/user-1000.slice/user@1000.service/app.slice/';
    const cases = {
      [`0::${user}app-gnome-org.example.App-182352.scope`]: 'org.example.App',
      [`0::${user}app-App-1.scope`]: 'App',
      [`0::${user}app-gnome-my\\x2dapp-1.scope/more`]: 'my-app',
      [`12:pids:/a\n1:name=systemd:${user}app-KDE-App@12af.service\n`]: 'App',
      [`0::${user}app-App-autostart.service`]: 'App',
      [`0::${user}app-gnome-App.mount`]: '',
      [`0::${user}vte-spawn-1-2.scope`]: '',
      '0::/user.slice/user-1000.slice/session-2.scope/app-App-1.scope': '',
      '0::/system.slice/app-App-1.scope': '',
      '': '',
    };
    assert.deepStrictEqual(await app.run(read, Object.keys(cases)), Object.values(cases));
  }));
