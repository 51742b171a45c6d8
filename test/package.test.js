'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { test } = require('node:test');
const { PNG } = require('pngjs');
const { connect } = require('./lib/bus');
const { BUILD, ENV, NODE, ROOT, start, temporaryFolder, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ screens: ['800x600'], wm: 'openbox' });
const folder = temporaryFolder();
const names = `ScreenLockMonitor init getInputInfo getProcessHandlesInfo getScreenSnap
  getScreenSnapAsync setupLogger setInterval upgrade isWayland teardown`.split(/\s+/);
// Nothing to be reached, and nothing of the user's.
const nowhere = { npm_config_offline: 'true', https_proxy: 'http://127.0.0.1:9/', HOME: folder };
async function run(command, args, cwd, code = 0, env = {}) {
  const started = start(command, args, { env: { ...ENV, ...nowhere, ...env }, cwd });
  assert.strictEqual((await started.ended).code, code, started.output());
  return started.output();
}

test('the exports have their order and names; handles are not counted', () =>
  shared.withApp(async (app) => {
    const found = await app.run(() => Object.keys(kiv).map((name) => [name, kiv[name].name]));
    const expected = names.map((name) => [name, name]);
    assert.deepStrictEqual(found, expected);
    const counts = { handleCount: null, gdiObjectCount: null, guiUserObjectCount: null };
    assert.deepStrictEqual(await app.run(() => kiv.getProcessHandlesInfo(process.pid)), counts);
  }));

test('a session type counts that is set when the module loads', async () => {
  for (const type of ['x11', undefined, '', 'X11']) {
    const app = await shared.app({ env: { XDG_SESSION_TYPE: type } });
    await app.run(() => (process.env.XDG_SESSION_TYPE = kiv.isWayland() ? 'x11' : ''));
    assert.strictEqual(await app.run(() => kiv.isWayland()), type === '' || type === 'X11', type);
    await app.end();
  }
});

test('the add-ons that are shipped link no libnode, with which another Node crashes', () => {
  const expected = /^lib(g(tk|dk\w*|io|object|lib)|cairo|X\w+|stdc|gcc_s|c|m|dl|[au]b?san)\b/;
  for (const name of ['kiv_native', 'kiv_host_loop', 'kiv_host_utils']) {
    const dynamic = execFileSync('readelf', ['-d', path.join(BUILD, `${name}.node`)]);
    for (const [library] of String(dynamic).matchAll(/(?<=NEEDED.*\[)[^\]]+/g))
      assert.match(library, expected, name);
  }
});

// npm builds for its own Node.
const options = { skip: Boolean(process.env.KIV_NODE), timeout: 1800000 };
test('the packed module is whole: installs offline, loads, has its types', options, async () => {
  const packed = await run('npm', ['pack', '--json', '--pack-destination', folder], ROOT);
  const [{ filename, files }] = JSON.parse(packed);
  const odd = /^(\.|test|fuzz|bench|demo|examples|scripts|build)/;
  assert.ok(!files.some((file) => odd.test(file.path)), packed);
  fs.writeFileSync(path.join(folder, 'package.json'), '{}');
  await run('npm', ['install', '--no-audit', filename], folder);
  const built = fs.readdirSync(path.join(folder, 'node_modules/kiv_native/build/Release'));
  assert.strictEqual(String(built), 'kiv_host_loop.node,kiv_host_utils.node,kiv_native.node');
  const script = 'require("kiv_native").isWayland() || require("kiv_native/host").startLoop()';
  assert.strictEqual(await run(NODE, ['-p', script], folder), 'false\n');
  const consumer = `import * as kiv from 'kiv_native';
    export const all: Record<keyof typeof kiv, 0> = { ${names.map((name) => `${name}: 0`)} };
    const saved = kiv.getScreenSnap('display', true, '/tmp');
    export const text: string = 'screen_hash' in saved ? saved.screen_hash : saved.filename;
    kiv.getScreenSnapAsync('selection', ({ errorCode }) => console.log(errorCode === 102005));
    // @ts-expect-error throws
    kiv.getScreenSnap('selection');`;
  fs.writeFileSync(path.join(folder, 'consumer.ts'), consumer);
  const types = ['--types', 'node', '--typeRoots', path.join(ROOT, 'node_modules/@types')];
  const args = ['--noEmit', '--strict', '--target', 'es2020', '--moduleResolution', 'node'];
  await run(path.join(ROOT, 'node_modules/.bin/tsc'), [...args, ...types, 'consumer.ts'], folder);
});

test('a machine that lacks what the build needs is told all of it at once', async () => {
  const env = { CXX: '/none', PKG_CONFIG_LIBDIR: folder, npm_config_nodedir: folder };
  env.npm_config_node_gyp = require.resolve('pngjs'); // should it come to that
  const said = await run(NODE, ['src/install.js'], ROOT, 1, env);
  assert.match(said, /install: g(\+\+|cc-c\+\+), (libgtk-3|gtk3)\S+, \S+, \S+, \S+\n$/);
});

const own = { skip: BUILD !== path.join(ROOT, 'build/Release') && 'not the build they use' };
const example = (line) =>
  start(NODE, `examples/${line}`.split(' '), { env: shared.env, cwd: ROOT });
async function endOf(started, pattern) {
  assert.deepStrictEqual(await started.ended, { code: 0, signal: null }, started.output());
  assert.match(started.output(), pattern);
}

test('the examples log all input and locks once, and keep the newest pictures', own, async () => {
  const { env, inside, x } = shared;
  const log = example(`activity-log.js ${inside('log')} --every 1`);
  const lines = () => fs.readFileSync(inside('log'), 'utf8').match(/.+/g).map(JSON.parse);
  await log.ready(() => fs.existsSync(inside('log')) && fs.statSync(inside('log')).size, 'a line');
  for (let i = 0; i < 3; ++i) x.key();
  x.click();
  const shots = example(`snapshot-every-minute.js ${inside('shots')} --every 1 --idle 3 --keep 2`);
  const count = (text) => shots.output().split(text).length - 1;
  await shots.ready(() => count('skipped: idle') > 0, 'nobody there');
  const taken = count('.jpg: 800 x 600');
  const [day] = fs.readdirSync(inside('shots'));
  assert.deepStrictEqual([taken > 2, fs.readdirSync(inside(`shots/${day}`)).length], [true, 2]);
  const peer = await connect(env.DBUS_SESSION_BUS_ADDRESS);
  const [object, name] = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver'];
  for (const [event, active] of Object.entries({ lock: true, unlock: false })) {
    await until(() => {
      // Nobody tells when an example has subscribed; many desktops say it twice.
      for (let i = 0; i < 2; ++i) peer.emit(object, name, 'ActiveChanged', 'b', [active]);
      return count('skipped: locked') > 0 && lines().some((line) => line.event === event);
    }, event);
    x.key();
    const skipped = count('skipped: locked');
    await until(() => (active ? count('skipped: locked') > skipped : count('.jpg') > taken), event);
    assert.strictEqual(count('.jpg') > taken, !active);
  }
  peer.close();
  for (const { child } of [log, shots]) child.kill('SIGINT');
  await endOf(shots, /800 x 600\n$/);
  await endOf(log, /^(warn: Get Active Task info: c-error\n)*$/);
  const sum = (key) => lines().reduce((total, line) => total + line[key], 0);
  assert.deepStrictEqual([sum('keys'), sum('clicks')], [5, 1]);
  const events = lines().map(({ event }) => event);
  assert.ok(events.includes('tick') && lines().every(({ idle }) => idle >= 0));
  assert.strictEqual(String(events.filter((one) => one !== 'tick')), 'start,lock,unlock,stop');
});

test("the example's button selects; its window shows and saves the rectangle", own, async () => {
  const { x } = shared;
  const green = await x.activeWindow({ width: 200, height: 100, color: 0x20c040 });
  const { x: left, y: top } = await x.geometry(green);
  const isGreen = async () => (await x.pixel(left + 5, top + 5)) === 0x20c040;
  const window = example(`selection-button ${shared.folder}`);
  const managed = () => x.getProperty(x.root, '_NET_CLIENT_LIST');
  await window.ready(async () => (await managed()).length === 8, 'the window');
  const id = (await managed()).readUInt32LE(4);
  const at = await x.geometry(id);
  const button = [at.x + 40, at.y + at.height - 20];
  await until(async () => (await x.pixel(...button)) > 0xc00000 && isGreen(), 'a drawn button');
  x.moveTo(...button);
  x.click();
  await until(async () => !(await isGreen()), 'a dimmed desktop');
  x.moveTo(left + 20, top + 20);
  x.press();
  x.moveTo(left + 50, top + 30);
  x.moveTo(left + 120, top + 70);
  x.release();
  const saved = () => /^100 × 50, saved as (.*)\n/.exec(window.output());
  const picture = PNG.sync.read(fs.readFileSync((await window.ready(saved, 'a rectangle'))[1]));
  assert.ok(picture.data.equals(Buffer.alloc(100 * 50 * 4, Buffer.from([0x20, 0xc0, 0x40, 255]))));
  const area = () => x.image(at.x, at.y, at.width, at.height);
  await until(async () => (await area()).includes('\x40\xc0\x20', 'latin1'), 'a shown picture');
  x.closeWindow(id);
  await endOf(window, /^100 × 50.*\n$/);
});
