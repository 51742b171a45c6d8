'use strict';

// Input counts, idle time, lock signals and the timer beside bare library calls.
// node bench/input.js [--quick]

const { inSession, table } = require('./measure');

const quick = process.argv.includes('--quick');

// The same flood for the module and for the bare loop, taking turns; each finds all of it waiting.
// Only the processor time of the loop's turns counts: the server sends meanwhile.
const floodCase = async (presses, rounds) => {
  const floor = require(require('path').join(process.cwd(), 'build/Release/bench_input.node'));
  const { median, quantile } = require('../../bench/measure');
  kiv.setupLogger(() => {});
  const keycode = X.open(process.env.DISPLAY).keycode('a');
  const QUIET = 50;
  const turn = () => new Promise((resolve) => setTimeout(resolve, 1));
  floor.timeTurns();
  const drain = async (count) => {
    const before = count();
    floor.turns();
    floor.feed(presses, keycode);
    let tick = process.hrtime.bigint();
    let gap = 0;
    const timer = setInterval(() => {
      const now = process.hrtime.bigint();
      gap = Math.max(gap, Number(now - tick) / 1e6);
      tick = now;
    }, 1);
    const start = Date.now();
    let busyAt = start;
    // Counting reads the connection, too: ask once, when nothing came for a while.
    let [busy, processor, clock] = [0, 0, 0];
    while (Date.now() - busyAt < QUIET) {
      await turn();
      const [all, longest, longestClock] = floor.turns();
      if (all > 0) busyAt = Date.now();
      busy += all;
      processor = Math.max(processor, longest);
      clock = Math.max(clock, longestClock);
      if (Date.now() - start > 20000) throw new Error('the flood does not end');
    }
    const complete = count() - before === presses;
    await until(() => count() - before === presses, { what: 'the last press' });
    const wall = busyAt - start;
    clearInterval(timer);
    return { busy, processor, clock, gap, wall, complete };
  };
  const samples = { floor: [], module: [] };
  const run = {
    floor: async () => {
      floor.startCounting();
      samples.floor.push(await drain(floor.keyPresses));
      floor.stopCounting();
    },
    module: async () => {
      kiv.init();
      samples.module.push(await drain(() => kiv.getInputInfo().keyboardActivity));
      kiv.teardown();
    },
  };
  // In the first flood the heap grows by all the events.
  await run.floor();
  const first = floor.longestReading();
  await run.module();
  samples.floor = [];
  samples.module = [];
  for (let round = 0; round < rounds; ++round) {
    for (const name of round % 2 ? ['floor', 'module'] : ['module', 'floor']) await run[name]();
  }
  for (const name of Object.keys(samples))
    samples[name] = samples[name].filter(({ complete }) => complete);
  const figure = (name, key) => median(samples[name].map((one) => one[key]));
  const worst = (name, key) => Math.max(...samples[name].map((one) => one[key])).toFixed(1);
  const rate = (name) =>
    ((presses * 2) /
      quantile(
        samples[name].map((one) => one.busy),
        0.1,
      )) *
    1000;
  const rows = ['floor', 'module'].map((name) => ({
    '': name,
    'waiting events': presses * 2,
    'drained per second': Math.round(rate(name)),
    'of the floor': (rate(name) / rate('floor')).toFixed(3),
    'longest hold of the loop, processor ms': worst(name, 'processor'),
    'on the clock ms, median and worst': `${figure(name, 'clock').toFixed(1)}, ${worst(name, 'clock')}`,
    'longest gap of a 1 ms JavaScript timer, ms': `${figure(name, 'gap').toFixed(1)}, ${worst(name, 'gap')}`,
    'drained after ms': figure(name, 'wall').toFixed(0),
  }));
  report({ rows, first, reading: floor.longestReading() });
};

const idleCase = async (rounds) => {
  const floor = require(require('path').join(process.cwd(), 'build/Release/bench_input.node'));
  const { interleaved, quantile } = require('../../bench/measure');
  kiv.setupLogger(() => {});
  kiv.init();
  floor.feed(1, X.open(process.env.DISPLAY).keycode('a'));
  const ten = (run) => () => {
    for (let i = 0; i < 10; ++i) run();
  };
  const subjects = {
    floor: ten(floor.idle),
    object: ten(floor.object),
    module: ten(kiv.getInputInfo),
  };
  interleaved(subjects, 200);
  const times = interleaved(subjects, rounds);
  const [bare, object, module] = ['floor', 'object', 'module'].map(
    (name) => quantile(times[name], 0.1) * 100,
  );
  report([
    {
      'getInputInfo µs': module.toFixed(2),
      'XScreenSaverQueryInfo µs': bare.toFixed(2),
      'equal object µs': object.toFixed(2),
      'without the object, of the query': ((module - object) / bare).toFixed(3),
    },
  ]);
  kiv.teardown();
};

// Both hear on the same connection; a signal at a time, taking turns, then bursts.
const lockCase = async (count) => {
  const floor = require(require('path').join(process.cwd(), 'build/Release/bench_input.node'));
  const { median, quantile } = require('../../bench/measure');
  const PATHS = { floor: '/bench', module: '/org/gnome/ScreenSaver' };
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  floor.subscribe(PATHS.floor);
  const monitor = new kiv.ScreenLockMonitor();
  let heard = 0;
  let time = 0;
  const now = () => Number(process.hrtime.bigint()) / 1e6;
  monitor.emit = () => {
    time = now();
    ++heard;
  };
  const arrived = { floor: () => floor.signals(), module: () => heard };
  const at = { floor: () => floor.signalTime(), module: () => time };
  bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
  const send = async (who, times) => {
    const goal = arrived[who]() + times;
    const start = now();
    bus.emit(PATHS[who], 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)', times);
    const end = start + 30000;
    while (arrived[who]() < goal) {
      if (now() > end) throw new Error(`${who} heard ${arrived[who]()} of ${goal} signals`);
      await new Promise(setImmediate);
    }
    return at[who]() - start;
  };
  const names = Object.keys(PATHS);
  await until(
    () => {
      for (const name of names)
        bus.emit(PATHS[name], 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)', 1);
      return names.every((name) => arrived[name]() > 0);
    },
    { what: 'the subscriptions' },
  );
  await new Promise((resolve) => setTimeout(resolve, 200));
  const single = { floor: [], module: [] };
  const burst = { floor: [], module: [] };
  for (let i = 0; i < count; ++i) for (const name of names) single[name].push(await send(name, 1));
  for (let i = 0; i < 9; ++i)
    for (const name of names) burst[name].push((await send(name, 1000)) / 1000);
  report(
    names.map((name) => ({
      '': name,
      'one signal, median µs': (median(single[name]) * 1000).toFixed(1),
      'of the floor': (median(single[name]) / median(single.floor)).toFixed(3),
      '90 % within µs': (quantile(single[name], 0.9) * 1000).toFixed(1),
      'in bursts of 1000, µs each': (median(burst[name]) * 1000).toFixed(1),
      'of the floor, bursts': (median(burst[name]) / median(burst.floor)).toFixed(3),
    })),
  );
  bus.close();
  kiv.teardown();
};

const timerCase = async (ticks, period) => {
  kiv.setupLogger(() => {});
  kiv.init();
  const run = (start, stop) =>
    new Promise((resolve) => {
      const began = process.hrtime.bigint();
      const late = [];
      start(() => {
        late.push(Number(process.hrtime.bigint() - began) / 1e6 - (late.length + 1) * period);
        if (late.length < ticks) return;
        stop();
        resolve(late);
      });
    });
  let node = null;
  const [ours, theirs] = await Promise.all([
    run(
      (tick) => kiv.setInterval(tick, period),
      () => kiv.setInterval(null, 0),
    ),
    run(
      (tick) => {
        node = setInterval(tick, period);
      },
      () => clearInterval(node),
    ),
  ]);
  const drift = (late) => late[ticks - 1];
  report(
    [
      ['module', ours],
      ['Node', theirs],
    ].map(([name, late]) => ({
      '': name,
      ticks,
      'period ms': period,
      'drift after the last tick ms': drift(late).toFixed(2),
      'most late at any tick ms': Math.max(...late).toFixed(2),
      "of Node's drift": (drift(late) / drift(theirs)).toFixed(3),
    })),
  );
  kiv.teardown();
};

const dayCase = async (events) => {
  const fs = require('fs');
  const floor = require(require('path').join(process.cwd(), 'build/Release/bench_input.node'));
  const { status } = require('../../bench/measure');
  kiv.setupLogger(() => {});
  kiv.init();
  const keycode = X.open(process.env.DISPLAY).keycode('a');
  const CHUNK = 500;
  const samples = [];
  let sent = 0;
  const counted = () => kiv.getInputInfo().keyboardActivity;
  const sample = async () => {
    await until(() => counted() === sent, { timeout: 60000, what: 'the last press' });
    global.gc();
    samples.push({
      events: sent * 2,
      'presses counted': counted(),
      'resident kB': status('VmRSS'),
      descriptors: fs.readdirSync('/proc/self/fd').length,
    });
  };
  const feed = async (presses) => {
    for (const goal = sent + presses; sent < goal; sent += CHUNK) {
      floor.feed(CHUNK, keycode);
      await new Promise(setImmediate);
    }
  };
  await sample();
  for (let tenth = 0; tenth < 10; ++tenth) {
    await feed(events / 20);
    await sample();
  }
  report(samples);
  kiv.teardown();
};

(async () => {
  console.log('A flood of key presses, all waiting\n');
  const flood = await inSession({}, floodCase, quick ? [10000, 3] : [50000, 21]);
  table(flood.rows);
  console.log(
    `Longest single XPending of the floor: ${flood.reading.toFixed(1)} processor ms, ` +
      `${flood.first.toFixed(1)} in the first flood\n`,
  );
  console.log('A reading of counts and idle time\n');
  table(await inSession({}, idleCase, [quick ? 500 : 5000]));
  console.log("From a lock signal's sender to the listener\n");
  table(await inSession({}, lockCase, [quick ? 200 : 3000]));
  console.log("The timer beside Node's own\n");
  table(await inSession({}, timerCase, [200, quick ? 5 : 20]));
  console.log('A day of input in one process\n');
  table(await inSession({}, dayCase, [quick ? 100000 : 1000000], ['--expose-gc']));
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
