'use strict';

const assert = require('node:assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { test } = require('node:test');
const { BUILD, ENV, NODE, ROOT, start, temporaryFolder } = require('../lib/processes');
const { useSession } = require('../lib/session');

const shared = useSession({ bus: false });
const names = `ScreenLockMonitor init getInputInfo getProcessHandlesInfo getScreenSnap
  getScreenSnapAsync setupLogger setInterval upgrade isWayland teardown`.split(/\s+/);
const folder = temporaryFolder();

test('the exports have their order and names; handles are not counted', () =>
  shared.withApp(async (app) => {
    const found = await app.run(() => Object.keys(kiv).map((name) => [name, kiv[name].name]));
    const expected = names.map((name) => [name, name]);
    assert.deepStrictEqual(found, expected);
    const counts = { handleCount: null, gdiObjectCount: null, guiUserObjectCount: null };
    assert.deepStrictEqual(await app.run(() => kiv.getProcessHandlesInfo(process.pid)), counts);
  }));

for (const type of ['x11', undefined, '', 'X11'])
  test(`the session type ${type} is decided when the module loads`, async () => {
    const wayland = type !== undefined && type !== 'x11';
    const app = await shared.app({ env: { XDG_SESSION_TYPE: type } });
    const other = { XDG_SESSION_TYPE: wayland ? 'x11' : 'wayland' };
    await app.run((env) => Object.assign(process.env, env), other);
    assert.strictEqual(await app.run(() => kiv.isWayland()), wayland);
    await app.end();
  });

test('the add-ons that are shipped link no libnode, with which another Node crashes', () => {
  const expected =
    /^lib(g[td]k|gio|gobject|glib|gdk_pixbuf|cairo|X\w+|stdc|gcc_s|c|m|dl|[au]b?san)\b/;
  for (const name of ['kiv_native', 'kiv_host_loop', 'kiv_host_utils']) {
    const dynamic = execFileSync('readelf', ['-d', path.join(BUILD, `${name}.node`)]);
    const linked = String(dynamic).match(/(?<=NEEDED.*\[)[^\]]+/g);
    const others = linked.filter((library) => !expected.test(library));
    assert.deepStrictEqual(others, [], name);
  }
});

const CONSUMER = `import * as kiv from 'kiv_native';
export const all: Record<keyof typeof kiv, 0> = { ${names.map((name) => `${name}: 0`)} };
const logger: kiv.Logger = (level, text) => console.log(level.toUpperCase(), text.length);
kiv.setupLogger(kiv.isWayland() ? logger : null);
const saved = kiv.getScreenSnap('display', true, '/tmp');
export const where: string = 'ScreenFullPath' in saved ? saved.ScreenFullPath : saved.filename;
kiv.setInterval(() => console.log(kiv.getInputInfo().last.input), 1000);
kiv.getScreenSnapAsync('selection', ({ errorCode, data }) => console.log(errorCode === 102005, data.length));
export const waiting: boolean = kiv.upgrade('/tmp/brenik.deb', true) === 0;
// @ts-expect-error throws
kiv.getScreenSnap('selection');
`;
// Nothing to be reached, and nothing of the user's.
const nowhere = { npm_config_offline: 'true', https_proxy: 'http://127.0.0.1:9/' };
async function run(command, args, cwd, { code = 0, env } = {}) {
  const started = start(command, args, { env: { ...ENV, HOME: folder, ...nowhere, ...env }, cwd });
  assert.deepStrictEqual((await started.ended).code, code, started.output());
  return started.output();
}

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
  assert.deepStrictEqual(built, ['kiv_host_loop.node', 'kiv_host_utils.node', 'kiv_native.node']);
  const script = 'require("kiv_native").isWayland() || require("kiv_native/host").startLoop()';
  assert.strictEqual(await run(NODE, ['-p', script], folder), 'false\n');
  fs.writeFileSync(path.join(folder, 'consumer.ts'), CONSUMER);
  const typeRoots = path.join(ROOT, 'node_modules/@types');
  const args = ['--noEmit', '--strict', '--target', 'es2020', '--moduleResolution', 'node'];
  args.push('--types', 'node', '--typeRoots', typeRoots, 'consumer.ts');
  await run(path.join(ROOT, 'node_modules/.bin/tsc'), args, folder);
});

test('a machine that lacks what the build needs is told all of it at once', async () => {
  const env = { CXX: '/none', PKG_CONFIG_LIBDIR: folder, npm_config_nodedir: folder };
  env.npm_config_node_gyp = __filename; // should it come to that
  const said = await run(NODE, ['src/install.js'], ROOT, { code: 1, env });
  assert.match(said, /install: g(\+\+|cc-c\+\+), (libgtk-3|gtk3)\S+, \S+, \S+, \S+\n$/);
});
