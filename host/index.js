'use strict';

const os = require('os');
const { find } = require('../src/addons');

// Each add-on is loaded on first use, because the utilities do not need GTK.
let loop = null;
let utilities = null;

function startLoop() {
  if (!loop) loop = require(find('kiv_host_loop'));
  return loop.start();
}

function stopLoop() {
  if (loop) loop.stop();
}

function loadUtilities() {
  if (utilities) return;
  const holder = { exports: {} };
  const { RTLD_NOW, RTLD_GLOBAL } = os.constants.dlopen;
  process.dlopen(holder, find('kiv_host_utils'), RTLD_NOW | RTLD_GLOBAL);
  utilities = holder;
}

module.exports = { startLoop, stopLoop, loadUtilities };
