'use strict';

// A working day of eight hours in minutes: is anything lost, does anything grow, how long is the loop
// held? Fails when an event was lost, a count did not stay or memory grew.
// node bench/soak.js [--short] [--sanitize | --valgrind]

const fs = require('fs');
const path = require('path');

const option = (name) => process.argv.includes(`--${name}`);
if (option('sanitize')) Object.assign(process.env, { KIV_BUILD: 'Debug', KIV_SANITIZE: '1' });

const { startApp } = require('../test/lib/app');
const { connect } = require('../test/lib/bus');
const { temporaryFolder, until } = require('../test/lib/processes');
const { startSession } = require('../test/lib/session');
const { CARDINALS, ESCAPE } = require('../test/lib/x');
const { table } = require('./measure');
const { pixels } = require('./pictures');

const DAYS = {
  whole: { minutes: 480, events: 1e6, ticks: 10000, locks: 5000, selections: 200, restarts: 48 },
  short: { minutes: 96, events: 1e5, ticks: 1000, locks: 500, selections: 40, restarts: 48 },
  valgrind: { minutes: 10, events: 3000, ticks: 100, locks: 60, selections: 10, restarts: 2 },
};
const day = DAYS[option('valgrind') ? 'valgrind' : option('short') ? 'short' : 'whole'];
const [WIDTH, HEIGHT] = [1280, 800];
const ENDINGS = 'drag click escape escape-in-a-drag focus teardown closed destroyed'.split(' ');

// GDK's remark about a window that somebody else destroyed.
const EXPECTED = /^(\n?\(.*\): Gdk-WARNING .*: GdkWindow .* unexpectedly destroyed\n?|\n)$/;
// How far the last sample may lie above the first: the engine's and the libraries' own fluctuation.
const LIMITS = { 'resident kB': 8192, 'malloc kB': 512, threads: 2 };

const sum = (counts) => Object.values(counts).reduce((total, count) => total + count, 0);
const share = (total, minute) =>
  Math.floor((total * (minute + 1)) / day.minutes) - Math.floor((total * minute) / day.minutes);

/** The person, the other programs and the day; resolves to the samples. */
async function live({ x, bus }, app, complaints, did) {
  const ask = (name, ...args) => app.run((what, ...more) => soak[what](...more), name, ...args);
  const saver = await connect(bus.address);
  const signal = (active) =>
    saver.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', 'b', [active]);
  let window;

  const expect = (what, found, wanted) => {
    if (String(found) !== String(wanted)) complaints.push(`${what}: ${found}, not ${wanted}`);
  };
  const watched = async (name, act) => {
    await ask('turns');
    await act();
    await ask('note', name);
  };
  const moveTo = (left, top) => {
    x.moveTo(left, top);
    ++did.events;
  };
  const press = () => {
    x.press();
    ++did.clicks;
    did.events += 2;
  };
  const key = (code) => {
    x.key(code);
    ++did.keys;
    did.events += 2;
  };
  async function work(events) {
    for (let round = 0; round * 20 < events; ++round) {
      for (let i = 0; i < 4; ++i) key(38 + ((round + i) % 6));
      for (let i = 0; i < 10; ++i) moveTo(150 + i, 120 + (round % 10));
      press();
      x.release();
      if (round % 25 > 0) continue;
      await x.setProperty(window, '_NET_WM_NAME', 'UTF8_STRING', 8, `Document ${++did.titles}`);
    }
  }
  const newWindow = async () => {
    window = await x.activeWindow({ x: 40, y: 40, title: `Document ${did.titles}` });
  };
  /** All that was done has been counted, no more and no less. */
  const settled = () => {
    let seen;
    const wanted = () => String([did.keys, did.clicks, did.locks]);
    return until(async () => {
      seen = await ask('counts');
      return String(seen) === wanted();
    }).catch(() => {
      throw new Error(`keys, clicks and lock signals: ${seen} instead of ${wanted()}`);
    });
  };
  // Match rules reach the bus in their own time; what comes after a signal that was heard is heard.
  async function init() {
    await ask('init');
    const { screen_lock, screen_unlock } = await ask('heard');
    await until(async () => {
      signal(true);
      return (await ask('heard')).screen_lock > screen_lock;
    }, 'the subscription');
    signal(false);
    await until(async () => (await ask('heard')).screen_unlock > screen_unlock, 'the last signal');
    did.locks = sum(await ask('heard'));
  }
  async function restart() {
    await settled();
    await ask('teardown');
    await init();
  }

  async function snapshot(number, events, dying) {
    const where = ['buffer', 'files', 'async'][number % 3];
    const pending = ask('snapshot', number % 2 ? 'display' : 'desktop', number % 4 > 1, where);
    // The active window goes without a word; whoever asks the server for it meets its death.
    if (dying) x.destroy(window);
    else await work(events);
    const [width, height, bytes, title] = await pending;
    const known = /^(Document \d+|Undefined)$/.test(title);
    expect(`snapshot ${number}`, [width, height, bytes, known], [WIDTH, HEIGHT, true, true]);
    if (dying) {
      ++did.deaths;
      await newWindow();
      await work(events);
    }
    await settled();
    ++did.snapshots;
  }

  const activate = (id) =>
    until(async () => {
      const active = await x.getProperty(x.root, '_NET_ACTIVE_WINDOW');
      if (active.equals(CARDINALS(id)) && (await x.focused()) === id) return true;
      await x.activate(id);
      return false;
    }, 'an active window');
  const findOverlay = async () => {
    const list = await x.getProperty(x.root, '_NET_CLIENT_LIST');
    for (let at = 0; at < list.length; at += 4) {
      const id = list.readUInt32LE(at);
      const { width } = await x.geometry(id).catch(() => ({}));
      if (width === WIDTH && (await x.viewable(id).catch(() => false))) return id;
    }
    return null;
  };
  async function drag(width, height) {
    moveTo(400, 300);
    press();
    await ask('turns');
    for (let i = 1; i <= 8; ++i)
      moveTo(400 + Math.round((width * i) / 8), 300 + Math.round((height * i) / 8));
    await ask('note', 'pointer steps of a drag');
  }
  async function select(number) {
    const ending = ENDINGS[number % ENDINGS.length];
    const code = /escape/.test(ending) ? 102005 : /drag|click/.test(ending) ? 0 : 102003;
    const [width, height] = [10 + ((number * 37) % 200), 10 + ((number * 53) % 150)];
    moveTo(400, 300);
    await ask('select');
    const id = await until(findOverlay, 'the overlay');
    await until(async () => {
      for (const step of [1, 0]) moveTo(400 + step, 300);
      return (await x.pixel(400, 0)) === 0xffffff && (await x.pixel(0, 300)) === 0xffffff;
    }, 'the cross of the overlay');
    const ways = {
      drag: async () => {
        await drag(width, height);
        x.release();
      },
      click: () => {
        press();
        x.release();
      },
      escape: () => key(ESCAPE),
      'escape-in-a-drag': async () => {
        await drag(width, height);
        key(ESCAPE);
        x.release();
      },
      // A focus that is lost within the grace after the first picture does not count: back and forth.
      focus: () =>
        until(async () => {
          await x.activate(window);
          if ((await ask('selected')).length > 0) return true;
          if ((await x.focused()) === window) await x.activate(id);
          return false;
        }, 'the end by focus'),
      teardown: restart,
      closed: () => x.closeWindow(id),
      destroyed: () => x.destroy(id),
    };
    await watched(`end of a selection by ${ending}`, async () => {
      await ways[ending]();
      await until(async () => (await ask('selected')).length > 0, 'the end of the selection');
    });
    const size = ending === 'drag' ? [width, height, true] : [0, 0, false];
    expect(`selection by ${ending}`, await ask('selected'), [code, ...size]);
    await until(async () => !(await findOverlay()), 'the overlay to be gone');
    await activate(window);
    await settled();
    ++did.selections;
  }

  const known = await x.clients();
  await app.run(() => {
    global.soak = require('../../bench/soak/application');
  });
  const sample = async () => {
    await ask('bareSnapshots');
    await watched('nothing', () => ask('sleep', 30));
    const clients = (await x.clients()).filter((client) => !known.includes(client));
    const kinds = await Promise.all(clients.map((client) => x.resources(client)));
    const resources = {
      'X connections': clients.length,
      'X resources': Object.assign({}, ...kinds),
    };
    return { ...(await ask('sample')), ...resources };
  };

  // Once of everything: what libraries make on first use is there before the first sample.
  await init();
  await newWindow();
  for (let i = 0; i < 12; ++i) await snapshot(i, 20, i === 1);
  for (let i = 0; i < ENDINGS.length; ++i) await select(i);
  await ask('bareSnapshots');
  await ask('tick', 10);
  did.snapshots = did.selections = did.deaths = 0;
  const samples = [await sample()];
  for (let minute = 0; minute < day.minutes; ++minute) {
    const events = share(day.events, minute);
    await watched('input', async () => {
      await work(events / 2);
      await settled();
    });
    await watched('interval ticks', () => ask('tick', share(day.ticks, minute)));
    await watched('lock signals', async () => {
      for (let i = share(day.locks, minute); i > 0; --i) {
        signal(i % 2 === 0);
        ++did.locks;
      }
      await settled();
    });
    await snapshot(minute, events / 2, minute % 5 === 0);
    for (let i = share(day.selections, minute); i > 0; --i) await select(did.selections);
    if (share(day.restarts, minute) > 0) await restart();
    if (share(10, minute) > 0) samples.push(await sample());
  }
  expect('ticks', await ask('ticks'), 10 + day.ticks);
  saver.close();
  return { samples, holds: await ask('holds'), log: await ask('complaints') };
}

/** A row for each quantity, from its samples after the first tenth. */
const judge = (samples) =>
  Object.keys(samples[0]).map((name) => {
    const values = samples.slice(1).map((sample) => sample[name]);
    const numbers = values.map((value) => (typeof value === 'object' ? sum(value) : value));
    const [first, last] = [numbers[0], numbers[numbers.length - 1]];
    const limit = LIMITS[name];
    // Counts of kinds have to stay each on their own.
    const texts = values.map((value) => JSON.stringify(value));
    const odd = texts.find((text) => text !== texts[0]);
    return {
      quantity: name,
      'after the first tenth': first,
      lowest: Math.min(...numbers),
      highest: Math.max(...numbers),
      last,
      limit: limit ? `+${limit}` : 'equal',
      flat: (limit ? last - first <= limit : !odd) ? 'yes' : `NO: ${texts[0]}, ${odd}`,
    };
  });

const holdRow = ([name, hold]) => ({
  'call or event': name,
  times: hold.times,
  'mean ms': (hold.sum / hold.times).toFixed(2),
  'longest ms': hold.longest.toFixed(1),
  'longest, processor ms': hold.processor.toFixed(1),
});

async function main() {
  const complaints = [];
  const did = { events: 0, keys: 0, clicks: 0, titles: 0, snapshots: 0, selections: 0, deaths: 0 };
  const began = Date.now();
  const memcheck = option('valgrind') && path.join(temporaryFolder(), 'report');
  const valgrind = `valgrind --quiet --leak-check=full --show-leak-kinds=definite --num-callers=50
    --keep-debuginfo=yes --fullpath-after= --log-file=${memcheck}
    --suppressions=${path.join(__dirname, 'valgrind.supp')}`.split(/\s+/);
  const session = await startSession({ screens: [`${WIDTH}x${HEIGHT}`], wm: 'openbox' });
  try {
    await session.x.wallpaper(WIDTH, HEIGHT, pixels(WIDTH, HEIGHT));
    const app = await startApp(session, { setUp: false, under: memcheck ? valgrind : [] });
    const { samples, holds, log } = await live(session, app, complaints, did);
    await app.run(() => kiv.teardown());
    app.child.disconnect();
    const { code } = await app.ended;
    if (code !== 0) complaints.push(`the application's exit code is ${code}`);
    const remarks = app
      .output()
      .split(/^/m)
      .filter((line) => !EXPECTED.test(line));
    if (remarks.length > 0) complaints.push(`said: ${remarks.join('')}`);
    if (memcheck) {
      const reports = fs
        .readFileSync(memcheck, 'utf8')
        .split(/^==\d+== \n/m)
        .filter(Boolean);
      console.log(`memcheck: ${reports.length} reports\n`);
      // Those whose stack passes through the module.
      complaints.push(...reports.filter((report) => /src\/cpp\/|kiv_native/.test(report)));
    }

    const seconds = Math.round((Date.now() - began) / 1000);
    table(`A day in ${seconds} s; keys, clicks and lock signals were counted as they were sent`, [
      did,
    ]);
    const verdict = judge(samples);
    table('After the first tenth', verdict);
    table('What held the loop', Object.entries(holds).sort().map(holdRow));
    console.log(`Warnings and errors of the module: ${JSON.stringify(log)}\n`);
    // The tools hold back freed memory and count their own.
    const tool = memcheck || option('sanitize');
    for (const { quantity, flat } of verdict)
      if (flat !== 'yes' && !(tool && quantity in LIMITS)) complaints.push(`${quantity}: not flat`);
  } finally {
    await session.stop();
  }
  for (const complaint of complaints) console.log(`FAILED: ${complaint}`);
  process.exitCode = complaints.length > 0 ? 1 : 0;
}

main().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
