'use strict';

// A snapshot through a real compositor beside the bare D-Bus call, load and encoding.
// node bench/compositor.js [--quick]

const { runCase } = require('../test/helpers/case');
const { startCompositor } = require('../test/helpers/compositors');
const { startSession } = require('../test/helpers/session');
const { table } = require('./measure');

const quick = process.argv.includes('--quick');
const [WIDTH, HEIGHT] = [1920, 1080];

const timeCase = async (service, paints, width, height, jpeg, rounds) => {
  const fs = require('fs');
  const path = require('path');
  const { interleaved, median } = require('../../bench/measure');
  const { paint, pixels } = require('../../bench/pictures');
  const floor = require(path.join(process.cwd(), 'build/Release/bench_floor.node'));
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const gnome = service === 'gnome';
  if (paints) {
    bus.connect();
    bus.own('org.gnome.Screenshot');
    paint('busy', width, height);
  } else {
    // A service that takes no time: what is left is the caller's part.
    const source = path.join(process.env.HOME, 'picture.png');
    fs.writeFileSync(source, internals.encode(width, height, 0, 0, false, false, 0).image);
    bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
    bus.own('org.gnome.Shell.Screenshot');
    bus.answer('/org/gnome/Shell/Screenshot', 'org.freedesktop.DBus.Introspectable', 'Introspect', {
      body: "('',)",
    });
    bus.answer('/org/gnome/Shell/Screenshot', 'org.gnome.Shell.Screenshot', 'Screenshot', {
      body: "(true, '')",
      copy: source,
    });
  }
  floor.reserve(width * height * 4);
  const subjects = {
    floor: () => floor.compositor(gnome, jpeg),
    module: () => kiv.getScreenSnap('desktop', jpeg),
  };
  await until(() => kiv.getScreenSnap('desktop', jpeg).width === width && subjects.floor() > 0);
  interleaved(subjects, 2);
  const times = interleaved(subjects, rounds);
  report({ module: median(times.module), floor: median(times.floor) });
  kiv.teardown();
};

async function measure(name, service, start) {
  const rows = [];
  for (const jpeg of [true, false]) {
    const rounds = quick ? 5 : jpeg ? 41 : 15;
    const session = await start();
    try {
      const args = [service, name !== 'stand-in', WIDTH, HEIGHT, jpeg, rounds];
      const { json, stderr } = await runCase(timeCase, { env: session.env, args, timeout: 600000 });
      if (!json) throw new Error(stderr);
      const { module, floor } = json;
      rows.push({
        service: name,
        format: jpeg ? 'JPEG' : 'PNG',
        'module ms': module.toFixed(1),
        'floor ms': floor.toFixed(1),
        ratio: (module / floor).toFixed(3),
      });
    } finally {
      await session.stop();
    }
  }
  return rows;
}

async function standIn() {
  const session = await startSession({ display: false });
  session.env.XDG_SESSION_TYPE = 'wayland';
  return session;
}

(async () => {
  const size = `${WIDTH}x${HEIGHT}`;
  console.log(`Time of one snapshot at ${size} (median)\n`);
  table([
    ...(await measure('stand-in', 'gnome', standIn)),
    ...(await measure('GNOME Shell', 'gnome', () => startCompositor('gnome', { size }))),
    ...(await measure('KWin', 'kwin', () => startCompositor('kwin', { size, trusting: true }))),
  ]);
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
