'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { after, test } = require('node:test');
const { temporaryFolder } = require('./helpers/folder');
const { baseEnv, start } = require('./helpers/processes');

const ROOT = path.join(__dirname, '..');
const { path: folder, remove } = temporaryFolder('package');
after(remove);

// No registry to be reached, nothing of the user's configuration or of what npm has kept.
const env = {
  ...baseEnv(), HOME: folder, npm_config_cache: path.join(folder, 'cache'), npm_config_offline: 'true',
  npm_config_registry: 'http://127.0.0.1:9/', npm_config_update_notifier: 'false', npm_config_audit: 'false',
};

async function run(command, args, cwd, timeout = 300000) {
  const started = start(command, args, { env, cwd });
  const timer = setTimeout(() => started.stop(), timeout);
  const { code } = await started.exited;
  clearTimeout(timer);
  assert.strictEqual(code, 0, `${command} ${args.join(' ')}\n${started.output}`);
  return started.text[1];
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
});
