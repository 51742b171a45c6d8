'use strict';

// The package's install script: takes the prebuilt module where one works, else builds it.
// Keep to the syntax of Node 6, so that an unsupported Node gets as far as the message.

const { spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const addons = require('./addons');

const OLDEST = 10;
const { node: version, modules: abi } = process.versions;

const say = (text) => process.stderr.write(`kiv_native: ${text}\n`);

function findPrebuilt() {
  try {
    return addons.findPrebuilt('kiv_native');
  } catch (_error) {
    say(`there is no prebuilt module for Node ${version} (ABI ${abi}) on this system`);
    return null;
  }
}

// Why the file cannot be loaded; null when it can.
function problemOf(file) {
  const script = 'require(process.argv[1])';
  const options = { encoding: 'utf8', timeout: 60000 };
  const { status, stderr } = spawnSync(process.execPath, ['-e', script, file], options);
  return status === 0 ? null : (/^Error: (.*)/m.exec(stderr) || [stderr, 'it does not load'])[1];
}

// Whether the prebuilt module is what a program will load.
function usePrebuilt() {
  const file = findPrebuilt();
  if (!file) return false;
  const problem = problemOf(file);
  const [, library] = /^(\S+): cannot open shared object file/.exec(problem) || [];
  if (problem && !library) {
    say(`the prebuilt module does not fit: ${problem}`);
    return false;
  }
  // One that was built for another Node would be loaded instead.
  spawnSync('rm', ['-rf', '--', addons.BUILD]);
  say(`using the prebuilt module for Node ${version} (ABI ${abi})`);
  if (library) say(`it needs GTK 3 to load (libgtk-3-0 or gtk3): ${library} is missing`);
  return true;
}

if (parseInt(version, 10) < OLDEST) {
  say(`needs Node ${OLDEST} or newer; this is Node ${version}`);
  process.exit(1);
}
// npx and npm install run this in the repository, too, whose builds must stay.
if (fs.existsSync(path.join(__dirname, '../.git'))) {
  say('this is the repository: ./scripts/build builds it');
  process.exit(0);
}
// What other packages understand as well.
const fromSource = /^(1|true)$/.test(process.env.npm_config_build_from_source);
if (fromSource || !usePrebuilt()) require('./compile');
