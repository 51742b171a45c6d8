'use strict';

// For node -r: a program that requires index.js gets the build under test.
const path = require('path');

delete process.env.LD_PRELOAD; // the sanitizer's, for this process only
const index = path.join(__dirname, '..', '..', 'index.js');
const built = path.join(index, '..', 'build', process.env.KIV_BUILD || 'Release', 'kiv_native.node');
require.cache[index] = { id: index, filename: index, loaded: true, get exports() { return require(built); } };
