'use strict';

const kiv = require(require('./src/addons').find('kiv_native'));

module.exports = kiv;

// Never runs. Node reads these lines to find the names that an ES module can import.
if (!kiv) {
  exports.init = exports.teardown = exports.setupLogger = exports.setInterval = null;
  exports.getScreenSnap = exports.getScreenSnapAsync = exports.ScreenLockMonitor = null;
  exports.getInputInfo = exports.getProcessHandlesInfo = exports.isWayland = exports.upgrade = null;
}
