'use strict';

const path = require('path');

const folder = path.join(__dirname, '..', 'build', process.env.KIV_BUILD || 'Release');
const addon = require(path.join(folder, 'kiv_permission.node'));

// While a question is up, the add-on gives its answer to all who ask.
const ask = () => new Promise((resolve) => addon.ask(resolve));

module.exports = { state: addon.state, ask };
