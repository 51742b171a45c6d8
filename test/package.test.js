'use strict';

const assert = require('node:assert');
const fs = require('fs');
const { test } = require('node:test');
const { PNG } = require('pngjs');
const { act } = require('./lib/overlay');
const { BUILD, ENV, NODE, ROOT, start, temporaryFolder, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ screens: ['800x600'], wm: 'openbox' });
const folder = temporaryFolder();
const CLIENTS = '_NET_CLIENT_LIST';
const names = `ScreenLockMonitor init getInputInfo getProcessHandlesInfo getScreenSnap
  getScreenSnapAsync setupLogger setInterval upgrade isWayland teardown`.split(/\s+/);

test('exports have names and order, handle counts are null, isWayland is right', async () => {
  const look = () => {
    const own = Object.values(kiv).map(({ name }) => name);
    return [Object.keys(kiv), own, kiv.getProcessHandlesInfo(process.pid), kiv.isWayland()];
  };
  const counts = { handleCount: null, gdiObjectCount: null, guiUserObjectCount: null };
  for (const type of [undefined, 'x11', '']) {
    const seen = await shared.withApp((app) => app.run(look), { env: { XDG_SESSION_TYPE: type } });
    assert.deepStrictEqual(seen, [names, names, counts, type === '']);
  }
});

async function run(cwd, line) {
  const [command, ...args] = line.split(' ');
  // No network, and none of the user's files.
  const nowhere = { npm_config_offline: 'true', https_proxy: 'http://127.0.0.1:9/', HOME: folder };
  const started = start(command, args, { env: { ...ENV, ...nowhere }, cwd });
  assert.strictEqual((await started.finished(1800000)).code, 0, started.output());
  return started.output();
}
// npm builds for its own Node version.
const options = { skip: Boolean(process.env.KIV_NODE), timeout: 1800000 };
test('the packed module installs offline, loads and has its types', options, async () => {
  const [{ filename, files }] = JSON.parse(await run(folder, `npm pack --json ${ROOT}`));
  const odd = files.find(
    (one) => !/^(bin|src|host|permission|docs|examples|node_modules|\w+\.)/.test(one.path),
  );
  assert.strictEqual(odd, undefined);
  await run(folder, `npm install --prefix . --no-audit ${filename}`);
  const installed = `${folder}/node_modules/kiv_native`;
  const build = `${installed}/build/Release`;
  const built = fs.readdirSync(build).join(' ');
  const ADDONS = 'kiv_host_loop.node kiv_host_utils.node kiv_native.node kiv_permission.node';
  assert.strictEqual(built, ADDONS);
  assert.doesNotMatch(await run(build, `readelf -d ${built}`), /libnode/, 'another Node crashes');
  const loads = 'require("kiv_native").isWayland(),require("kiv_native/host").startLoop()';
  const script = `[${loads},require("kiv_native/permission").state()].join()`;
  assert.strictEqual(await run(folder, `${NODE} -p ${script}`), 'false,false,not needed\n');
  // The same files as scripts/package lays them out.
  for (const file of built.split(' ')) {
    const prebuilt = `${installed}/prebuilt/${file.split('.')[0]}/prebuilds/linux-${process.arch}`;
    fs.mkdirSync(prebuilt, { recursive: true });
    fs.renameSync(`${build}/${file}`, `${prebuilt}/node.abi${process.versions.modules}.glibc.node`);
  }
  assert.match(await run(installed, `${NODE} src/install.js`), /^kiv_native: using .*\n$/);
  assert.strictEqual(await run(folder, `${NODE} -p ${script}`), 'false,false,not needed\n');
  const consumer = `import * as kiv from 'kiv_native';
    import { ask, type PermissionState } from 'kiv_native/permission';
    export const asked: Promise<PermissionState> = ask();
    export const all: Record<keyof typeof kiv, 0> = { ${names.map((name) => `${name}: 0`)} };
    const saved = kiv.getScreenSnap('display', true, '/tmp');
    export const text: string = 'screen_hash' in saved ? saved.screen_hash : saved.filename;
    kiv.getScreenSnapAsync('selection', ({ errorCode }) => console.log(errorCode === 102005));
    // @ts-expect-error throws
    kiv.getScreenSnap('selection');`;
  fs.writeFileSync(`${folder}/consumer.ts`, consumer);
  await run(ROOT, `node_modules/.bin/tsc --strict -t es2020 -m commonjs ${folder}/consumer.ts`);
});

const own = { skip: BUILD !== `${ROOT}/build/Release` && 'the examples use another build' };
test('the examples log input and locks, keep a picture, save a rectangle', own, async () => {
  const { env, inside, peer, x } = shared;
  const example = (line) => {
    const started = start(NODE, `examples/${line}`.split(' '), { env, cwd: ROOT });
    shared.stops.push(started.stop);
    return started;
  };
  await x.wallpaper(800, 600, Buffer.alloc(800 * 600 * 4, Buffer.from([0x40, 0xc0, 0x20, 0])));
  const permission = example('ask-permission.js');
  await permission.ready(async () => (await x.getProperty(x.root, CLIENTS)).length, 'a window');
  await x.closeWindow((await x.getProperty(x.root, CLIENTS)).readUInt32LE(0));
  await permission.finished();
  assert.strictEqual(permission.text[1], 'This desktop does not ask. A screenshot works.\n');
  const log = example(`activity-log.js ${inside('log')} --every 9999`);
  const text = () => fs.readFileSync(inside('log'), { encoding: 'utf8', flag: 'a+' });
  const lines = () => text().match(/.+/g)?.map(JSON.parse);
  await log.ready(lines, 'a line');
  act(x, 38, 'click');
  await x.sync();
  const shots = example(`snapshot-every-minute.js ${inside('shots')} --every 1 --keep 1`);
  for (const name of ['lock', 'unlock']) {
    const locked = name === 'lock';
    await until(() => {
      peer.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', 'b', [locked]);
      return lines().at(-1).event === name && shots.text[1].endsWith(locked ? 'locked\n' : '600\n');
    }, `the ${name} event`);
  }
  for (const { child } of [log, shots]) child.kill('SIGINT');
  const button = example(`selection-button ${folder}`);
  await button.ready(async () => {
    x.key(65); // the space bar, which presses the button
    return (await x.pixel(690, 540)) !== 0x20c040;
  }, 'a dimmed desktop');
  act(x, [690, 540], 'press', [790, 590], 'release');
  const saved = () => /^100 × 50, saved as (.*)\n/.exec(button.text[1]);
  const { data } = PNG.sync.read(fs.readFileSync((await button.ready(saved, 'a rectangle'))[1]));
  assert.ok(data.equals(Buffer.alloc(100 * 50 * 4, Buffer.from([0x20, 0xc0, 0x40, 255]))));
  await x.closeWindow((await x.getProperty(x.root, CLIENTS)).readUInt32LE(0));
  for (const one of [permission, log, shots, button])
    assert.deepStrictEqual(await one.finished(), { code: 0, signal: null }, one.output());
  const counts = lines().map(({ event, keys, clicks }) => `${event} ${keys} ${clicks}`);
  assert.strictEqual(String(counts), 'start 0 0,lock 1 1,unlock 0 0,stop 0 0');
  assert.match(String(fs.readdirSync(inside('shots'), { recursive: true })), /^[^,]+,[^,]+\.jpg$/);
});

test('the child that takes snapshots is started again, and ends with its parent', own, async () => {
  const line = ['examples/snapshot-in-child', shared.inside('in-child'), '--every', '1'];
  const parent = start(NODE, line, { env: shared.env, cwd: ROOT });
  shared.stops.push(parent.stop);
  const children = `/proc/${parent.pid}/task/${parent.pid}/children`;
  const child =
    (not = '') =>
    () =>
      Number(fs.readFileSync(children, 'utf8').replace(not, ''));
  const pictures = () => parent.text[1].split('.jpg: 800 x 600').length;
  await parent.ready(() => pictures() > 1, 'a picture');
  const first = child()();
  process.kill(first, 'SIGKILL');
  const second = await parent.ready(child(first), 'another child');
  const before = pictures();
  await parent.ready(() => pictures() > before, 'its picture');
  parent.child.kill('SIGKILL');
  await until(() => !fs.existsSync(`/proc/${second}/exe`), 'the end of the child');
});
