'use strict';

// What the benchmarks share, in the runner's process and in the application's.

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

/** Prints rows of an array of objects as a Markdown table. */
function table(title, rows) {
  const keys = Object.keys(rows[0]);
  const line = (cells) => `| ${cells.join(' | ')} |`;
  console.log(`${title}\n`);
  console.log(line(keys));
  console.log(line(keys.map(() => '---')));
  for (const row of rows) console.log(line(keys.map((key) => row[key])));
  console.log();
}

/**
 * Calls `f` with an application, which has `measure` and `reference`, and a session of its own.
 * `tidy` is false where others' code keeps the application from an end in order.
 */
async function inSession(options, f, { tidy = true, ...more } = {}) {
  const { startApp } = require('../test/lib/app');
  const { startSession } = require('../test/lib/session');
  const session = await startSession(options);
  try {
    const app = await startApp(session, more);
    session.stops.push(app.stop);
    await app.run(() => {
      global.measure = require('../../bench/measure');
      global.reference = require(`${process.env.KIV_BUILD_FOLDER}/bench_reference.node`);
    });
    const result = await f(app, session);
    if (tidy) await app.end();
    return result;
  } finally {
    await session.stop();
  }
}

/** Runs a benchmark to its end. */
function run(main) {
  main(process.argv.includes('--quick')).catch((error) => {
    console.error(error);
    process.exitCode = 1;
  });
}

module.exports = { inSession, interleaved, median, quantile, run, table };
