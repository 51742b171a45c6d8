'use strict';

const fs = require('fs');
const os = require('os');
const path = require('path');
require('./processes'); // its exit handler, which stops who still writes there, comes first

const present = new Set();

/** A new folder: { path, remove }. Removed at exit when a failed test left it. */
function temporaryFolder(name) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), `kiv-${name}-`));
  const remove = () => {
    present.delete(remove);
    fs.rmSync(folder, { recursive: true, force: true });
  };
  present.add(remove);
  return { path: folder, remove };
}

process.on('exit', () => present.forEach((remove) => remove()));

module.exports = { temporaryFolder };
