'use strict';

module.exports = require(require('./src/addons').find('kiv_native'));
