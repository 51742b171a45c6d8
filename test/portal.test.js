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

const NO = { error: 'org.example.No', text: 'not today' };
const stored = (...values) => {
  const entries = values.length ? { '': values } : { other: ['yes'] };
  return { signature: 'a{sas}v', body: [entries, new Variant('y', 0)] };
};
const shared = useSession({ display: false, env: { XDG_SESSION_TYPE: 'wayland' } });
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
 * Replaces the portal. `versions` are those of its back ends. `shoot` gets the request's path and
 * may return another reply.
 */
async function serve(shoot, { Lookup = NO, versions = { Desk: 2 }, ...more } = {}) {
  portal?.close();
  fs.rmSync(picture(), { force: true, recursive: true });
  portal = await connect(shared.bus.address);
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
  const env = {
    XDG_CURRENT_DESKTOP: 'Other:DESK',
    XDG_DESKTOP_PORTAL_DIR: shared.inside('portals'),
  };
  return shared.withApp(work, { env });
};
const reason = async (app) => /portal: (.*)/.exec((await app.log()).join('\n'))?.[1] || '';

test('a picture is read and deleted; any other answer of the portal logs one line', () =>
  withApp(async (app) => {
    const rules = async () => {
      const call = [
        'org.freedesktop.DBus',
        '/org/freedesktop/DBus',
        'org.freedesktop.DBus.Debug.Stats',
      ];
      const [all] = await shared.peer.call(...call, 'GetAllMatchRules');
      return Object.values(all).flat();
    };
    // Old versions choose another path.
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
    await serve(deliver, { Lookup: stored('yes') });
    await app.run(width);
    const before = (await rules()).length;
    // What the portal does; the log line; whether something is left at the picture's path.
    for (const [shoot, line, left = false] of [
      [(path) => write() || respond(path), ''], // responds before it replies
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
      [lie(() => put('text')), 'Couldn'],
      [() => portal.close() || 'hang', 'The portal has ended'],
      [() => void setImmediate(portal.close), 'The portal has ended'],
      [() => {}, 'The portal does not answer'],
    ]) {
      await serve(shoot, { Lookup: stored('yes') });
      const seen = [await app.run(width), (await reason(app)).slice(0, line.length)];
      const present = Boolean(fs.lstatSync(picture(), { throwIfNoEntry: false }));
      const wanted = [line ? 0 : 64, line, left];
      assert.deepStrictEqual([...seen, present], wanted);
      await until(async () => (await rules()).length === before, 'its match rules to be removed');
    }
    assert.strictEqual(count('Close'), 1);
  }));

test('a snapshot shows no question: a portal that asks is called only with a stored yes', () =>
  withApp(async (app) => {
    const UNSET = 'Nobody has allowed screenshots yet';
    // The portal's properties; the log line; the number of permission look-ups.
    for (const [{ conf, ...what }, line, looked = 1] of [
      [{ Lookup: stored('yes') }, ''],
      [{ Lookup: stored('no') }, 'Screenshots were denied'],
      [{ Lookup: stored('ask') }, 'The desktop would ask each time'],
      [{ Lookup: stored('yes', 'yes') }, UNSET],
      [{ Lookup: stored() }, UNSET],
      [{ Lookup: { signature: 's', body: ['yes'] } }, UNSET],
      [{}, UNSET],
      [{ versions: { Desk: 'x' } }, UNSET],
      [{ versions: { Desk: 1 } }, '', 0],
      [{ versions: { Desk: 2, Old: 1 }, conf: 'default=gone;old' }, '', 0],
      [
        { versions: { Desk: 1, Old: 2 }, conf: 'org.freedesktop.impl.portal.Screenshot=old' },
        UNSET,
      ],
      [{ versions: { Desk: 1, Old: 2 }, conf: 'default=*' }, '', 0],
    ]) {
      fs.writeFileSync(shared.inside('portals/desk-portals.conf'), `[preferred]\n${conf || ''}\n`);
      await serve(deliver, what);
      const seen = [await app.run(width), (await reason(app)).slice(0, line.length || 1)];
      const wanted = [line ? 0 : 64, line, line ? 0 : 1, looked];
      assert.deepStrictEqual([...seen, count('Screenshot'), count('Lookup')], wanted);
    }
    // A portal without screenshots is asked once. Its successor is asked again.
    await serve(deliver, { Get: { error: 'org.freedesktop.DBus.Error.InvalidArgs' } });
    assert.deepStrictEqual([await app.run(width), await app.run(width), count('Get')], [0, 0, 1]);
    await serve(deliver, { Lookup: stored('yes') });
    assert.deepStrictEqual([await app.run(width), await reason(app)], [64, '']);
  }));

test('state() is right; ask() shows one question for all callers and always resolves', () =>
  withApp(async (app) => {
    const STATE = () => permission.state();
    const ask = (one) => one.run(() => Promise.all([permission.ask(), permission.ask()]));
    // Before; what the portal does when called; permission after; state, two answers, questions.
    for (const [what, shoot, then, expected] of [
      [{ versions: { Desk: 1 } }, deliver, NO, 'not needed,not needed,not needed,0'],
      [{ Lookup: stored('yes') }, deliver, stored('yes'), 'granted,granted,granted,0'],
      [{ Lookup: stored('no') }, deliver, stored('no'), 'denied,denied,denied,0'],
      [{ Lookup: 'hang' }, deliver, 'hang', 'unavailable,unavailable,unavailable,0'],
      [{ Get: NO }, deliver, NO, 'unavailable,unavailable,unavailable,0'],
      [{}, deliver, stored('yes'), 'unknown,granted,granted,1'],
      [{}, answer(2, ''), stored('no'), 'unknown,denied,denied,1'],
      [{}, answer(1, ''), NO, 'unknown,unknown,unknown,1'],
      [{}, () => void setImmediate(portal.close), NO, 'unknown,unavailable,unavailable,1'],
    ]) {
      await serve((path) => void portal.answer({ Lookup: then }) || shoot(path), what);
      const seen = [await app.run(STATE), ...(await ask(app)), count('Screenshot')];
      assert.deepStrictEqual([String(seen), fs.existsSync(picture())], [expected, false]);
    }
    // The question ends with the process's bus connection and with the process.
    await serve(() => {});
    const asked = ask(app);
    await until(() => count('Screenshot'), 'the question');
    await app.run(() => kiv.teardown() || kiv.init());
    assert.deepStrictEqual(await asked, ['unknown', 'unknown']);
    const other = await shared.app({ leaks: false });
    ask(other).catch(() => {});
    await until(() => count('Screenshot') === 2, 'the question');
    other.run(() => process.exit(7)).catch(() => {});
    assert.strictEqual((await other.finished()).code, 7, other.output());
    await app.run(() => Object.assign(process.env, { XDG_SESSION_TYPE: 'x11' }));
    const those = [await app.run(STATE), ...(await ask(app))];
    assert.deepStrictEqual(those, Array(3).fill('not needed'));
  }));

test("the process's application id is that of its systemd unit", () =>
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
