'use strict';

// What the benchmarks share. Runs inside cases as well.

/** What a share of the values stays below; on a busy machine 0.1 says more of the work than the median. */
const quantile = (values, share) =>
  [...values].sort((a, b) => a - b)[Math.floor(values.length * share)];
const median = (values) => quantile(values, 0.5);

/** Milliseconds of each of `rounds` interleaved runs of the functions in `subjects`. */
function interleaved(subjects, rounds) {
  const times = {};
  for (const name of Object.keys(subjects)) times[name] = [];
  for (let round = 0; round < rounds; ++round) {
    for (const [name, run] of Object.entries(subjects)) {
      const start = process.hrtime.bigint();
      run();
      times[name].push(Number(process.hrtime.bigint() - start) / 1e6);
    }
  }
  return times;
}

/** Lets collected buffers give their memory back, which takes a turn; needs --expose-gc. */
async function settleMemory() {
  for (let round = 0; round < 3; ++round) {
    global.gc();
    await new Promise(setImmediate);
  }
}

/** Kilobytes of a line of /proc/self/status. */
function status(name) {
  const text = require('fs').readFileSync('/proc/self/status', 'utf8');
  return Number(new RegExp(`^${name}:\\s+(\\d+)`, 'm').exec(text)[1]);
}

/** Prints rows of an array of objects as a Markdown table. */
function table(rows) {
  const keys = Object.keys(rows[0]);
  const line = (cells) => `| ${cells.join(' | ')} |`;
  console.log(line(keys));
  console.log(line(keys.map(() => '---')));
  for (const row of rows) console.log(line(keys.map((key) => row[key])));
  console.log();
}

/** Runs a case in a session of its own, made with `options`, and resolves to what it reported. */
async function inSession(options, source, args, nodeArgs = []) {
  const { runCase } = require('../test/helpers/case');
  const { startSession } = require('../test/helpers/session');
  const session = await startSession(options);
  try {
    const { json, stderr } = await runCase(source, {
      env: session.env,
      args,
      nodeArgs,
      timeout: 600000,
    });
    if (!json) throw new Error(stderr);
    return json;
  } finally {
    await session.stop();
  }
}

/** The options of a bare screen. */
const bareScreen = (width, height) => ({
  screens: [`${width}x${height}x24`],
  wm: false,
  bus: false,
});

module.exports = {
  bareScreen,
  inSession,
  interleaved,
  median,
  quantile,
  settleMemory,
  status,
  table,
};
