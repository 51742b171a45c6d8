'use strict';

// upgrade() beside a bare fork and exec of the same shell, in a small process and in a large one.
// node bench/upgrade.js [--quick]

const { makeBox } = require('../test/helpers/box');
const { runCase } = require('../test/helpers/case');
const { baseEnv } = require('../test/helpers/processes');
const { table } = require('./measure');

const quick = process.argv.includes('--quick');
const SIZES = quick ? [0, 1] : [0, 1, 4];

const sizeCase = async (gibibytes, rounds, file, variables) => {
  const path = require('path');
  const { interleaved, median, status } = require('../../bench/measure');
  const floor = require(path.join(process.cwd(), 'build/Release/bench_floor.node'));
  Object.assign(process.env, variables);
  const blocks = [];
  for (let i = 0; i < gibibytes * 4; ++i) blocks.push(Buffer.alloc(1 << 28, 1));
  let pid;
  kiv.setupLogger((level, text) => {
    pid = Number(text.split(':')[1]);
  });
  const subjects = {
    upgrade: () => {
      kiv.upgrade(file);
      process.kill(pid, 'SIGKILL');
    },
    fork: () => floor.forkExec(),
  };
  subjects.upgrade();
  // Not in turns: after a fork the parent pays for every page that it writes to.
  const times = {
    ...interleaved({ upgrade: subjects.upgrade }, rounds),
    ...interleaved({ fork: subjects.fork }, rounds),
  };
  if (blocks.some((block) => block[0] !== 1)) throw new Error('the memory is not there');
  report({
    'resident MiB': Math.round(status('VmRSS') / 1024),
    'upgrade ms': median(times.upgrade).toFixed(2),
    'best ms': Math.min(...times.upgrade).toFixed(2),
    'fork and exec ms': median(times.fork).toFixed(2),
    'its best ms': Math.min(...times.fork).toFixed(2),
    ratio: (median(times.upgrade) / median(times.fork)).toFixed(3),
  });
};

(async () => {
  const box = makeBox();
  try {
    require('fs').writeFileSync(box.inside('a.deb'), '');
    const variables = {
      PATH: box.path('tools', []),
      HOME: box.inside('home'),
      KIV_RECORD: '/dev/null',
      KIV_NOW: '1',
    };
    const rows = [];
    for (const size of SIZES) {
      const { json, stderr } = await runCase(sizeCase, {
        env: baseEnv(),
        args: [size, quick ? 5 : 25, box.inside('a.deb'), variables],
        timeout: 300000,
      });
      if (!json) throw new Error(stderr);
      rows.push(json);
    }
    table(rows);
  } finally {
    box.remove();
  }
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
