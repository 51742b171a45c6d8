'use strict';

const assert = require('node:assert');
const fs = require('fs');
const { test } = require('node:test');
const { start, until } = require('./lib/processes');
const { useSession } = require('./lib/session');
const { CARDINALS } = require('./lib/x');

const shared = useSession({ wm: 'openbox', bus: false });
const inApp = (title, f, options) =>
  test(title, () => shared.withApp((app) => f(app, shared.x), options));
const commandLine = (pid) => fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8');
const texts = (app) =>
  app.run(() => {
    const { activeWindowTitle, activeProcessName } = kiv.getScreenSnap('desktop', true);
    return [activeWindowTitle, activeProcessName, log.splice(0)];
  });

const U = 'Undefined';
const TITLE = '_NET_WM_NAME';
const PID = '_NET_WM_PID';
const LONG = 'x'.repeat(1 << 20);
// What a window claims; title, process and warning of the snapshot. Null: whatever it is.
const CLAIMS = [
  ['nothing at all', ['_WM_NAME', 'STRING', 8, 'x'], U, U],
  ['a title', [TITLE, 'UTF8_STRING', 8, 'Grüße — 日本'], 'Grüße — 日本', U],
  ['an empty title', [TITLE, 'UTF8_STRING', 8, ''], '', U],
  ['a title with a NUL', [TITLE, 'UTF8_STRING', 8, 'one\0two'], 'one', U],
  ['a title that is not UTF-8', [TITLE, 'STRING', 8, [65, 0xff, 0xc3, 66]], 'A��B', U],
  ['a title of 32-bit items', [TITLE, 'CARDINAL', 32, 'ABCD'], 'ABCD', U, 'warn XGetWP4r1:32'],
  ['a title above the limit', [TITLE, 'STRING', 8, `${LONG}12345`], LONG, U],
  ['its process', [PID, 'CARDINAL', 32, CARDINALS(process.pid)], U, commandLine(process.pid)],
  ['a pid of nobody', [PID, 'CARDINAL', 32, CARDINALS(0x7fffffff)], U, U],
  ['a pid of one byte', [PID, 'CARDINAL', 8, [255]], U, null, 'warn XGetWP2r1:8:1'],
  ['two pids', [PID, 'CARDINAL', 32, CARDINALS(0xffffffff, 1)], U, U, 'warn XGetWP2r1:32:2'],
];

inApp('titles and command lines of active windows, lies included', async (app, x) => {
  const id = await x.activeWindow();
  for (const [what, property, title, command, warning] of CLAIMS) {
    // A window manager may fill in what is missing.
    for (const name of [TITLE, PID]) await x.deleteProperty(id, name);
    await x.setProperty(id, ...property);
    const seen = await texts(app);
    const noPid = property[0] === PID ? warning : 'warn XGetWP2r1:0:0';
    const noTitle = property[0] === TITLE ? warning : 'warn XGetWP4r1:0';
    const wanted = [title, command ?? seen[1], [noPid, noTitle].filter(Boolean)];
    assert.deepStrictEqual(seen, wanted, what);
  }
  // A process may make its command line as long as its memory.
  const long = start('sh', ['-c', 'read x', ...Array(15).fill('y'.repeat(100000))]);
  await until(() => commandLine(long.pid).startsWith('sh\0'), 'a command line');
  await x.setProperty(id, PID, 'CARDINAL', 32, CARDINALS(long.pid));
  assert.strictEqual((await texts(app))[1].length, 1 << 20, 'bytes of a command line');
  await long.stop();
});

const lies = async (app, x) => {
  // Without GTK, whose error handler is a patient one.
  await app.run(() => {
    kiv.setupLogger((...line) => log.push(line.join(' ')));
    kiv.init();
  });
  const dead = x.createWindow();
  x.destroy(dead);
  const many = CARDINALS(...Array(100000).fill(dead));
  for (const [line, ...claim] of [
    [[], 'WINDOW', 32, CARDINALS(dead)],
    ['warn XGetWP1r4:32:100000', 'WINDOW', 32, many],
    ['warn XGetWP1r4:8:1', 'STRING', 8, 'x'],
    ['warn Get Active Task info: c-error', 'WINDOW', 32, ''],
  ]) {
    await x.setProperty(x.root, '_NET_ACTIVE_WINDOW', ...claim);
    assert.deepStrictEqual(await texts(app), [U, U, [line].flat()]);
  }
  await x.deleteProperty(x.root, '_NET_ACTIVE_WINDOW');
  assert.deepStrictEqual(await texts(app), [U, U, ['warn Get Active Task info: c-error']]);
};
const title = 'a root window that lies, windows that die while they are read';
inApp(title, lies, { setUp: false });

inApp('properties of every width; the top-level window is the frame', async (app, x) => {
  const id = await x.activeWindow({ title: 'Grüße', pid: process.pid });
  await app.run(() => internals.xOpen(process.env.DISPLAY));
  for (const format of [8, 16, 32]) {
    const items = CARDINALS(1, 0xffffffff, 0x80000000).subarray(0, (3 * format) / 8);
    await x.setProperty(id, 'KIV', 'CARDINAL', format, items);
    const seen = await app.run((window) => internals.xProperty(window, 'KIV'), id);
    assert.deepStrictEqual(seen, { items, count: 3, format });
  }
  const top = () => app.run(() => internals.xTopLevel(true));
  const { window, title, process: command } = await top();
  assert.deepStrictEqual([title, command], ['Grüße', commandLine(process.pid)]);
  assert.ok(window !== id && (await x.parent(window)) === x.root, 'the frame');
  // Not the managed one, whose end the window manager would tell.
  const dead = x.createWindow();
  x.destroy(dead);
  await x.setProperty(x.root, '_NET_ACTIVE_WINDOW', 'WINDOW', 32, CARDINALS(dead));
  assert.deepStrictEqual(await top(), { window: 0, title: '', process: U });
});
