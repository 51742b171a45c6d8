'use strict';

// The selection overlay beside the bare drawing in the same window: one pointer step of a growing
// drag, and this process's own time in it. node bench/overlay.js [--quick]

const { until } = require('../test/lib/processes');
const { inSession, run, table } = require('./measure');
const { pixels } = require('./pictures');

const open = () => {
  kiv.getScreenSnapAsync('selection', () => {});
};

// Medians, taking turns.
const drag = (width, height, steps) => {
  reference.prepare();
  reference.press(width / 8, height / 8);
  const results = { module: [], bare: [] };
  for (let i = 0; i < steps; ++i) {
    const way = 1 / 4 + i / (2 * steps);
    for (const name of i % 2 ? ['module', 'bare'] : ['bare', 'module'])
      results[name].push(reference.step(width * way, height * way, name === 'bare'));
  }
  const figures = (list) => [0, 1].map((i) => measure.median(list.map((times) => times[i])));
  return { module: figures(results.module), bare: figures(results.bare) };
};

run(async (quick) => {
  const rows = [];
  for (const [width, height] of [
    [1920, 1080],
    [3840, 2160],
  ]) {
    await inSession({ screens: [`${width}x${height}`], bus: false }, async (app, { x }) => {
      await x.wallpaper(width, height, pixels(width, height));
      await app.run(open);
      await until(async () => {
        for (const at of [99, 100]) x.moveTo(at, 100);
        return (await x.pixel(100, 0)) === 0xffffff;
      }, 'the overlay');
      const { module, bare } = await app.run(drag, width, height, quick ? 20 : 200);
      rows.push({
        screen: `${width}x${height}`,
        'step ms': module[0].toFixed(2),
        'bare drawing ms': bare[0].toFixed(2),
        ratio: (module[0] / bare[0]).toFixed(3),
        'own ms': module[1].toFixed(2),
        'own, bare drawing': bare[1].toFixed(2),
        'own ratio': (module[1] / bare[1]).toFixed(3),
      });
    });
  }
  table('One pointer step of a growing drag (medians)', rows);
});
