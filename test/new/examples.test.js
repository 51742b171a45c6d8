'use strict';

const assert = require('node:assert');
const fs = require('fs');
const path = require('path');
const { test } = require('node:test');
const { PNG } = require('pngjs');
const { connect } = require('../lib/bus');
const { BUILD, NODE, ROOT, start, until } = require('../lib/processes');
const { useSession } = require('../lib/session');
const { ESCAPE } = require('../lib/x');

const shared = useSession({ screens: ['800x600'], wm: 'openbox' });
const options = { skip: BUILD !== path.join(ROOT, 'build/Release') && 'not the build they use' };
const example = (line) =>
  start(NODE, `examples/${line}`.split(' '), { env: shared.env, cwd: ROOT });
// Repeated, since nobody tells when the example has subscribed.
async function lock(active, seen) {
  const peer = await connect(shared.env.DBUS_SESSION_BUS_ADDRESS);
  const [object, name] = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver'];
  await until(() => peer.emit(object, name, 'ActiveChanged', 'b', [active]) || seen());
  peer.close();
}
async function interrupt(started, pattern) {
  started.child.kill('SIGINT');
  assert.deepStrictEqual(await started.ended, { code: 0, signal: null });
  assert.match(started.output(), pattern);
}

test('the log has every key, click and change of the lock, once', options, async () => {
  const { inside, x } = shared;
  const work = await x.activeWindow({ title: 'Work', pid: process.pid });
  const log = example(`activity-log.js ${inside('log')} --every 1 --title`);
  const lines = () => fs.readFileSync(inside('log'), 'utf8').match(/.+/g).map(JSON.parse);
  const sum = (name) => lines().reduce((total, line) => total + line[name], 0);
  const events = () => lines().map(({ event }) => event);
  await log.ready(() => fs.existsSync(inside('log')) && fs.statSync(inside('log')).size, 'a line');
  for (let i = 0; i < 3; ++i) x.key();
  x.click();
  await lock(true, () => events().includes('lock'));
  await lock(false, () => events().includes('unlock'));
  await until(() => sum('keys') === 3 && events().includes('tick'));
  await interrupt(log, /^$/);
  x.destroy(work);
  const other = events().filter((event) => event !== 'tick');
  assert.deepStrictEqual(other, ['start', 'lock', 'unlock', 'stop']);
  assert.deepStrictEqual([sum('keys'), sum('clicks')], [3, 1]);
  assert.ok(lines().every(({ title, idle }) => title === 'Work' && idle >= 0));
  assert.strictEqual(fs.statSync(inside('log')).mode & 0o777, 0o600);
});

test('the newest pictures are kept; none is taken when idle or locked', options, async () => {
  const { inside, x } = shared;
  x.key();
  const folder = inside('pictures');
  const taking = example(`snapshot-every-minute.js ${folder} --every 1 --idle 3 --keep 2`);
  const count = (text) => taking.output().split(text).length - 1;
  await taking.ready(() => count('skipped: idle') > 1, 'nobody there');
  const taken = count('.jpg: 800 x 600');
  assert.ok(taken > 2, taking.output());
  const [day] = fs.readdirSync(folder);
  const names = fs.readdirSync(path.join(folder, day)).map((name) => `${day}/${name}`);
  for (const name of names) {
    assert.match(name, /^20\d\d-\d\d-\d\d\/\d\d-\d\d-\d\d\.\d{3}\.jpg$/);
    assert.strictEqual(fs.statSync(path.join(folder, name)).mode & 0o777, 0o600);
  }
  assert.strictEqual(names.length, 2);
  await lock(true, () => count('skipped: locked') > 0);
  x.key();
  await until(() => count('skipped: locked') > 2);
  assert.strictEqual(count('.jpg'), taken);
  await lock(false, () => x.key() || count('.jpg') > taken);
  await interrupt(taking, /jpg: 800 x 600\n$/);
});

test('a click on the button selects; the window shows the rectangle', options, async () => {
  const { folder, x } = shared;
  const green = await x.activeWindow({ width: 200, height: 100, color: 0x20c040 });
  const { x: left, y: top } = await x.geometry(green);
  const isGreen = async () => (await x.pixel(left + 5, top + 5)) === 0x20c040;
  const window = example(`selection-button ${folder}`);
  const managed = () => x.getProperty(x.root, '_NET_CLIENT_LIST');
  await window.ready(async () => (await managed()).length === 8, 'the window');
  const id = (await managed()).readUInt32LE(4);
  const place = () => x.geometry(id);
  const open = async () => {
    const at = await place();
    const button = [at.x + 40, at.y + at.height - 20];
    await until(async () => (await x.pixel(...button)) > 0xc00000 && isGreen(), 'a drawn button');
    x.moveTo(...button);
    x.click();
    await until(async () => !(await isGreen()), 'a dimmed desktop');
  };
  await open();
  x.moveTo(left + 20, top + 20);
  x.press();
  x.moveTo(left + 50, top + 30);
  x.moveTo(left + 120, top + 70);
  x.release();
  const saved = () => /^100 × 50, saved as (.*)\n/.exec(window.output());
  const picture = PNG.sync.read(fs.readFileSync((await window.ready(saved, 'a rectangle'))[1]));
  assert.ok(picture.data.equals(Buffer.alloc(100 * 50 * 4, Buffer.from([0x20, 0xc0, 0x40, 255]))));
  const shown = async ({ x: at, y, width, height } = {}) =>
    (await x.image(at, y, width, height)).includes('\x40\xc0\x20', 'latin1');
  await until(async () => shown(await place()), 'the rectangle in the window');
  await open();
  x.key(ESCAPE);
  await window.ready(() => /Cancelled\n$/.test(window.output()), 'an end by Escape');
  x.closeWindow(id);
  assert.deepStrictEqual(await window.ended, { code: 0, signal: null });
});
