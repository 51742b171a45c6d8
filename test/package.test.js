'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { after, test } = require('node:test');
const { temporaryFolder } = require('./helpers/folder');
const { NODE, baseEnv, start } = require('./helpers/processes');

const ROOT = path.join(__dirname, '..');
const { path: folder, remove } = temporaryFolder('package');
after(remove);

// Nothing to be reached, for npm or node-gyp, and nothing of the user's configuration or of what npm has
// kept.
const nowhere = 'http://127.0.0.1:9/';
const env = {
  ...baseEnv(), HOME: folder, npm_config_cache: path.join(folder, 'cache'), npm_config_offline: 'true',
  npm_config_registry: nowhere, npm_config_update_notifier: 'false', npm_config_audit: 'false',
  http_proxy: nowhere, https_proxy: nowhere,
};

async function run(command, args, cwd, { status = 0, more = {} } = {}) {
  const started = start(command, args, { env: { ...env, ...more }, cwd });
  const timer = setTimeout(() => started.stop(), 1800000);
  const { code } = await started.exited;
  clearTimeout(timer);
  assert.strictEqual(code, status, `${command} ${args.join(' ')}\n${started.output}`);
  return started.text[status === 0 ? 1 : 2];
}

const listed = (...folders) => execFileSync('git', ['ls-files', '-co', '--exclude-standard', ...folders], { cwd: ROOT, encoding: 'utf8' })
  .trim().split('\n');

// The other runtimes' npm is this machine's.
test('the package: what is in it, and that it installs, builds and loads with no network', {
  skip: process.env.KIV_NODE || process.env.KIV_SANITIZE === '1' ? 'npm runs on this machine\'s Node and builds for it' : false,
}, async () => {
  const [{ filename, files }] = JSON.parse(await run('npm', ['pack', '--json', '--pack-destination', folder], ROOT));
  const names = files.map(({ path: name }) => name);
  const nan = names.filter((name) => name.startsWith('node_modules/nan/'));
  assert.ok(nan.includes('node_modules/nan/nan.h') && nan.includes('node_modules/nan/package.json'));
  assert.deepStrictEqual(names.filter((name) => !nan.includes(name)).sort(), [
    ...['CHANGELOG.md', 'README.md', 'SECURITY.md', 'binding.gyp', 'index.d.ts', 'index.js', 'package.json'],
    ...listed('src', 'host', 'docs'),
  ].sort());

  const empty = path.join(folder, 'empty');
  fs.mkdirSync(empty);
  fs.writeFileSync(path.join(empty, 'package.json'), '{"name": "empty", "private": true}');
  await run('npm', ['install', '--no-fund', path.join(folder, filename)], empty);
  const text = await run(process.execPath, ['-p', 'JSON.stringify([Object.keys(require("kiv_native")), require("kiv_native").isWayland(), require("kiv_native/host").startLoop()])'], empty);
  const [keys, wayland, loop] = JSON.parse(text);
  assert.deepStrictEqual(keys.sort(), Object.keys(require('../build/Release/kiv_native.node')).sort());
  assert.deepStrictEqual([wayland, loop], [false, false]);
  assert.ok(!fs.existsSync(path.join(folder, '.cache/node-gyp')), 'no headers were fetched');
  const left = execFileSync('find', ['build', '-type', 'f'], { cwd: path.join(empty, 'node_modules/kiv_native'), encoding: 'utf8' });
  assert.deepStrictEqual(left.trim().split('\n').sort(),
    ['host_loop', 'host_utils', 'native'].map((name) => `build/Release/kiv_${name}.node`), 'the modules alone are left');
});

test('a machine that lacks what the build needs is told all of it at once', async () => {
  const nodeGyp = path.join(__dirname, 'helpers/until.js'); // does nothing, should it come to that
  const more = { CXX: '/nonexistent', PKG_CONFIG_LIBDIR: folder, npm_config_nodedir: folder, npm_config_node_gyp: nodeGyp };
  const said = await run(NODE, ['src/install.js'], ROOT, { status: 1, more });
  assert.match(said, /^kiv_native: cannot be built here, please install: g\+\+, libgtk-3-dev, libxi-dev, libxss-dev, libxinerama-dev\n$/);
});
