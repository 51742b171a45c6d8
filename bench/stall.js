'use strict';

// The longest stall of an application's event loop while a snapshot is taken, in the same process
// and in a child (examples/snapshot-in-child). Both write files. node bench/stall.js [--quick]

const { FULL, LARGE, inSession, run, table } = require('./measure');

// In the application: per way of taking one, the stalls and the times until the picture is there.
async function compare(jpeg, rounds, folder) {
  const { monitorEventLoopDelay } = require('perf_hooks');
  const { openSnapshots } = require('../../examples/snapshot-in-child/snapshots');
  host.loadUtilities();
  const snapshots = openSnapshots(folder);
  const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
  const ways = {
    none: () => sleep(50),
    same: () => kiv.getScreenSnap('desktop', jpeg, folder),
    child: () => snapshots.take('desktop', jpeg),
  };
  const delay = monitorEventLoopDelay({ resolution: 1 });
  const results = {};
  for (const way of Object.keys(ways)) results[way] = { stalls: [], times: [] };
  delay.enable();
  // The first round loads.
  for (let round = -1; round < rounds; ++round) {
    for (const [way, take] of Object.entries(ways)) {
      await sleep(20);
      delay.reset();
      await sleep(5); // the first iteration after that starts the measuring
      const start = process.hrtime.bigint();
      const snap = await take();
      const time = Number(process.hrtime.bigint() - start) / 1e6;
      await sleep(10); // the timer behind the figures comes after the stall
      if (snap && !snap.ScreenFullPath) throw new Error(log.join('\n'));
      if (round < 0) continue;
      results[way].stalls.push(delay.max / 1e6);
      results[way].times.push(time);
    }
  }
  delay.disable();
  snapshots.close();
  for (const { stalls, times } of Object.values(results)) {
    stalls.splice(0, rounds, measure.median(stalls), Math.max(...stalls));
    times.splice(0, rounds, measure.median(times));
  }
  return results;
}

run(async (quick) => {
  const rows = [];
  for (const size of [FULL, LARGE]) {
    for (const format of ['JPEG', 'PNG']) {
      const rounds = quick ? 3 : format === 'JPEG' ? 41 : 21;
      const measured = (app, { folder }) => app.run(compare, format === 'JPEG', rounds, folder);
      const { none, same, child } = await inSession(size, measured);
      const [[stall], [inChild, worst]] = [same.stalls, child.stalls];
      rows.push({
        screen: size.join('x'),
        format,
        'no snapshot': none.stalls[0].toFixed(1),
        'same process': stall.toFixed(1),
        child: inChild.toFixed(1),
        ratio: (inChild / stall).toFixed(3),
        'worst with a child': worst.toFixed(1),
        'picture after, same process': same.times[0].toFixed(0),
        'picture after, child': child.times[0].toFixed(0),
      });
    }
  }
  table('Milliseconds of the longest stall while one snapshot is taken (medians)', rows);
});
