'use strict';

const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { temporaryFolder } = require('./folder');
const { baseEnv, start, untilReady } = require('./processes');

const COMMON = ['-displayfd', '3', '-nolisten', 'tcp', '-noreset', '-ac'];

async function startServer(command, args) {
  const server = start(command, [...COMMON, ...args], { stdio: ['ignore', 'pipe', 'pipe', 'pipe'] });
  const number = await untilReady(server, () => /^(\d+)\n/.exec(server.text[3]), 'a display number');
  return { display: `:${number[1]}`, pid: server.pid, stop: server.stop };
}

/** An X server in memory on a free display number, one X screen for each size. */
function startXvfb({ screens = ['1280x800x24'], extraArgs = [] } = {}) {
  const sizes = screens.map((size, index) => ['-screen', String(index), size]);
  return startServer('Xvfb', [...sizes.flat(), ...extraArgs]);
}

// Where there is a set-uid wrapper, it refuses whoever does not sit at the console.
const XORG = fs.existsSync('/usr/lib/xorg/Xorg') ? '/usr/lib/xorg/Xorg' : 'Xorg';

function dummyConfiguration(width, height, count) {
  const used = [...Array(count).keys()];
  const section = (name, ...lines) => [`Section "${name}"`, ...lines, 'EndSection'].join('\n');
  return [
    section('ServerFlags', ...['AutoAddDevices', 'AutoAddGPU'].map((name) => `Option "${name}" "false"`),
      'Option "DontVTSwitch" "true"'),
    ...used.map((index) => section('Monitor', `Identifier "monitor${index}"`, 'HorizSync 1-2000', 'VertRefresh 1-1000')),
    section('Device', 'Identifier "card"', 'Driver "dummy"', 'VideoRam 256000',
      ...used.map((index) => `Option "Monitor-DUMMY${index}" "monitor${index}"`)),
    section('Screen', 'Identifier "screen"', 'Device "card"', 'Monitor "monitor0"', 'DefaultDepth 24',
      'SubSection "Display"', 'Depth 24', `Virtual ${width} ${height}`, 'EndSubSection'),
  ].join('\n');
}

/** Lays out the monitors of a dummy server; may be called again for another layout. */
function layOut(display, monitors) {
  const env = { ...baseEnv(), DISPLAY: display };
  const xrandr = (...args) => execFileSync('xrandr', args, { env, encoding: 'utf8', timeout: 10000 });
  const outputs = xrandr().match(/^DUMMY\d+/gm);
  const change = [];
  monitors.forEach(({ width, height, x = 0, y = 0 }, index) => {
    const mode = `${width}x${height}_kiv`;
    if (!xrandr().includes(mode)) {
      // The timings mean nothing to a driver without hardware, but must be plausible.
      const timing = [width, width + 8, width + 40, width + 80, height, height + 3, height + 8, height + 16];
      const clock = ((width + 80) * (height + 16) * 60) / 1e6;
      xrandr('--newmode', mode, clock.toFixed(2), ...timing.map(String));
    }
    xrandr('--addmode', outputs[index], mode);
    change.push('--output', outputs[index], '--mode', mode, '--pos', `${x}x${y}`);
  });
  outputs.slice(monitors.length).forEach((name) => change.push('--output', name, '--off'));
  xrandr(...change);
  const seen = xrandr('--listactivemonitors');
  for (const { width, height, x = 0, y = 0 } of monitors) {
    const wanted = new RegExp(` ${width}/\\d+x${height}/\\d+\\+${x}\\+${y} `);
    if (!wanted.test(seen)) throw new Error(`the layout was not taken:\n${seen}`);
  }
}

/** An Xorg with several monitors, which Xvfb cannot show. `layOut(monitors)` changes them live. */
async function startXorgDummy({ monitors }) {
  const { path: folder, remove } = temporaryFolder('xorg');
  const file = path.join(folder, 'xorg.conf');
  const width = Math.max(3840, ...monitors.map((one) => (one.x || 0) + one.width));
  const height = Math.max(2160, ...monitors.map((one) => (one.y || 0) + one.height));
  fs.writeFileSync(file, dummyConfiguration(width, height, monitors.length));
  const args = ['-config', file, '-configdir', folder, '-logfile', path.join(folder, 'log'), '-novtswitch'];
  const server = await startServer(XORG, args);
  const stop = () => server.stop().then(remove);
  try {
    layOut(server.display, monitors);
  } catch (error) {
    await stop();
    throw error;
  }
  return { ...server, layOut: (next) => layOut(server.display, next), stop };
}

module.exports = { startXvfb, startXorgDummy };
