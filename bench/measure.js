'use strict';

// Shared by the benchmarks, in the runner's process and in the application's.

const { startApp } = require('../test/lib/app');
const { startSession } = require('../test/lib/session');

const FULL = [1920, 1080];
const LARGE = [3840, 2160];

const sorted = (values) => [...values].sort((a, b) => a - b);
const quantile = (values, share) => sorted(values)[Math.floor(values.length * share)];
const median = (values) => quantile(values, 0.5);
/** The 10th percentile: on a busy machine it measures the work better than the median. */
const best = (values) => quantile(values, 0.1);

const clock = () => Number(process.hrtime.bigint()) / 1e6;

/** Milliseconds of `rounds` calls of each function in `subjects`, called in turn. */
async function interleaved(subjects, rounds, { now = clock, pause = 0 } = {}) {
  const times = {};
  for (const name of Object.keys(subjects)) times[name] = [];
  // The first round warms up.
  for (let round = -1; round < rounds; ++round) {
    for (const [name, call] of Object.entries(subjects)) {
      if (pause > 0) await new Promise((resolve) => setTimeout(resolve, pause));
      const start = now();
      await call();
      if (round >= 0) times[name].push(now() - start);
    }
  }
  return times;
}

/** Prints rows of an array of objects as a Markdown table. */
function table(title, rows) {
  const keys = Object.keys(rows[0]);
  const cells = [keys, keys.map(() => '---'), ...rows.map((row) => keys.map((key) => row[key]))];
  console.log(`${title}\n`);
  for (const line of cells) console.log(`| ${line.join(' | ')} |`);
  console.log();
}

/** The cells of a comparison. */
const beside = (module, bare, digits) => ({
  module: module.toFixed(digits),
  'bare calls': bare.toFixed(digits),
  ratio: (module / bare).toFixed(3),
});

/** BGRX pixels with areas, edges and gradients, like a desktop. */
function pixels(width, height) {
  const words = new Uint32Array(width * height);
  let state = 12345;
  const random = () => (state = (Math.imul(state, 1664525) + 1013904223) >>> 0);
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x)
      words[y * width + x] = (((x * 255) / width) << 16) | (((y * 255) / height) << 8) | 0x60;
  }
  for (let i = 0; i < 400; ++i) {
    const [left, top] = [random() % width, random() % height];
    const right = Math.min(width, left + (random() % 400));
    const bottom = Math.min(height, top + (random() % 200));
    const color = random() >>> 8;
    for (let y = top; y < bottom; ++y) words.fill(color, y * width + left, y * width + right);
  }
  // Strokes as thin as text.
  for (let i = 0; i < words.length / 40; ++i) {
    const at = random() % (words.length - 8);
    words.fill(0x101010, at, at + 1 + (random() % 5));
  }
  return Buffer.from(words.buffer);
}

/** Shows a busy desktop: as wallpaper, or on Wayland in a window above all others. */
async function decorate({ server, x }, width, height) {
  if (server) return x.wallpaper(width, height, pixels(width, height));
  const id = x.createWindow({ width, height, override: true });
  x.map(id);
  x.draw(id, width, height, pixels(width, height));
  return x.sync();
}

/**
 * Calls `f` with an application, which has `measure` and `reference`, and with its session, whose
 * screen shows a busy desktop. `tidy` is false if other code prevents a clean exit. `start` starts
 * another kind of session.
 */
async function inSession([width, height], f, options = {}) {
  const { env, setUp, tidy = true, start = startSession, ...more } = options;
  const session = await start({ screens: [`${width}x${height}`], ...more });
  try {
    await decorate(session, width, height);
    const app = await startApp(session, { env, setUp });
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

/** Runs a benchmark. */
function run(main) {
  main(process.argv.includes('--quick')).catch((error) => {
    console.error(error);
    process.exitCode = 1;
  });
}

module.exports = { FULL, LARGE, beside, best, inSession, interleaved, median, pixels, run, table };
