'use strict';

const addon = require(require('../src/addons').find('kiv_permission'));

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
