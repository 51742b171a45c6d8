'use strict';

// The selection overlay beside a bare GTK program that draws the same: one pointer step, this
// process's own time in it, and the start from the call to the first picture on the screen.
// node bench/overlay.js [--quick]

const { bareScreen, inSession, table } = require('./measure');

const quick = process.argv.includes('--quick');

// All in one process, taking turns.
const measure = async (width, height, rounds, steps) => {
  const path = require('path');
  const { median } = require('../../bench/measure');
  const { pixels } = require('../../bench/pictures');
  const { ESCAPE, key } = require('./overlay');
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const bench = require(path.join(process.cwd(), 'build/Release/bench_overlay.node'));
  const client = X.open(process.env.DISPLAY);
  // On the root window itself, so that nothing stands above the overlays.
  client.drawImage(client.rootWindow(0), 0, 0, width, height, pixels('busy', width, height));
  client.sync();
  const subjects = {
    module: {
      open: () => {
        kiv.getScreenSnapAsync('selection', () => {
          subjects.module.open_ = false;
        });
        subjects.module.open_ = true;
      },
      close: async () => {
        key(client, ESCAPE);
        await until(() => !subjects.module.open_);
      },
    },
    prepared: { open: () => bench.openBare(true), close: () => bench.closeBare() },
    pixbufs: { open: () => bench.openBare(false), close: () => bench.closeBare() },
  };
  for (const subject of Object.values(subjects))
    Object.assign(subject, { start: [], step: [], own: [] });
  for (let round = -1; round < rounds; ++round) {
    for (const subject of Object.values(subjects)) {
      const begin = process.hrtime.bigint();
      subject.open();
      bench.untilDrawn();
      const start = Number(process.hrtime.bigint() - begin) / 1e6;
      bench.step(width / 8, height / 8);
      bench.press(width / 8, height / 8);
      bench.step(width / 4, height / 4);
      for (let i = 1; i <= steps; ++i) {
        const [step, own] = bench.step(
          width / 4 + (i * width) / (2 * steps),
          height / 4 + (i * height) / (2 * steps),
        );
        if (round >= 0) {
          subject.step.push(step);
          subject.own.push(own);
        }
      }
      if (round >= 0) subject.start.push(start);
      await subject.close();
      await new Promise(setImmediate);
    }
  }
  const result = {};
  for (const [name, { start, step, own }] of Object.entries(subjects)) {
    result[name] = { start: median(start), step: median(step), own: median(own) };
  }
  report(result);
  client.close();
  kiv.teardown();
};

(async () => {
  const rows = [];
  for (const [width, height] of [
    [1920, 1080],
    [3840, 2160],
  ]) {
    const json = await inSession(bareScreen(width, height), measure, [
      width,
      height,
      quick ? 3 : 9,
      quick ? 10 : 30,
    ]);
    const names = {
      module: 'the module',
      prepared: 'bare, surfaces prepared once',
      pixbufs: 'bare, from the pixbufs at each fill',
    };
    for (const [name, title] of Object.entries(names)) {
      const { start, step, own } = json[name];
      rows.push({
        screen: `${width}x${height}`,
        program: title,
        'step ms': step.toFixed(2),
        'own ms': own.toFixed(2),
        'step ratio': (step / json.prepared.step).toFixed(3),
        'start ms': start.toFixed(0),
        'start ratio': (start / json.prepared.start).toFixed(3),
      });
    }
  }
  console.log(
    'One pointer step of a growing drag, and the start (medians; ratios to prepared surfaces)\n',
  );
  table(rows);
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
