'use strict';

const assert = require('node:assert');
const fs = require('fs');
const { test } = require('node:test');
const { start, until } = require('../lib/processes');
const { useSession } = require('../lib/session');
const { CARDINALS } = require('../lib/x');

const shared = useSession({ wm: 'openbox', bus: false });
const U = 'Undefined';
const NO_PID = 'warn XGetWP2r1:0:0';
const NO_TITLE = 'warn XGetWP4r1:0';
const name = (type, format, value) => [['_NET_WM_NAME', type, format, value]];
const pid = (format, value) => [['_NET_WM_PID', 'CARDINAL', format, value]];
// What a window claims, and what the snapshot and the log say of it.
const CLAIMS = [
  ['nothing at all', [], U, U, [NO_PID, NO_TITLE]],
  ['a title of another name', [['_WM_NAME', 'STRING', 8, 'x']], U, U, [NO_PID, NO_TITLE]],
  ['a title', name('UTF8_STRING', 8, 'Grüße — 日本'), 'Grüße — 日本', U, [NO_PID]],
  ['an empty title', name('UTF8_STRING', 8, ''), '', U, [NO_PID]],
  ['a title with a NUL', name('UTF8_STRING', 8, 'one\0two'), 'one', U, [NO_PID]],
  ['a title that is not UTF-8', name('STRING', 8, [65, 0xff, 0xc3, 66]), 'A��B', U, [NO_PID]],
  ['32-bit items', name('CARDINAL', 32, 'ABCD'), 'ABCD', U, [NO_PID, 'warn XGetWP4r1:32']],
  [
    '5 bytes more than the limit',
    name('STRING', 8, 'x'.repeat((1 << 20) + 5)),
    'x'.repeat(1 << 20),
    U,
    [NO_PID],
  ],
  ['its process', pid(32, CARDINALS(process.pid)), U, 'own', [NO_TITLE]],
  ['a pid of nobody', pid(32, CARDINALS(0x7fffffff)), U, U, [NO_TITLE]],
  ['a pid of one byte', pid(8, [255]), U, null, ['warn XGetWP2r1:8:1', NO_TITLE]],
  ['two pids', pid(32, CARDINALS(0xffffffff, 1)), U, U, ['warn XGetWP2r1:32:2', NO_TITLE]],
];
const commandLine = (id) =>
  fs
    .readFileSync(`/proc/${id}/cmdline`, 'utf8')
    .split('\n')[0]
    .replace(/[ \t]+$/, '');
const texts = async (app) => {
  const { activeWindowTitle, activeProcessName } = await app.run(() =>
    kiv.getScreenSnap('desktop', true),
  );
  return [activeWindowTitle, activeProcessName, await app.log()];
};

test('titles and command lines of active windows, lies included', () =>
  shared.withApp(async (app) => {
    const { x } = shared;
    const id = await x.activeWindow();
    for (const [what, properties, title, command, lines] of CLAIMS) {
      // A window manager may fill in what is missing.
      for (const one of ['_NET_WM_NAME', '_NET_WM_PID']) await x.deleteProperty(id, one);
      for (const property of properties) await x.setProperty(id, ...property);
      const seen = await texts(app);
      const wanted = command === 'own' ? commandLine(process.pid) : command;
      assert.deepStrictEqual(seen, [title, command === null ? seen[1] : wanted, lines], what);
      for (const [property] of properties) await x.deleteProperty(id, property);
    }
    // A process may make its command line as long as its memory.
    const long = start('sh', ['-c', 'read x', ...Array(15).fill('y'.repeat(100000))]);
    await until(() => commandLine(long.pid).startsWith('sh\0'), 'a command line');
    await x.setProperty(id, ...pid(32, CARDINALS(long.pid))[0]);
    assert.strictEqual((await texts(app))[1].length, 1 << 20, 'bytes of a command line');
    await long.stop();
  }));

test('a root window that lies, windows that die while they are read', () =>
  shared.withApp(async (app) => {
    const { x } = shared;
    const dead = x.createWindow();
    x.destroy(dead);
    for (const [lines, ...claim] of [
      [[], 'WINDOW', 32, CARDINALS(dead)],
      [['warn XGetWP1r4:32:100000'], 'WINDOW', 32, CARDINALS(...Array(100000).fill(dead))],
      [['warn XGetWP1r4:8:1'], 'STRING', 8, 'x'],
      [['warn Get Active Task info: c-error'], 'WINDOW', 32, ''],
    ]) {
      await x.setProperty(x.root, '_NET_ACTIVE_WINDOW', ...claim);
      assert.deepStrictEqual(await texts(app), [U, U, lines]);
    }
    await x.deleteProperty(x.root, '_NET_ACTIVE_WINDOW');
    assert.deepStrictEqual((await texts(app))[2], ['warn Get Active Task info: c-error']);
  }));

test('properties of every width; the top-level window is the frame', () =>
  shared.withApp(async (app) => {
    const { x } = shared;
    const id = await x.activeWindow({ title: 'Grüße', pid: process.pid });
    await app.run(() => internals.xOpen(process.env.DISPLAY));
    for (const [format, bytes] of [
      [8, Buffer.from('a\0b')],
      [16, Buffer.from([1, 0, 255, 255, 3, 0])],
      [32, CARDINALS(1, 0xffffffff, 0x80000000)],
    ]) {
      await x.setProperty(id, 'KIV', 'CARDINAL', format, bytes);
      const seen = await app.run((window) => internals.xProperty(window, 'KIV'), id);
      assert.deepStrictEqual(seen, { items: bytes, count: 3, format });
    }
    const top = () => app.run(() => internals.xTopLevel(true));
    const { window, title, process: command } = await top();
    assert.deepStrictEqual([title, command], ['Grüße', commandLine(process.pid)]);
    assert.ok(window !== id && (await x.parent(window)) === x.root, 'the frame');
    x.destroy(id);
    await x.setProperty(x.root, '_NET_ACTIVE_WINDOW', 'WINDOW', 32, CARDINALS(id));
    assert.deepStrictEqual(await top(), { window: 0, title: '', process: U });
  }));
