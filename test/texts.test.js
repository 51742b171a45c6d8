'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

let session;
before(async () => { session = await startSession(); });
after(() => session.stop());
const run = (source, options) => runCase(source, { env: session.env, ...options });

test('title and command line of the active window', async () => {
  const { json } = await run(async () => {
    const { activeWindow } = require('./windows');
    kiv.init();
    const window = await activeWindow({ title: 'Grüße — 日本', pid: process.pid });
    const snap = kiv.getScreenSnap('desktop', true);
    report({ title: snap.activeWindowTitle, process: snap.activeProcessName,
      expected: require('fs').readFileSync('/proc/self/cmdline', 'utf8').split('\n')[0].replace(/[ \t\n]+$/, '') });
    window.close();
    kiv.teardown();
  });
  assert.strictEqual(json.title, 'Grüße — 日本');
  assert.strictEqual(json.process, json.expected);
  assert.ok(json.process.includes('\0'));
});

// What windows may claim: [what, properties, title, process, log lines]. `kernel` is a pid whose
// command line is empty.
const int32 = (...values) => Buffer.from(new Int32Array(values).buffer);
const NAME = '_NET_WM_NAME';
const PID = '_NET_WM_PID';
const U = 'Undefined';
const LIES = [
  ['nothing at all', [], U, U, ['XGetWP2r1:0:0', 'XGetWP4r1:0']],
  ['an empty title', [[NAME, 'UTF8_STRING', 8, []]], '', U, ['XGetWP2r1:0:0']],
  ['a title with a NUL', [[NAME, 'UTF8_STRING', 8, [...Buffer.from('one\0two')]]], 'one', U, ['XGetWP2r1:0:0']],
  ['a title that is not UTF-8', [[NAME, 'STRING', 8, [0x41, 0xff, 0xc3, 0x42]]], 'A��B', U, ['XGetWP2r1:0:0']],
  ['a title of 32-bit items', [[NAME, 'CARDINAL', 32, [...int32(0x41424344)]]], 'DCBA', U,
    ['XGetWP2r1:0:0', 'XGetWP4r1:32']],
  ['a pid of -1', [[PID, 'CARDINAL', 32, [...int32(-1)]]], U, U, ['XGetWP4r1:0']],
  ['a pid of nobody', [[PID, 'CARDINAL', 32, [...int32(2147483647)]]], U, U, ['XGetWP4r1:0']],
  ['a pid of one byte', [[PID, 'CARDINAL', 8, [255]]], U, null, ['XGetWP2r1:8:1', 'XGetWP4r1:0']],
  ['two pids', [[PID, 'CARDINAL', 32, [...int32(-1, 1)]]], U, U, ['XGetWP2r1:32:2', 'XGetWP4r1:0']],
  ['a pid that is there but empty', [[PID, 'CARDINAL', 32, []]], U, null, ['XGetWP2r1:32:0', 'XGetWP4r1:0']],
];

test('windows that lie end in the log', async () => {
  const { json } = await run(async (lies) => {
    const { activeWindow } = require('./windows');
    let lines = [];
    kiv.setupLogger((level, text) => lines.push(`${level} ${text}`));
    kiv.init();
    const seen = [];
    for (const properties of lies) {
      const window = await activeWindow({
        properties: properties.map(([name, type, format, bytes]) => [name, type, format, Buffer.from(bytes)]),
      });
      // A window manager may fill in what is missing.
      for (const name of ['_NET_WM_NAME', '_NET_WM_PID']) {
        if (!properties.some(([given]) => given === name)) window.client.deleteProperty(window.id, name);
      }
      window.client.sync();
      lines = [];
      const snap = kiv.getScreenSnap('desktop', true);
      seen.push([snap.activeWindowTitle, snap.activeProcessName, lines]);
      window.close();
    }
    report(seen);
    kiv.teardown();
  }, { args: [LIES.map(([, properties]) => properties)] });
  LIES.forEach(([what, , title, process, lines], i) => {
    assert.strictEqual(json[i][0], title, what);
    if (process !== null) assert.strictEqual(json[i][1], process, what);
    assert.deepStrictEqual(json[i][2], lines.map((line) => `warn ${line}`), what);
  });
});

test('a root window that lies, and windows that die while they are read', async () => {
  const { json, code, stderr } = await run(async () => {
    host.startLoop();
    kiv.init();
    const client = X.open(process.env.DISPLAY);
    const root = client.rootWindow(0);
    const lines = new Set();
    kiv.setupLogger((level, text) => lines.add(text));
    const ACTIVE = '_NET_ACTIVE_WINDOW';
    const claim = (type, format, data) => {
      lines.clear();
      client.setProperty(root, ACTIVE, type, format, data);
      client.sync();
      const snap = kiv.getScreenSnap('desktop', true);
      return [snap.activeWindowTitle, snap.activeProcessName, ...lines];
    };
    const dead = client.createWindow({ x: 0, y: 0, width: 10, height: 10 });
    client.destroy(dead);
    const seen = {
      dead: claim('WINDOW', 32, Buffer.from(new Uint32Array([dead]).buffer)),
      two: claim('WINDOW', 32, Buffer.from(new Uint32Array([dead, dead]).buffer)),
      byte: claim('STRING', 8, Buffer.from('x')),
      empty: claim('WINDOW', 32, Buffer.alloc(0)),
    };
    client.deleteProperty(root, ACTIVE);
    client.close();
    report(seen);
    kiv.teardown();
  });
  const U2 = [U, U];
  assert.deepStrictEqual(json, {
    dead: U2,
    two: [...U2, 'XGetWP1r4:32:2'],
    byte: [...U2, 'XGetWP1r4:8:1'],
    empty: [...U2, 'Get Active Task info: c-error'],
  }, stderr);
  assert.strictEqual(code, 0);
});

test('a title of a megabyte', async () => {
  const { json } = await run(async () => {
    const { activeWindow } = require('./windows');
    kiv.setupLogger(() => {});
    kiv.init();
    const window = await activeWindow({});
    const title = 'x'.repeat(1 << 20);
    window.client.setProperty(window.id, '_NET_WM_NAME', 'UTF8_STRING', 8, Buffer.from(title));
    window.client.sync();
    report(kiv.getScreenSnap('desktop', true).activeWindowTitle === title);
    window.close();
    kiv.teardown();
  });
  assert.strictEqual(json, true);
});
