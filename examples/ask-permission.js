'use strict';

// Shows a button that asks the desktop for the permission to take screenshots, and tries the result
// with a snapshot.
//   node examples/ask-permission.js

const path = require('path');
const host = require('../host');
const kiv = require('../index.js');
const permission = require('../permission');

const build = path.join(__dirname, '..', 'build', process.env.KIV_BUILD || 'Release');
const window = require(path.join(build, 'example_button_window.node'));

const MEANINGS = {
  granted: 'Screenshots are allowed',
  denied: 'Screenshots are denied; see the privacy settings',
  unknown: 'Nobody has allowed screenshots yet',
  'not needed': 'This desktop does not ask',
  unavailable: 'This desktop has no portal for screenshots',
};

function tell(state) {
  const { data } = kiv.getScreenSnap('desktop');
  const text = `${MEANINGS[state]}. A screenshot ${data.length > 0 ? 'works' : 'fails'}.`;
  console.log(text);
  window.show(text, data, state === 'unknown');
}

function ask() {
  window.show('The desktop asks…', null, false);
  permission.ask().then(tell);
}

if (!host.startLoop()) {
  console.error('no display');
  process.exit(1);
}
kiv.setupLogger((level, text) => {
  if (level === 'warn' || level === 'error') console.error(`${level}: ${text}`);
});
kiv.init();
// Node exits after the teardown.
window.open('Allow screenshots', ask, () => kiv.teardown());
tell(permission.state());
