'use strict';

// The other half of snapshots.js: takes a snapshot for every request, and ends with its parent.

const host = require('../../host');
const kiv = require('../../index.js');

const folder = process.argv[2];

if (!host.startLoop()) {
  console.error('no display');
  process.exit(1);
}
host.loadUtilities();

let reason = ''; // the module's last complaint
kiv.setupLogger((level, text) => {
  if (level === 'warn' || level === 'error') reason = text;
});
kiv.init();

function take({ id, type, jpeg }) {
  reason = '';
  try {
    const snap = kiv.getScreenSnap(type, jpeg, folder);
    // Buffers came back: they would cross the channel as text.
    if (snap.width > 0 && !snap.ScreenFullPath) return { id, error: `cannot write into ${folder}` };
    if (snap.width > 0) return { id, snap };
    return { id, error: `no picture: ${reason || 'there is no screen to take one of'}` };
  } catch (error) {
    return { id, error: error.message };
  }
}

// With a function to report to, a parent that is gone is no error.
process.on('message', (request) => process.send(take(request), () => {}));
process.on('disconnect', () => {
  kiv.teardown();
  process.exit();
});
// Ctrl+C reaches this process, too, but its parent says when it ends.
for (const signal of ['SIGINT', 'SIGHUP']) process.on(signal, () => {});
