'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const path = require('path');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

const root = path.join(__dirname, '..');
const EXPORTS = [
  'ScreenLockMonitor', 'init', 'getInputInfo', 'getProcessHandlesInfo', 'getScreenSnap', 'getScreenSnapAsync',
  'setupLogger', 'setInterval', 'upgrade', 'isWayland', 'teardown',
];

let session;
before(async () => { session = await startSession(); });
after(() => session.stop());

test('the exports, in order, under their own names', async () => {
  const { json } = await runCase(() => {
    report(Object.keys(kiv).map((name) => [name, kiv[name].name]));
  }, { env: session.env });
  assert.deepStrictEqual(json, EXPORTS.map((name) => [name, name]));
});

test('the session type is decided when the module loads', async () => {
  const types = [['x11', false], [undefined, false], ['wayland', true], ['tty', true], ['', true], ['X11', true]];
  for (const [type, wayland] of types) {
    const env = { ...session.env };
    delete env.XDG_SESSION_TYPE;
    if (type !== undefined) env.XDG_SESSION_TYPE = type;
    const { json } = await runCase(() => {
      const seen = [kiv.isWayland()];
      process.env.XDG_SESSION_TYPE = 'x11';
      seen.push(kiv.init(), kiv.isWayland());
      kiv.teardown();
      report(seen);
    }, { env });
    assert.deepStrictEqual(json, [wayland, null, wayland], String(type));
  }
});

test('handle counts are three nulls for any argument; a conversion that throws reaches the caller', async () => {
  const { json } = await runCase(() => {
    const thrown = (f) => { try { f(); return null; } catch (error) { return error.message; } };
    report({
      results: [[process.pid], [], ['no number'], [-1]].map((args) => kiv.getProcessHandlesInfo(...args)),
      symbol: thrown(() => kiv.getProcessHandlesInfo(Symbol('pid'))),
      object: thrown(() => kiv.getProcessHandlesInfo({ valueOf() { throw new Error('mine'); } })),
    });
  }, { env: session.env });
  for (const result of json.results) {
    assert.deepStrictEqual(Object.entries(result),
      [['handleCount', null], ['gdiObjectCount', null], ['guiUserObjectCount', null]]);
  }
  assert.match(json.symbol, /Symbol/);
  assert.strictEqual(json.object, 'mine');
});

test('the declarations fit a consumer', () => {
  const options = ['--noEmit', '--strict', '--types', 'node', '--module', 'commonjs', '--target', 'es2020'];
  execFileSync(path.join(root, 'node_modules/.bin/tsc'), [...options, 'test/types/consumer.ts'],
    { cwd: root, timeout: 120000, stdio: 'pipe' });
});

test('index.js loads the built module', { skip: (process.env.KIV_BUILD || 'Release') !== 'Release' }, async () => {
  const { json } = await runCase(() => {
    report(Object.keys(require('../../index.js')));
  }, { env: session.env });
  assert.deepStrictEqual(json, EXPORTS);
});
