'use strict';

const os = require('os');
const path = require('path');

const folder = path.join(__dirname, '..', 'build', process.env.KIV_BUILD || 'Release');

// Each add-on is loaded on first use, because the utilities do not need GTK.
let loop = null;
let utilities = null;

function startLoop() {
  if (!loop) loop = require(path.join(folder, 'kiv_host_loop.node'));
  return loop.start();
}

function stopLoop() {
  if (loop) loop.stop();
}

function loadUtilities() {
  if (utilities) return;
  const holder = { exports: {} };
  const { RTLD_NOW, RTLD_GLOBAL } = os.constants.dlopen;
  process.dlopen(holder, path.join(folder, 'kiv_host_utils.node'), RTLD_NOW | RTLD_GLOBAL);
  utilities = holder;
}

module.exports = { startLoop, stopLoop, loadUtilities };
