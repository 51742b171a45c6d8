'use strict';

// Builds the add-ons with what the machine has; nothing is fetched.
// Keep to the syntax of the oldest supported Node.

const { spawn, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '..');
const NODE = fs.realpathSync(process.execPath);
const OWN_PREFIX = path.dirname(path.dirname(NODE));
const VERSION = process.versions.node;

// What has to work, and the package that brings it: Debian's name, then Fedora's.
const NEEDED = [
  [`${process.env.CXX || 'g++'} --version`, 'g++', 'gcc-c++'],
  ['make --version', 'make', 'make'],
  ['python3 --version', 'python3', 'python3'],
  ['pkg-config --version', 'pkg-config', 'pkgconf-pkg-config'],
  ['pkg-config --exists gtk+-3.0', 'libgtk-3-dev', 'gtk3-devel'],
  ['pkg-config --exists xi', 'libxi-dev', 'libXi-devel'],
  ['pkg-config --exists xscrnsaver', 'libxss-dev', 'libXScrnSaver-devel'],
  ['pkg-config --exists xinerama', 'libxinerama-dev', 'libXinerama-devel'],
];

function fail(text) {
  process.stderr.write(`kiv_native: ${text}\n`);
  process.exit(1);
}

const works = ([command, ...args]) => spawnSync(command, args, { stdio: 'ignore' }).status === 0;

function versionOf(prefix) {
  try {
    const text = fs.readFileSync(path.join(prefix, 'include/node/node_version.h'), 'utf8');
    return ['MAJOR', 'MINOR', 'PATCH']
      .map((part) => new RegExp(`define NODE_${part}_VERSION (\\d+)`).exec(text)[1])
      .join('.');
  } catch (_error) {
    return '';
  }
}

// The folder above include/node, or undefined. Whoever sets nodedir knows better.
function findHeaders() {
  return (
    process.env.npm_config_nodedir ||
    [OWN_PREFIX, '/usr'].find((prefix) => versionOf(prefix) === VERSION)
  );
}

// npm brings one along and says where, Debian has it in a package of its own.
function findNodeGyp() {
  const beneath = (folder) => path.join(folder, 'node-gyp/bin/node-gyp.js');
  return [
    process.env.npm_config_node_gyp || '',
    beneath(path.join(OWN_PREFIX, 'lib/node_modules/npm/node_modules')),
    beneath('/usr/share/nodejs'),
  ].find((file) => fs.existsSync(file));
}

const debian = works(['dpkg', '--version']) || !works(['rpm', '--version']);
const missing = NEEDED.filter(([probe]) => !works(probe.split(' '))).map(([, deb, rpm]) =>
  debian ? deb : rpm,
);
const headers = findHeaders();
if (!headers)
  missing.push(`${debian ? 'libnode-dev' : 'nodejs-devel'} (headers of Node ${VERSION})`);
const nodeGyp = findNodeGyp();
if (!nodeGyp) missing.push('node-gyp');
if (missing.length > 0) fail(`cannot be built here, please install: ${missing.join(', ')}`);

process.stderr.write('kiv_native: building, which takes about a minute\n');

// Outside the package, which npm removes when the installation fails.
const logFile = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'kiv_native-')), 'build.log');
const readLog = () => fs.readFileSync(logFile, 'utf8');

// Says which file is being compiled: every second on a terminal, else now and then.
function showProgress() {
  const gyp = fs.readFileSync(path.join(ROOT, 'binding.gyp'), 'utf8');
  const files = gyp.match(/[^']+\.cpp/g).filter((name) => fs.existsSync(path.join(ROOT, name)));
  const terminal = process.stderr.isTTY;
  const show = () => {
    const begun = (readLog().match(/ CXX\(target\)/g) || []).length;
    const text = `kiv_native: compiling file ${begun} of ${files.length}`;
    process.stderr.write(terminal ? `\r${text}` : `${text}\n`);
  };
  const timer = setInterval(show, terminal ? 1000 : 10000);
  return () => {
    clearInterval(timer);
    if (terminal) process.stderr.write('\r\x1b[K');
  };
}

// What the build leaves besides the add-ons: some 20 MB of objects.
function removeObjects() {
  const list = (folder, keep) =>
    fs
      .readdirSync(path.join(ROOT, folder))
      .filter((name) => !keep(name))
      .map((name) => path.join(ROOT, folder, name));
  const objects = list('build', (name) => name === 'Release').concat(
    list('build/Release', (name) => name.endsWith('.node')),
  );
  spawnSync('rm', ['-rf', '--', path.dirname(logFile), ...objects], { stdio: 'inherit' });
}

function failBuild() {
  process.stderr.write(`${readLog().trimEnd().split('\n').slice(-20).join('\n')}\n`);
  // An old npm brings an old node-gyp, which takes no new Python.
  process.stderr.write('npm_config_node_gyp and PYTHON name another node-gyp and Python\n');
  fail(`the build failed (Node ${VERSION}, ${nodeGyp}); all of its output: ${logFile}`);
}

const log = fs.openSync(logFile, 'w');
const jobs = `--jobs=${process.env.JOBS || 'max'}`;
const build = spawn(process.execPath, [nodeGyp, 'rebuild', jobs, `--nodedir=${headers}`], {
  cwd: ROOT,
  stdio: ['ignore', log, log],
  // binding.gyp runs `node`, which has to be this one or at least one.
  env: Object.assign({}, process.env, { PATH: `${path.dirname(NODE)}:${process.env.PATH}` }),
});
const stopProgress = showProgress();
build.on('close', (status) => {
  stopProgress();
  if (status !== 0) failBuild();
  removeObjects();
});
