'use strict';

// A working day of eight hours in minutes: is anything lost, does anything grow, how long is the loop
// held? Fails when an event was lost, a count did not stay or memory grew.
// node bench/soak.js [--short] [--sanitize | --valgrind]

const path = require('path');

const option = (name) => process.argv.includes(`--${name}`);
const DAYS = {
  whole: {
    minutes: 480,
    events: 1e6,
    ticks: 10000,
    locks: 5000,
    selections: 200,
    restartEvery: 10,
    windowEvery: 5,
  },
  short: {
    minutes: 96,
    events: 1e5,
    ticks: 1000,
    locks: 500,
    selections: 40,
    restartEvery: 2,
    windowEvery: 5,
  },
  valgrind: {
    minutes: 10,
    events: 3000,
    ticks: 100,
    locks: 60,
    selections: 10,
    restartEvery: 4,
    windowEvery: 3,
  },
};
const day = DAYS[option('valgrind') ? 'valgrind' : option('short') ? 'short' : 'whole'];
if (option('sanitize')) Object.assign(process.env, { KIV_BUILD: 'Debug', KIV_SANITIZE: '1' });

const { table } = require('./measure');
const { changes, judge } = require('./soak/judgement');
const { makePerson } = require('./soak/person');
const { memcheck } = require('./soak/valgrind');
const { startCase } = require('../test/helpers/case');
const { startSession } = require('../test/helpers/session');

const SCREEN = { width: 1280, height: 800 };
const ENDINGS = [
  'drag',
  'click',
  'escape',
  'drag',
  'focus',
  'teardown',
  'drag',
  'escape in a drag',
  'closed',
  'destroyed',
];
const SNAPSHOTS = [
  ['desktop', true, 'buffer'],
  ['display', false, 'files'],
  ['display', true, 'async'],
  ['display', true, 'buffer'],
  ['desktop', false, 'buffer'],
  ['desktop', true, 'files'],
  ['desktop', true, 'async'],
  ['display', false, 'buffer'],
];
const CHUNK = 500;
// GDK's remark about a window that somebody else destroyed.
const EXPECTED = /^(\n?\(.*\): Gdk-WARNING .*: GdkWindow .* unexpectedly destroyed\n?|\n)$/;

function startApplication(session, check) {
  const running = startCase('bench/soak/application.js', {
    env: session.env,
    args: [SCREEN.width, SCREEN.height],
    timeout: 3600000,
    node: check ? check.command : undefined,
    nodeArgs: [...(check ? check.args : []), '--expose-gc'],
  });
  const waiting = new Map();
  let text = '';
  let count = 0;
  const end = (error) => {
    for (const { reject } of waiting.values()) reject(error);
    waiting.clear();
  };
  running.child.stdio[3].on('data', (piece) => {
    const lines = (text + piece).split('\n');
    text = lines.pop();
    for (const line of lines.filter((one) => one.startsWith('{'))) {
      const { id, value, error } = JSON.parse(line);
      const { resolve, reject } = waiting.get(id);
      waiting.delete(id);
      if (error) reject(new Error(error));
      else resolve(value);
    }
  });
  running.done.then(() => end(new Error(`the application ended\n${running.output}`)), end);
  return {
    pid: running.pid,
    ask: (name, ...args) =>
      new Promise((resolve, reject) => {
        waiting.set(++count, { resolve, reject });
        running.child.stdin.write(`${JSON.stringify([count, name, args])}\n`);
      }),
    end() {
      running.child.stdin.end();
      return running.done;
    },
  };
}

const share = (total, minute) =>
  Math.floor((total * (minute + 1)) / day.minutes) - Math.floor((total * minute) / day.minutes);

async function live(app, person, complaints) {
  const done = { snapshots: 0, ticks: 0, restarts: 0 };
  const expect = (good, text) => good || complaints.push(text);
  const watched = async (name, run) => {
    await app.ask('forgetTurns');
    await run();
    await app.ask('turns', name);
  };
  const work = (events) => {
    for (let left = events; left > 0; left -= CHUNK) {
      person.work(Math.min(left, CHUNK));
      person.setTitle();
    }
  };

  const snapshot = async (number, events, dying) => {
    const pending = app.ask('snapshot', ...SNAPSHOTS[number % SNAPSHOTS.length]);
    if (dying) person.killWindow();
    else work(events);
    const { width, height, bytes, title } = await pending;
    expect(
      width === SCREEN.width &&
        height === SCREEN.height &&
        bytes > 0 &&
        /^(Document \d+|Undefined)$/.test(title),
      `snapshot ${number}: ${width}x${height}, ${bytes} bytes, title ${title}`,
    );
    if (dying) {
      await person.newWindow();
      work(events);
    }
    await person.settled();
    ++done.snapshots;
  };
  const tick = (count) =>
    watched('interval ticks', async () => {
      done.ticks = await app.ask('tick', count, 4);
    });
  const select = async (number) => {
    const complaint = await person.select(ENDINGS[number % ENDINGS.length], number);
    expect(!complaint, complaint);
    await person.settled();
  };

  // What the module is held against, while it is torn down; it must not count meanwhile.
  const reference = async (events) => {
    await app.ask('teardown');
    await app.ask('startCounting');
    const counted = await app.ask('bareCounted');
    await watched('bare loop: input', async () => {
      const goal = counted + person.workUnseen(events);
      // All of it: while the window manager looks at a click, the server keeps those behind it.
      await global.until(async () => (await app.ask('bareCounted')) === goal, {
        timeout: 60000,
        what: 'the bare count',
      });
    });
    await app.ask('stopCounting');
    const before = (await app.ask('heard')).bare;
    await watched('bare listener: lock signals', async () => {
      person.lock(share(day.locks, 0), true);
      await global.until(
        async () => (await app.ask('heard')).bare === before + share(day.locks, 0),
        { what: 'the bare signals' },
      );
    });
    await app.ask('bareSnapshots');
    await watched('nothing', () => app.ask('sleep', 30));
    await app.ask('init');
    await person.untilHeard();
    await person.settled();
  };

  const sample = async () => {
    await person.settled();
    const { connections, pixmapBytes, resources } = person.resources();
    return {
      ...(await app.ask('sample')),
      'X connections': connections,
      'X pixmap bytes': pixmapBytes,
      'X resources': Object.values(resources).reduce((sum, count) => sum + count, 0),
      resources,
    };
  };

  // Once of everything: what libraries make on first use is there before the first sample.
  await app.ask('init');
  await person.untilHeard();
  await person.newWindow();
  await person.untilBareHeard();
  for (let i = 0; i < SNAPSHOTS.length; ++i) await snapshot(i, 20, i === 1);
  for (let i = 0; i < ENDINGS.length; ++i) await select(i);
  await reference(20);
  await tick(10);
  const before = { ...person.did, ...done };
  const samples = [await sample()];

  let tenth = 1;
  for (let minute = 0; minute < day.minutes; ++minute) {
    const events = share(day.events, minute);
    await watched('input', async () => {
      work(events / 2);
      await person.settled();
    });
    await tick(share(day.ticks, minute));
    await watched('lock signals', async () => {
      person.lock(share(day.locks, minute));
      await person.settled();
    });
    await snapshot(minute, events / 2, minute % day.windowEvery === 0);
    for (let i = 0; i < share(day.selections, minute); ++i) await select(person.did.selections);
    if ((minute + 1) % day.restartEvery === 0) {
      await ((minute + 1) % (day.restartEvery * 2) === 0
        ? reference(events / 2)
        : person.restart());
      ++done.restarts;
    }
    if ((minute + 1) * 10 >= tenth * day.minutes) {
      samples.push(await sample());
      process.stderr.write(`== ${tenth++} tenths of the day\n`);
    }
  }
  const counts = {};
  for (const [name, count] of Object.entries({ ...person.did, ...done }))
    counts[name] = count - before[name];
  counts.restarts = done.restarts;
  expect((await app.ask('ticks')) === done.ticks, 'an interval that was stopped ticked on');
  return { counts, samples };
}

function holdRows(holds) {
  return Object.entries(holds)
    .sort(([a], [b]) => (a < b ? -1 : 1))
    .map(([name, { times, sum, longest, processor }]) => ({
      'call or event': name,
      times,
      'mean ms': (sum / times).toFixed(2),
      'longest ms': longest.toFixed(1),
      'longest, processor ms': processor.toFixed(1),
    }));
}

(async () => {
  const complaints = [];
  const began = Date.now();
  const check = option('valgrind') ? memcheck() : null;
  const session = await startSession({ screens: [`${SCREEN.width}x${SCREEN.height}x24`] });
  const app = startApplication(session, check);
  let person;
  try {
    person = await makePerson(session, app, SCREEN);
    const { counts, samples } = await live(app, person, complaints);
    const holds = await app.ask('holds');
    const log = await app.ask('log');
    const { code, stderr } = await app.end();
    if (code !== 0) complaints.push(`the application's exit code is ${code}\n${stderr}`);
    const remarks = stderr.split(/^/m).filter((line) => !EXPECTED.test(line));
    if (remarks.length > 0) complaints.push(`standard error: ${remarks.join('')}`);
    if (check) complaints.push(...check.findings());

    console.log(
      `A day in ${Math.round((Date.now() - began) / 1000)} s; keys, clicks and lock signals were counted as they were sent\n`,
    );
    table([counts]);
    console.log("At the day's start and after every tenth of it\n");
    table(
      samples.map((row, i) => ({
        tenth: i,
        ...Object.fromEntries(Object.entries(row).filter(([, value]) => typeof value === 'number')),
      })),
    );
    const verdict = judge(samples);
    console.log('After the first tenth\n');
    table(verdict);
    for (const name of ['objects', 'resources']) {
      for (const [kind, values] of changes(samples, name))
        console.log(`${name}: ${kind} ${values.join(' ')}`);
    }
    console.log('What held the loop\n');
    table(holdRows(holds));
    console.log(`Warnings and errors of the module: ${JSON.stringify(log)}\n`);
    // The tools hold back freed memory and count their own.
    const counted =
      check || option('sanitize') ? verdict.filter(({ limits }) => limits === 'equal') : verdict;
    complaints.push(
      ...counted.filter(({ flat }) => flat === 'NO').map(({ quantity }) => `${quantity}: not flat`),
    );
  } finally {
    await app.end().catch(() => {});
    if (person) person.leave();
    await session.stop();
    if (check) check.remove();
  }
  for (const complaint of complaints) console.log(`FAILED: ${complaint}`);
  process.exitCode = complaints.length > 0 ? 1 : 0;
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
