'use strict';

// Runs a working day of eight hours in minutes. Fails when an event is not counted, a count does
// not stay constant or memory grows.
// node bench/soak.js [--short] [--sanitize]

const option = (name) => process.argv.includes(`--${name}`);
if (option('sanitize')) Object.assign(process.env, { KIV_BUILD: 'Debug', KIV_SANITIZE: '1' });

const assert = require('assert');
const { act, openSelection, outcome } = require('../test/lib/overlay');
const { until } = require('../test/lib/processes');
const { ESCAPE } = require('../test/lib/x');
const { inSession, run, table } = require('./measure');

const DAYS = {
  whole: { minutes: 480, events: 1e6, ticks: 10000, locks: 5000, selections: 200, restarts: 48 },
  short: { minutes: 96, events: 1e5, ticks: 1000, locks: 500, selections: 40, restarts: 48 },
};
const day = DAYS[option('short') ? 'short' : 'whole'];
const SIZE = [1280, 800];

// GDK's warning about a window that another client destroyed.
const EXPECTED = /^(\(.*\): Gdk-WARNING .*: GdkWindow .* unexpectedly destroyed)?\n/gm;
// By how much the last sample may exceed the first: fluctuation of the engine and the libraries.
const LIMITS = { 'resident bytes': 8 << 20, 'malloc bytes': 512 << 10 };
const LOCKED = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', 'b'];

const sum = (counts) => Object.values(counts).reduce((total, count) => total + count, 0);
const share = (total, minute) =>
  Math.floor((total * (minute + 1)) / day.minutes) - Math.floor((total * minute) / day.minutes);

/** Simulates the user, other programs and the day. Resolves to the samples. */
async function live(session, app, did) {
  const x = {
    ...session.x,
    press() {
      ++did.clicks;
      session.x.press();
    },
    key(code) {
      ++did.keys;
      session.x.key(code);
    },
  };
  const ask = (name, ...args) => app.run((what, ...more) => soak[what](...more), name, ...args);
  const signal = (active) => session.peer.emit(...LOCKED, [active]);
  const expect = (what, found, wanted) => assert.strictEqual(String(found), String(wanted), what);
  let window;
  const newWindow = async () => {
    window = await x.activeWindow({ x: 40, y: 40, title: `Document ${did.titles}` });
  };
  async function work(events) {
    for (let round = 0; round * 20 < events; ++round) {
      for (let i = 0; i < 4; ++i) x.key(38 + ((round + i) % 6));
      for (let i = 0; i < 10; ++i) x.moveTo(150 + i, 120 + (round % 10));
      act(x, 'press', 'release');
      if (round % 25 > 0) continue;
      await x.setProperty(window, '_NET_WM_NAME', 'UTF8_STRING', 8, `Document ${++did.titles}`);
    }
  }
  /** Waits until all events have been counted, each once. */
  async function settled() {
    const wanted = String([did.keys, did.clicks, did.locks]);
    await until(async () => String(await ask('counts')) === wanted).catch(() => {});
    expect('keys, clicks and lock signals', await ask('counts'), wanted);
  }
  async function init() {
    await ask('init');
    // Match rules reach the bus later. When one signal has arrived, all do.
    await until(() => {
      signal(true);
      return ask('locked');
    }, 'the subscription');
    signal(false);
    await until(async () => !(await ask('locked')), 'the last signal');
    did.locks = (await ask('counts'))[2];
  }
  async function restart() {
    await settled();
    await ask('teardown');
    await init();
  }

  async function snapshot(number, events, dying) {
    const where = ['buffer', 'files', 'async'][number % 3];
    const pending = ask('snapshot', number % 2 ? 'display' : 'desktop', number % 4 > 1, where);
    // Destroys the active window at once, so that requests for it fail.
    if (dying) {
      x.destroy(window);
      await newWindow();
    }
    await work(events);
    const [width, height, bytes, title] = await pending;
    const known = /^(Document \d+|Undefined)$/.test(title);
    expect(`snapshot ${number}`, [width, height, bytes, known], [...SIZE, true, true]);
    await settled();
    ++did.snapshots;
  }

  const focused = async (id) => {
    await x.activate(id);
    return (await x.focused()) === id;
  };
  // A focus loss in the grace period after the first picture has no effect, so repeat it.
  const focusLost = (id) =>
    until(async () => {
      await x.activate(id);
      await until(() => focused(window), 'the window with the focus');
      return app.run(() => global.results.length > 0);
    }, 'the selection to fail');
  const ENDINGS = [
    ['drag', '0,100,80', () => act(x, 'press', [420, 320], 'release')],
    ['click', '0,0,0', () => act(x, 'press', 'release')],
    ['Escape', '102005,0,0', () => act(x, ESCAPE)],
    ['Escape in a drag', '102005,0,0', () => act(x, 'press', [420, 320], ESCAPE, 'release')],
    ['focus', '102003,0,0', focusLost],
    ['teardown', '102003,0,0', restart],
    ['a closed window', '102003,0,0', (id) => x.closeWindow(id)],
    ['a destroyed window', '102003,0,0', (id) => x.destroy(id)],
  ];
  async function select(number) {
    const [name, wanted, end] = ENDINGS[number % ENDINGS.length];
    await end(await openSelection(x, app));
    expect(`selection by ${name}`, await outcome(x, app), wanted);
    await until(() => focused(window), 'the window with the focus');
    await settled();
    ++did.selections;
  }

  const others = await x.clients();
  await app.run(() => {
    global.soak = require('../../bench/soak/application');
  });
  async function sample() {
    const found = await ask('sample');
    const mine = (await x.clients()).filter((client) => !others.includes(client));
    const kinds = await Promise.all(mine.map(x.resources));
    return { ...found, 'X connections': mine.length, 'X resources': Object.assign({}, ...kinds) };
  }

  // Everything once, so that the first sample includes what libraries allocate on first use.
  await init();
  await newWindow();
  for (let i = 0; i < 12; ++i) await snapshot(i, 20, i === 1);
  for (let i = 0; i < ENDINGS.length; ++i) await select(i);
  await ask('tick', 10);
  did.snapshots = did.selections = 0;
  const samples = [];
  for (let minute = 0; minute < day.minutes; ++minute) {
    const events = share(day.events, minute);
    await work(events / 2);
    await ask('tick', share(day.ticks, minute));
    const locks = share(day.locks, minute);
    for (let i = locks; i > 0; --i) signal(i % 2 === 0);
    did.locks += locks;
    await snapshot(minute, events / 2, minute % 5 === 0);
    for (let i = share(day.selections, minute); i > 0; --i) await select(did.selections);
    if (share(day.restarts, minute) > 0) await restart();
    if (share(10, minute) > 0) samples.push(await sample());
  }
  return samples;
}

/** One row per quantity. Counts must stay constant for each kind. */
const judge = (samples) =>
  Object.keys(samples[0]).map((quantity) => {
    const values = samples.map((sample) => sample[quantity]);
    const totals = values.map((value) => (typeof value === 'object' ? sum(value) : value));
    const [first, last, limit] = [totals[0], totals[totals.length - 1], LIMITS[quantity]];
    const kinds = new Set(values.map((value) => JSON.stringify(value)));
    const stays = limit ? last - first <= limit : kinds.size === 1;
    const allowed = limit ? `+${limit}` : 'equal';
    return { quantity, first, last, allowed, stays: stays ? 'yes' : `NO: ${[...kinds].join(' ')}` };
  });

async function liveAndJudge(app, session) {
  const did = { keys: 0, clicks: 0, locks: 0, titles: 0, snapshots: 0, selections: 0 };
  const rows = judge(await live(session, app, did));
  table(`A day in ${Math.round(process.uptime())} s, all of it counted`, [did]);
  table('From the first tenth to the end', rows);
  await app.run(() => kiv.teardown());
  app.child.disconnect();
  const { code } = await app.ended;
  assert.deepStrictEqual([code, app.output().replace(EXPECTED, '')], [0, '']);
  // The sanitizer delays freeing memory.
  const judged = rows.filter(({ quantity }) => !option('sanitize') || !LIMITS[quantity]);
  for (const { quantity, stays } of judged) assert.strictEqual(stays, 'yes', quantity);
}

run(() => inSession(SIZE, liveAndJudge, { wm: 'openbox', setUp: false, tidy: false }));
