'use strict';

// Runs one case in its own process: prelude.js KIND SOURCE ARGUMENTS(JSON).
// Keep to the syntax of the oldest supported Node.
const fs = require('fs');
const path = require('path');
const vm = require('vm');
const { until } = require('./until');

// Only this process has the sanitizer's libraries; what a case starts does not want them.
delete process.env.LD_PRELOAD;

const root = path.join(__dirname, '..', '..');
const build = path.join(root, 'build', process.env.KIV_BUILD || 'Release');

function lazy(name, load) {
  Object.defineProperty(global, name, { configurable: true, get: load });
}

lazy('kiv', () => require(path.join(build, 'kiv_native.node')));
lazy('host', () => require(path.join(root, 'host', 'index.js')));
lazy('bus', () => require(path.join(build, 'dbus_peer.node')));
lazy('X', () => require(path.join(build, 'x_client.node')));
lazy('internals', () => require(path.join(build, 'kiv_internals.node')));
// Stands in front of the libraries that the module uses, so it comes before them.
lazy('faults', () => {
  const holder = { exports: {} };
  const { RTLD_NOW, RTLD_GLOBAL } = require('os').constants.dlopen;
  process.dlopen(holder, path.join(build, 'kiv_faults.node'), RTLD_NOW | RTLD_GLOBAL);
  Object.defineProperty(global, 'faults', { value: holder.exports });
  return holder.exports;
});
global.require = require;
global.until = until;

global.report = (value) => {
  const line = Buffer.from(JSON.stringify(value === undefined ? null : value) + '\n');
  for (let sent = 0; sent < line.length;) {
    try {
      sent += fs.writeSync(3, line, sent);
    } catch (error) {
      if (error.code !== 'EAGAIN') throw error;
    }
  }
};

function load(kind, source) {
  if (kind === 'file') return require(source);
  const text = kind === 'function' ? `(${source}\n)` : `(async function (...args) {${source}\n})`;
  return vm.runInThisContext(text, { filename: 'case.js' });
}

const [kind, source, json] = process.argv.splice(2, 3);

// Leaving by exit() would leave the engine's own memory behind for the leak check.
function fail(error) {
  fs.writeSync(2, `${(error && error.stack) || error}\n`);
  fs.writeSync(3, 'failed\n');
  process.kill(process.pid, 'SIGKILL');
}

process.on('unhandledRejection', fail);

(async () => {
  const run = load(kind, source);
  if (typeof run === 'function') await run(...JSON.parse(json));
})().catch(fail);
