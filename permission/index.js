'use strict';

const addon = require(require('../src/addons').find('kiv_permission'));

// While a question is up, the add-on gives its answer to all who ask.
const ask = () => new Promise((resolve) => addon.ask(resolve));

const { state } = addon;

module.exports = { state, ask };
