'use strict';

// Counting a flood of input, and a reading of counts and idle time, beside bare library calls.
// node bench/input.js [--quick]

const { inSession, run, table } = require('./measure');

// The application sleeps while the flood is made, and finds all of it waiting. Only its own thread's
// time counts: the server sends meanwhile.
async function flood(app, x, presses, subject) {
  await app.run((name) => {
    const module = [kiv.init, kiv.teardown, () => kiv.getInputInfo().keyboardActivity];
    const bare = [reference.startCounting, reference.stopCounting, reference.counted];
    const [start, stop, counted] = name === 'module' ? module : bare;
    start();
    reference.turns();
    Object.assign(global, { stop, counted, known: counted(), began: reference.processor() });
  }, subject);
  process.kill(app.pid, 'SIGSTOP');
  for (let i = 0; i < presses; ++i) x.key();
  await x.sync();
  process.kill(app.pid, 'SIGCONT');
  // Counting reads the connection, too: ask once, when nothing came for a while.
  return app.run(async (wanted) => {
    let last;
    do {
      last = reference.processor();
      await new Promise((resolve) => setTimeout(resolve, 100));
    } while (reference.processor() - last > 2);
    const [, longest] = reference.turns();
    const lost = wanted - (global.counted() - global.known);
    if (lost !== 0) throw new Error(`${lost} presses are missing`);
    const time = reference.processor() - global.began;
    global.stop();
    return { time, longest };
  }, presses);
}

run(async (quick) => {
  const presses = quick ? 10000 : 50000;
  await inSession({ screens: ['640x480'], bus: false }, async (app, { x }) => {
    await app.run(() => {
      kiv.teardown();
      reference.watchTurns();
    });
    const results = { reference: [], module: [] };
    // In the first flood the heap grows by all the events.
    for (let round = 0; round < (quick ? 4 : 12); ++round) {
      for (const name of round % 2 ? ['reference', 'module'] : ['module', 'reference'])
        results[name].push(await flood(app, x, presses, name));
    }
    const best = (name) => Math.min(...results[name].slice(1).map(({ time }) => time));
    table(
      `A flood of ${presses} key presses, all waiting`,
      Object.keys(results).map((name) => ({
        '': name,
        'µs of a press': ((best(name) * 1000) / presses).toFixed(2),
        ratio: (best(name) / best('reference')).toFixed(3),
        'longest hold of the loop, processor ms': Math.max(
          ...results[name].slice(1).map(({ longest }) => longest),
        ).toFixed(1),
      })),
    );
    const [module, bare] = await app.run(
      (rounds) => {
        kiv.init();
        const ten = (f) => () => {
          for (let i = 0; i < 10; ++i) f();
        };
        const subjects = { module: ten(kiv.getInputInfo), reference: ten(reference.inputInfo) };
        measure.interleaved(subjects, 200);
        const times = measure.interleaved(subjects, rounds);
        return ['module', 'reference'].map((name) => measure.quantile(times[name], 0.1) * 100);
      },
      quick ? 500 : 5000,
    );
    table('A reading', [
      {
        'getInputInfo µs': module.toFixed(2),
        'XScreenSaverQueryInfo in an equal object µs': bare.toFixed(2),
        ratio: (module / bare).toFixed(3),
      },
    ]);
  });
});
