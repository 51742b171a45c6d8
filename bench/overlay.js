'use strict';

// The selection overlay beside a bare GTK program that draws the same: one pointer step, this
// process's own time in it, and the start from the call to the first picture on the screen.
// node bench/overlay.js [--quick]

const { until } = require('../test/lib/processes');
const { ESCAPE } = require('../test/lib/x');
const { inSession, median, run, table } = require('./measure');
const { pixels } = require('./pictures');

const drag = (subject, width, height, steps) => {
  const begin = process.hrtime.bigint();
  global.open = true;
  if (subject === 'bare') reference.open();
  else
    kiv.getScreenSnapAsync('selection', () => {
      global.open = false;
    });
  reference.untilDrawn();
  const start = Number(process.hrtime.bigint() - begin) / 1e6;
  reference.step(width / 8, height / 8, false);
  reference.step(width / 8, height / 8, true);
  reference.step(width / 4, height / 4, false);
  const times = [];
  for (let i = 1; i <= steps; ++i) {
    const way = 1 / 4 + i / (2 * steps);
    times.push(reference.step(width * way, height * way, false));
  }
  if (subject === 'bare') reference.close();
  return [
    start,
    measure.median(times.map(([all]) => all)),
    measure.median(times.map(([, own]) => own)),
  ];
};

run(async (quick) => {
  const rows = [];
  for (const [width, height] of [
    [1920, 1080],
    [3840, 2160],
  ]) {
    await inSession({ screens: [`${width}x${height}`], bus: false }, async (app, { x }) => {
      await x.wallpaper(width, height, pixels(width, height));
      const all = { module: [], bare: [] };
      for (let round = 0; round <= (quick ? 3 : 9); ++round) {
        for (const [name, results] of Object.entries(all)) {
          results.push(await app.run(drag, name, width, height, quick ? 10 : 30));
          if (name === 'module') x.key(ESCAPE);
          if (name === 'module') await until(() => app.run(() => !global.open), 'the end');
        }
      }
      // The first of each loads what GTK loads at first use.
      const figure = (name, i) => median(all[name].slice(1).map((result) => result[i]));
      for (const name of Object.keys(all)) {
        const [start, step, own] = [0, 1, 2].map((i) => figure(name, i));
        rows.push({
          screen: `${width}x${height}`,
          program: name,
          'step ms': step.toFixed(2),
          'step ratio': (step / figure('bare', 1)).toFixed(3),
          'own ms': own.toFixed(2),
          'own ratio': (own / figure('bare', 2)).toFixed(3),
          'start ms': start.toFixed(0),
          'start ratio': (start / figure('bare', 0)).toFixed(3),
        });
      }
    });
  }
  table('One pointer step of a growing drag, and the start (medians)', rows);
});
