'use strict';

const fs = require('fs');
const path = require('path');

function present(tool) {
  if (tool.includes('/')) return fs.existsSync(tool);
  return (process.env.PATH || '').split(':').some((folder) => fs.existsSync(path.join(folder, tool)));
}

/**
 * For a test's `skip` option: false, or the reason when a tool (a command or a path) is missing.
 * On a build server a missing tool is a failure.
 */
function need(...tools) {
  const missing = tools.filter((tool) => !present(tool));
  if (missing.length === 0) return false;
  const reason = `not installed: ${missing.join(', ')}`;
  if (process.env.CI || process.env.KIV_CI) throw new Error(reason);
  return reason;
}

module.exports = { need };
