'use strict';

// A small window with a button: it starts a selection, and the rectangle is shown and saved.
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

// The button is off while a selection is open: the module would ignore another request.
function tell(text, picture) {
  console.log(text);
  window.show(text, picture, true);
}

function finish({ errorCode, width, height, data }) {
  selection.open = false;
  if (errorCode === CANCELLED) return tell('Cancelled');
  if (errorCode !== 0) return tell('No selection was possible, or it was interrupted');
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
  window.show('Drag out a rectangle, or press Escape', null, false);
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
// Nothing keeps Node alive after the teardown. A selection that is open ends with it, as failed.
window.open('Select a rectangle', start, () => kiv.teardown());
