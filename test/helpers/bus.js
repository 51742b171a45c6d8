'use strict';

const fs = require('fs');
const path = require('path');
const { temporaryFolder } = require('./folder');
const { start, untilReady } = require('./processes');

// No service folders: nothing of the machine is started behind a test's back.
const configuration = (socket) => `<!DOCTYPE busconfig PUBLIC
  "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=${socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
`;

/** A message bus of its own; `address` is that of one that was killed. */
async function startBus({ address = '' } = {}) {
  const [, left] = /^unix:path=(.*)\/socket/.exec(address) || [];
  const { path: folder, remove } = left ? { path: left, remove: () => {} } : temporaryFolder('bus');
  if (left) fs.rmSync(path.join(folder, 'socket'), { force: true });
  const file = path.join(folder, 'bus.conf');
  fs.writeFileSync(file, configuration(path.join(folder, 'socket')));
  const args = [`--config-file=${file}`, '--print-address=3', '--nofork', '--nopidfile'];
  const daemon = start('dbus-daemon', args, { stdio: ['ignore', 'pipe', 'pipe', 'pipe'] });
  try {
    const line = await untilReady(daemon, () => /^(.+)\n/.exec(daemon.text[3]), 'an address');
    return { address: line[1], pid: daemon.pid, stop: () => daemon.stop().then(remove), get exited() { return daemon.exited; } };
  } catch (error) {
    remove();
    throw error;
  }
}

module.exports = { startBus };
