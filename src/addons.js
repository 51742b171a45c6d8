'use strict';

// Where the package's add-ons are. Keep to the syntax of the oldest supported Node.

const fs = require('fs');
const path = require('path');

const ROOT = path.join(__dirname, '..');
const BUILD = path.join(ROOT, 'build');

/** The file that the package brings for this runtime; throws when it brings none. */
function findPrebuilt(name) {
  // It takes one add-on for each folder, so each has a folder.
  return require('node-gyp-build').resolve(path.join(ROOT, 'prebuilt', name));
}

/** The file that was built here, if there is one, else the prebuilt one; throws without either. */
function find(name) {
  const built = path.join(BUILD, process.env.KIV_BUILD || 'Release', `${name}.node`);
  if (fs.existsSync(built)) return built;
  try {
    return findPrebuilt(name);
  } catch (_error) {
    const { arch, version, versions } = process;
    const runtime = `Node ${version} (ABI ${versions.modules}, ${arch})`;
    const remedy = 'npm rebuild kiv_native, or ./scripts/build in the repository';
    throw new Error(`${name}.node is not built for ${runtime}; run ${remedy}`);
  }
}

module.exports = { BUILD, find, findPrebuilt };
