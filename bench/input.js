'use strict';

// A flood of input, and reading counts and idle time, compared with bare library calls.
// node bench/input.js [--quick]

const { beside, best, inSession, run, table } = require('./measure');

// The application is stopped while the flood is sent, and then handles all of it. Only its own
// thread's time counts, because the server is still sending.
async function flood(app, x, presses, subject) {
  await app.run((subject) => {
    const module = [kiv.init, kiv.teardown, () => kiv.getInputInfo().keyboardActivity];
    const bare = [reference.startCounting, reference.stopCounting, reference.counted];
    const [start, stop, counted] = subject === 'module' ? module : bare;
    start();
    reference.longestTurn();
    Object.assign(global, { stop, counted, known: counted(), began: reference.processor() });
  }, subject);
  process.kill(app.pid, 'SIGSTOP');
  for (let i = 0; i < presses; ++i) x.key();
  await x.sync();
  process.kill(app.pid, 'SIGCONT');
  // Counting also reads the connection: ask once, after a pause without events.
  return app.run(async (presses) => {
    let last;
    do {
      last = reference.processor();
      await new Promise((resolve) => setTimeout(resolve, 100));
    } while (reference.processor() - last > 2);
    const hold = reference.longestTurn();
    const lost = presses - (global.counted() - global.known);
    if (lost !== 0) throw new Error(`${lost} presses are missing`);
    const each = ((reference.processor() - global.began) * 1000) / presses;
    global.stop();
    return { each, hold };
  }, presses);
}

// Microseconds per call.
const read = async (rounds) => {
  kiv.init();
  const hundred = (f) => () => {
    for (let i = 0; i < 100; ++i) f();
  };
  const subjects = { module: hundred(kiv.getInputInfo), bare: hundred(reference.idle) };
  const { module, bare } = await measure.interleaved(subjects, rounds);
  return [measure.best(module) * 10, measure.best(bare) * 10];
};

run(async (quick) => {
  const presses = quick ? 10000 : 50000;
  await inSession([640, 480], async (app, { x }) => {
    await app.run(() => {
      kiv.teardown();
      reference.watchTurns();
    });
    // The first flood grows the heap.
    await flood(app, x, presses, 'module');
    const results = { module: [], bare: [] };
    for (let round = 0; round < (quick ? 3 : 11); ++round) {
      for (const name of round % 2 ? ['module', 'bare'] : ['bare', 'module'])
        results[name].push(await flood(app, x, presses, name));
    }
    const both = (pick) => [pick(results.module), pick(results.bare)];
    const each = both((floods) => best(floods.map((one) => one.each)));
    const hold = both((floods) => Math.max(...floods.map((one) => one.hold)));
    const reading = await app.run(read, quick ? 50 : 500);
    table(`A flood of ${presses} queued key presses; reading counts and idle time`, [
      { what: 'a press, processor µs', ...beside(...each, 2) },
      { what: 'longest block of the loop, processor ms', ...beside(...hold, 1) },
      { what: 'getInputInfo, XScreenSaverQueryInfo, µs', ...beside(...reading, 2) },
    ]);
  });
});
