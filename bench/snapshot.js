'use strict';

// A snapshot beside the bare library calls: time, memory, and the cost of collecting its bytes.
// node bench/snapshot.js [--quick]

const { bareScreen, inSession, table } = require('./measure');

const quick = process.argv.includes('--quick');
const SIZES = [
  [1920, 1080],
  [3840, 2160],
];

// Both in one process, taking turns.
const timeCase = async (width, height, kind, jpeg, rounds) => {
  const path = require('path');
  const { interleaved, median } = require('../../bench/measure');
  const { paint } = require('../../bench/pictures');
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const floor = require(path.join(process.cwd(), 'build/Release/bench_floor.node'));
  const client = paint(kind, width, height);
  floor.reserve(width * height * 4);
  const run = () =>
    interleaved(
      {
        floor: () => floor.desktop(jpeg),
        module: () => kiv.getScreenSnap('desktop', jpeg),
      },
      rounds,
    );
  floor.desktop(jpeg);
  kiv.getScreenSnap('desktop', jpeg);
  const times = run();
  report({
    module: median(times.module),
    floor: median(times.floor),
    bytes: kiv.getScreenSnap('desktop', jpeg).data.length,
  });
  client.close();
  kiv.teardown();
};

// Alone in its process, first snapshot: the peak beyond what stood before. The floor's includes the
// room for the encoded bytes.
const memoryCase = async (width, height, kind, jpeg, bytes, module) => {
  const path = require('path');
  const { settleMemory, status } = require('../../bench/measure');
  const { paint } = require('../../bench/pictures');
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const floor = require(path.join(process.cwd(), 'build/Release/bench_floor.node'));
  const client = paint(kind, width, height);
  await settleMemory();
  // From here on the peak is this snapshot's, not the painting's.
  require('fs').writeFileSync('/proc/self/clear_refs', '5');
  const before = status('VmRSS');
  if (module) {
    kiv.getScreenSnap('desktop', jpeg);
  } else {
    floor.reserve(bytes);
    floor.desktop(jpeg);
  }
  report(status('VmHWM') - before);
  client.close();
  kiv.teardown();
};

// What the module keeps shows when the runtime collects its buffers often; left to itself it lets tens
// of megabytes of them pile up first, and the allocator keeps the room.
const flatCase = async (count, collect) => {
  const { settleMemory, status } = require('../../bench/measure');
  const { paint } = require('../../bench/pictures');
  const fs = require('fs');
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const client = paint('busy', 1280, 800);
  const samples = [];
  for (let i = 0; i <= count; ++i) {
    kiv.getScreenSnap(i % 2 ? 'desktop' : 'display', i % 4 !== 0);
    if (i % 10 === 0) await (collect ? settleMemory() : new Promise(setImmediate));
    if (i % (count / 10) === 0 || i === 100) {
      await settleMemory();
      samples.push({
        snapshots: i,
        'resident kB': status('VmRSS'),
        descriptors: fs.readdirSync('/proc/self/fd').length,
      });
    }
  }
  report(samples);
  client.close();
  kiv.teardown();
};

const sinkCase = async () => {
  const path = require('path');
  const internals = require(path.join(process.cwd(), 'build/Release/kiv_internals.node'));
  const rows = [1, 2, 4, 8, 16, 32, 64].map((megabytes) => {
    const bytes = megabytes << 20;
    const ours = internals.sinkNanoseconds(bytes, false) / 1e6;
    const exact = megabytes <= 8 ? internals.sinkNanoseconds(bytes, true) / 1e6 : null;
    return {
      MiB: megabytes,
      'chunks ms': ours.toFixed(2),
      'per MiB': (ours / megabytes).toFixed(3),
      'exact length after every piece ms': exact === null ? '' : exact.toFixed(1),
    };
  });
  report(rows);
};

(async () => {
  const times = [];
  const memory = [];
  for (const [width, height] of SIZES) {
    for (const kind of ['busy', 'noise']) {
      for (const jpeg of [true, false]) {
        const what = { screen: `${width}x${height}`, picture: kind, format: jpeg ? 'JPEG' : 'PNG' };
        const rounds = quick ? 3 : jpeg ? 31 : 7;
        const { module, floor, bytes } = await inSession(bareScreen(width, height), timeCase, [
          width,
          height,
          kind,
          jpeg,
          rounds,
        ]);
        times.push({
          ...what,
          'module ms': module.toFixed(1),
          'floor ms': floor.toFixed(1),
          ratio: (module / floor).toFixed(3),
        });
        const args = [width, height, kind, jpeg, bytes];
        const ours = await inSession(
          bareScreen(width, height),
          memoryCase,
          [...args, true],
          ['--expose-gc'],
        );
        const theirs = await inSession(
          bareScreen(width, height),
          memoryCase,
          [...args, false],
          ['--expose-gc'],
        );
        memory.push({
          ...what,
          'encoded kB': Math.round(bytes / 1024),
          'module peak kB': ours,
          'floor peak kB': theirs,
          'above the floor, of the encoded size': ((ours - theirs) / (bytes / 1024)).toFixed(2),
        });
      }
    }
  }
  console.log('Time of one snapshot (median)\n');
  table(times);
  console.log('Peak memory of one snapshot\n');
  table(memory);
  console.log("Collecting the encoder's pieces\n");
  table(await inSession(bareScreen(800, 600), sinkCase, []));
  for (const collect of [true, false]) {
    console.log(
      `Many snapshots in one process, buffers ${collect ? 'collected every ten' : 'left to the runtime'}\n`,
    );
    table(
      await inSession(
        bareScreen(1280, 800),
        flatCase,
        [quick ? 200 : 2000, collect],
        ['--expose-gc'],
      ),
    );
  }
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
