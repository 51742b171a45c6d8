'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const path = require('path');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

const root = path.join(__dirname, '..');
const EXPORTS = [
  'ScreenLockMonitor', 'init', 'getInputInfo', 'getProcessHandlesInfo', 'getScreenSnap', 'getScreenSnapAsync',
  'setupLogger', 'setInterval', 'upgrade', 'isWayland', 'teardown',
];
const shared = share({ wm: false });

test('the exports, in order, under their own names; handle counts are three nulls', async () => {
  const { names, counts, thrown } = await shared.look(() => {
    const result = { names: Object.keys(kiv).map((name) => [name, kiv[name].name]) };
    result.counts = [[process.pid], [], ['no number']].map((args) => kiv.getProcessHandlesInfo(...args));
    const bad = { valueOf() { throw new Error('mine'); } };
    try { kiv.getProcessHandlesInfo(bad); } catch (error) { result.thrown = error.message; }
    report(result);
  });
  assert.deepStrictEqual(names, EXPORTS.map((name) => [name, name]));
  assert.deepStrictEqual(counts, Array(3).fill({ handleCount: null, gdiObjectCount: null, guiUserObjectCount: null }));
  assert.strictEqual(thrown, 'mine');
});

for (const [type, wayland] of [['x11', false], [undefined, false], ['wayland', true], ['', true], ['X11', true]]) {
  test(`the session type ${type} is decided when the module loads`, async () => {
    const env = { ...shared.session.env, XDG_SESSION_TYPE: type };
    assert.deepStrictEqual(await shared.look(() => {
      const seen = [kiv.isWayland()];
      process.env.XDG_SESSION_TYPE = seen[0] ? 'x11' : 'wayland';
      kiv.init();
      report([...seen, kiv.isWayland()]);
      kiv.teardown();
    }, { env }), [wayland, wayland]);
  });
}

test('the declarations fit a consumer', () => {
  const options = ['--noEmit', '--strict', '--types', 'node', '--module', 'commonjs', '--target', 'es2020'];
  execFileSync(path.join(root, 'node_modules/.bin/tsc'), [...options, 'test/types/consumer.ts'],
    { cwd: root, timeout: 120000, stdio: 'pipe' });
});

test('index.js loads the built module', { skip: (process.env.KIV_BUILD || 'Release') !== 'Release' }, async () => {
  assert.deepStrictEqual(await shared.look(() => report(Object.keys(require('../../index.js')))), EXPORTS);
});

test('the add-ons that are shipped link no libnode, with which another Node crashes', () => {
  for (const name of ['kiv_native', 'kiv_host_loop', 'kiv_host_utils']) {
    const file = path.join(root, 'build', process.env.KIV_BUILD || 'Release', `${name}.node`);
    const linked = execFileSync('readelf', ['-d', file], { encoding: 'utf8', timeout: 10000 });
    assert.match(linked, /NEEDED.*\[libc\.so/);
    assert.doesNotMatch(linked, /NEEDED.*\[libnode/, name);
  }
});
