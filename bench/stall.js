'use strict';

// The longest stall of an application's event loop while a snapshot is taken, in the same process
// and in a child (examples/snapshot-in-child). Both write files. node bench/stall.js [--quick]

const { FULL, LARGE, inSession, run, table } = require('./measure');

// In the application: for each way of taking one, the longest gaps between two iterations of the
// event loop and the times until the picture is there.
async function compare(jpeg, rounds, folder) {
  const { monitorEventLoopDelay } = require('perf_hooks');
  const { openSnapshots } = require('../../examples/snapshot-in-child/snapshots');
  const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
  const delay = monitorEventLoopDelay({ resolution: 1 });
  const watch = async (take) => {
    await sleep(20);
    delay.reset();
    await sleep(5); // the measuring starts with the first iteration after that
    const start = process.hrtime.bigint();
    const snap = await take();
    const time = Number(process.hrtime.bigint() - start) / 1e6;
    await sleep(10); // and notices a stall in the first one after it
    if (snap && !snap.ScreenFullPath) throw new Error(log.join('\n'));
    return { stall: delay.max / 1e6, time };
  };
  host.loadUtilities();
  const snapshots = openSnapshots(folder);
  delay.enable();
  const seen = { same: [], child: [], none: [] };
  // The first round loads.
  for (let round = -1; round < rounds; ++round) {
    const same = await watch(() => kiv.getScreenSnap('desktop', jpeg, folder));
    const child = await watch(() => snapshots.take('desktop', jpeg));
    // A busy machine stalls everybody now and then.
    const none = await watch(() => sleep(child.time));
    if (round < 0) continue;
    for (const [way, one] of Object.entries({ same, child, none })) seen[way].push(one);
  }
  delay.disable();
  snapshots.close();
  const summary = (list) => {
    const [stalls, times] = ['stall', 'time'].map((key) => list.map((one) => one[key]));
    return {
      stall: measure.median(stalls),
      worst: Math.max(...stalls),
      time: measure.median(times),
    };
  };
  for (const way of Object.keys(seen)) seen[way] = summary(seen[way]);
  return seen;
}

run(async (quick) => {
  const rows = [];
  for (const size of [FULL, LARGE]) {
    for (const format of ['JPEG', 'PNG']) {
      const rounds = quick ? 3 : format === 'JPEG' ? 41 : 21;
      const measured = (app, { folder }) => app.run(compare, format === 'JPEG', rounds, folder);
      const { none, same, child } = await inSession(size, measured);
      rows.push({
        screen: size.join('x'),
        format,
        'same process': same.stall.toFixed(1),
        child: child.stall.toFixed(1),
        ratio: (child.stall / same.stall).toFixed(3),
        'no snapshot': none.stall.toFixed(1),
        'worst with a child': child.worst.toFixed(1),
        'picture after, same process': same.time.toFixed(0),
        'picture after, child': child.time.toFixed(0),
      });
    }
  }
  table('Milliseconds of the longest stall while one snapshot is taken (medians)', rows);
});
