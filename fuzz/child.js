'use strict';

// One target in a process of its own: child.js TARGET LIBFUZZER-ARGUMENTS… The last word is
// libFuzzer's, which ends the process.
const { spawn } = require('child_process');
const path = require('path');

delete process.env.LD_PRELOAD; // the sanitizer's, for this process only
const addon = path.join(__dirname, '..', '.cache', 'fuzz', 'build', 'Release', 'kiv_fuzz.node');
const { RTLD_NOW, RTLD_GLOBAL } = require('os').constants.dlopen;
const holder = { exports: {} };
// The host's utility functions are looked for in the process's global scope.
process.dlopen(holder, addon, RTLD_NOW | RTLD_GLOBAL);
const kiv = holder.exports;
const { fuzz } = kiv;

const [target, ...args] = process.argv.slice(2);

// A process whose command line the target writes.
function startVictim() {
  const victim = spawn('sleep', ['1000000'.padEnd(4000, '0')], { stdio: 'ignore' });
  process.on('exit', () => victim.kill());
  fuzz.setVictim(victim.pid);
}

// What goes before a target's first input.
const PREPARE = {
  pictures() {},
  command_line: startVictim,
  properties: () => kiv.init(),
  replies() {},
  signals: () => kiv.init(),
  host_functions: () => kiv.init(),
  arguments: () => kiv.init(),
};

require('../host').startLoop();
kiv.setupLogger(() => {});
PREPARE[target]();
const scripts = ['signals', 'host_functions', 'arguments'];
const run = scripts.includes(target) ? require(`./targets/${target}`)(kiv) : target;
fuzz.run(['kiv_fuzz', ...args], run);
