'use strict';

// Counting a flood of input, and a reading of counts and idle time, beside bare library calls.
// node bench/input.js [--quick]

const { beside, best, inSession, run, table } = require('./measure');

// The application sleeps while the flood is made, and finds all of it waiting. Only its own
// thread's time counts: the server sends meanwhile.
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
  // Counting reads the connection, too: ask once, when nothing came for a while.
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

// Microseconds of a reading.
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
    // In the first flood the heap grows by all the events.
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
    table(`A flood of ${presses} key presses, all waiting; a reading`, [
      { what: 'a press, processor µs', ...beside(...each, 2) },
      { what: 'longest hold of the loop, processor ms', ...beside(...hold, 1) },
      { what: 'getInputInfo, XScreenSaverQueryInfo, µs', ...beside(...reading, 2) },
    ]);
  });
});
