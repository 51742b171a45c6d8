'use strict';

// The selection overlay compared with the bare drawing in the same window: one pointer step of a
// growing drag, and this process's own time in it. node bench/overlay.js [--quick]

const { openSelection } = require('../test/lib/overlay');
const { FULL, LARGE, beside, inSession, run, table } = require('./measure');

// Medians of the module's time and of the bare drawing's.
const drag = async ([width, height], rounds, own) => {
  reference.press(width / 8, height / 8);
  let steps = 0;
  const next = (f) => () => {
    const way = 1 / 4 + steps++ / (5 * rounds);
    f(width * way, height * way);
  };
  const subjects = { module: next(reference.move), bare: next(reference.draw) };
  const now = own ? reference.processor : undefined;
  const { module, bare } = await measure.interleaved(subjects, rounds, { now });
  return [measure.median(module), measure.median(bare)];
};

run(async (quick) => {
  const rows = [];
  for (const size of [FULL, LARGE]) {
    await inSession(size, async (app, { x }) => {
      await openSelection(x, app);
      await app.run(() => reference.prepare());
      for (const own of [false, true]) {
        const times = await app.run(drag, size, quick ? 20 : 200, own);
        const ms = own ? "of it the process's own" : 'a step';
        rows.push({ screen: size.join('x'), ms, ...beside(...times, 2) });
      }
    });
  }
  table('One pointer step of a growing drag (medians)', rows);
});
