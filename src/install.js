'use strict';

// The package's install script: builds the module with what the machine has; nothing is fetched.
// Keep to the syntax of the oldest supported Node.

const { spawnSync } = require('child_process');
const fs = require('fs');
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

const { status } = spawnSync(
  process.execPath,
  [
    nodeGyp,
    'rebuild',
    '--loglevel=error',
    `--jobs=${process.env.JOBS || 'max'}`,
    `--nodedir=${headers}`,
  ],
  // binding.gyp runs `node`, which has to be this one or at least one.
  {
    cwd: ROOT,
    stdio: 'inherit',
    env: Object.assign({}, process.env, { PATH: `${path.dirname(NODE)}:${process.env.PATH}` }),
  },
);
// An old npm brings an old node-gyp, which takes no new Python.
if (status !== 0)
  fail(
    `the build failed (Node ${VERSION}, ${nodeGyp}); npm_config_node_gyp and PYTHON name others`,
  );

// What the build left besides the modules: some 20 MB of objects.
const inside = (...names) => path.join(ROOT, 'build', ...names);
const objects = fs
  .readdirSync(inside())
  .filter((name) => name !== 'Release')
  .map((name) => inside(name))
  .concat(
    fs
      .readdirSync(inside('Release'))
      .filter((name) => !name.endsWith('.node'))
      .map((name) => inside('Release', name)),
  );
spawnSync('rm', ['-rf', '--', ...objects], { stdio: 'inherit' });
