'use strict';

// Shows a button that starts a selection, then displays and saves the selected part.
//   node examples/selection-button [FOLDER]

const fs = require('fs');
const path = require('path');
const host = require('../../host');
const kiv = require('../../index.js');
const selection = require('../open-selection');

const build = path.join(__dirname, '..', '..', 'build', process.env.KIV_BUILD || 'Release');
const window = require(path.join(build, 'example_button_window.node'));

const folder = process.argv[2] || '.';

const CANCELLED = 102005;

// The button is disabled while a selection is open, because the module ignores further requests.
function tell(text, picture) {
  console.log(text);
  window.show(text, picture, true);
}

function finish({ errorCode, width, height, data }) {
  selection.open = false;
  if (errorCode === CANCELLED) return tell('Cancelled');
  if (errorCode !== 0) return tell('The selection failed or was interrupted');
  if (width === 0) return tell('Nothing was selected');
  const file = path.join(folder, `rectangle-${Date.now()}.png`);
  try {
    fs.writeFileSync(file, data, { flag: 'wx', mode: 0o600 });
    tell(`${width} × ${height}, saved as ${file}`, data);
  } catch (error) {
    tell(`${width} × ${height}, not saved: ${error.message}`, data);
  }
}

function start() {
  window.show('Select a rectangle, or press Escape', null, false);
  selection.open = true;
  kiv.getScreenSnapAsync('selection', finish);
}

if (!host.startLoop()) {
  console.error('no display');
  process.exit(1);
}
kiv.setupLogger((level, text) => {
  if (level === 'warn' || level === 'error') console.error(`${level}: ${text}`);
});
kiv.init();
// Node exits after the teardown, which fails an open selection.
window.open('Select a rectangle', start, () => kiv.teardown());
