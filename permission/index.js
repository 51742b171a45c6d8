'use strict';

const path = require('path');

const folder = path.join(__dirname, '..', 'build', process.env.KIV_BUILD || 'Release');
const addon = require(path.join(folder, 'kiv_permission.node'));

let question = null;

function ask() {
  if (!question) {
    question = new Promise((resolve) => {
      addon.ask((state) => {
        question = null;
        resolve(state);
      });
    });
  }
  return question;
}

module.exports = { state: addon.state, ask };
