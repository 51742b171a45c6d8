'use strict';

const assert = require('node:assert');
const fs = require('fs');
const { test } = require('node:test');
const { useSession } = require('./lib/session');
const { CARDINALS } = require('./lib/x');

const shared = useSession({ wm: 'openbox', bus: false });
const texts = (app) =>
  app.run(() => {
    kiv.setupLogger((...line) => log.push(line.join(' ')));
    kiv.init();
    const { activeWindowTitle, activeProcessName } = kiv.getScreenSnap('desktop', true);
    return [activeWindowTitle, activeProcessName, log.splice(0)];
  });

const commandLine = fs.readFileSync('/proc/self/cmdline', 'utf8');
const U = 'Undefined';
const [TITLE, PID, ACTIVE] = ['_NET_WM_NAME', '_NET_WM_PID', '_NET_ACTIVE_WINDOW'];
const LONG = 'x'.repeat(1 << 20);
// What a window claims; the snapshot's title, process and warning. Null: any process.
const CLAIMS = [
  ['nothing at all', ['_WM_NAME', 'STRING', 8, 'x'], U, U],
  ['a title that is not UTF-8, with a NUL', [TITLE, 'STRING', 8, [65, 0xff, 66, 0, 67]], 'A�B', U],
  ['a title of 32-bit items', [TITLE, 'CARDINAL', 32, 'ABCD'], 'ABCD', U, 'warn XGetWP4r1:32'],
  ['a title above the limit', [TITLE, 'STRING', 8, `${LONG}12345`], LONG, U],
  ['its process', [PID, 'CARDINAL', 32, CARDINALS(process.pid)], U, commandLine],
  ['a pid of one byte', [PID, 'CARDINAL', 8, [255]], U, null, 'warn XGetWP2r1:8:1'],
  ['two pids', [PID, 'CARDINAL', 32, CARDINALS(0xffffffff, 1)], U, U, 'warn XGetWP2r1:32:2'],
];

const title = 'titles, command lines and frames are right, also of lying and destroyed windows';
const look = async (app) => {
  const { x } = shared;
  const id = await x.activeWindow();
  for (const [what, property, title, command, warning] of CLAIMS) {
    // A window manager may set missing properties.
    for (const name of [TITLE, PID]) await x.deleteProperty(id, name);
    await x.setProperty(id, ...property);
    const seen = await texts(app);
    const noPid = property[0] === PID ? warning : 'warn XGetWP2r1:0:0';
    const noTitle = property[0] === TITLE ? warning : 'warn XGetWP4r1:0';
    const wanted = [title, command ?? seen[1], [noPid, noTitle].filter(Boolean)];
    assert.deepStrictEqual(seen, wanted, what);
  }
  const read = (of) => [internals.xProperty(of, '_NET_WM_PID'), internals.xTopLevel()];
  const [pids, { window }] = await app.run(read, id);
  assert.deepStrictEqual(pids, CARDINALS(0xffffffff, 1));
  assert.ok(window !== id && (await x.parent(window)) === x.root, 'the top-level window');
  const dead = x.createWindow();
  x.destroy(dead);
  await x.setProperty(x.root, ACTIVE, 'WINDOW', 32, CARDINALS(dead));
  assert.deepStrictEqual(await texts(app), [U, U, []], 'a destroyed window');
  await x.setProperty(x.root, ACTIVE, 'STRING', 8, 'x');
  assert.deepStrictEqual(await texts(app), [U, U, ['warn XGetWP1r4:8:1']], 'not a window');
  await x.deleteProperty(x.root, ACTIVE);
  assert.deepStrictEqual(await texts(app), [U, U, ['warn Get Active Task info: c-error']]);
};
// Without GTK, whose error handler ignores errors of other connections.
test(title, () => shared.withApp(look, { setUp: false }));
