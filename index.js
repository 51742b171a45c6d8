'use strict';

module.exports = require('./build/Release/kiv_native.node');
