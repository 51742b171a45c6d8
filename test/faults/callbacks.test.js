'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { HELD, inTurns, nothingLeft, whatIsThere } = require('../helpers/faults');
const { inSession, look, withHost } = require('../helpers/suite');

// Where the module calls JavaScript: `set` hands `f` in, `fire` makes one call or more of it,
// `next` replaces it. `once`: the request holds the function, and nothing comes after its call.
const PLACES = {
  'the logger': {
    set: 'kiv.setupLogger(f);',
    fire: 'kiv.getScreenSnapAsync("desktop", () => {});',
    next: 'kiv.setupLogger(g);',
  },
  'the interval': {
    set: 'kiv.setInterval(f, 5);',
    fire: 'await until(() => calls + others > known);',
    next: 'kiv.setInterval(g, 5);',
  },
  'a monitor\'s emit': {
    set: 'monitor.emit = f;',
    fire: `kiv.init();
      await until(() => {
        bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)');
        return calls + others > known;
      });`,
    next: 'monitor = new kiv.ScreenLockMonitor(); monitor.emit = g;',
  },
  'a completion': {
    set: 'request = ((h) => () => kiv.getScreenSnapAsync("display", h))(f);',
    fire: 'request();',
    next: 'request = () => kiv.getScreenSnapAsync("display", g);',
  },
  'a selection\'s completion': {
    set: 'request = ((h) => () => kiv.getScreenSnapAsync("selection", h))(f);',
    fire: `request();
      request = f = null;
      gc();
      await until(() => findOverlay(client), { what: 'the overlay' });
      key(client, ESCAPE);
      await until(() => calls + others > known, { what: 'the end of the selection' });`,
    next: 'request = () => kiv.getScreenSnapAsync("selection", g);',
  },
  'a conversion': {
    set: 'request = ((h) => () => kiv.getScreenSnap({ toString: h }))(f);',
    fire: 'request();',
    next: 'request = () => kiv.getScreenSnap({ toString: g });',
  },
};
// What the function does there.
const DEEDS = {
  'throws': 'throw new Error("expected");',
  'throws what is no error': 'throw undefined;',
  'recurses': `if (depth < 3) {
    ++depth;
    kiv.getInputInfo();
    kiv.getScreenSnap('display', true);
    kiv.getScreenSnapAsync('desktop', () => {});
    kiv.setInterval(f || (() => {}), 5);
    --depth;
  }`,
  'tears down': 'kiv.teardown();',
  'sets up anew': 'kiv.init();',
  'tears down, sets up and leaves': 'kiv.teardown(); kiv.init(); kiv.teardown(); kiv.init(); return "desktop";',
  'is replaced': 'NEXT',
  'starts a selection': 'if (calls < 3) kiv.getScreenSnapAsync("selection", () => {});',
  'collects': 'for (let i = 0; i < 3; ++i) gc();',
  'was dropped': 'gc();',
};

const ROWS = Object.keys(PLACES).map((place) => Object.keys(DEEDS).map((deed) => [place, deed])).flat();

// Selections would take the focus from each other.
const selects = (row) => row.some((text) => text.includes('selection'));
const work = (rows, width) => inSession({}, async (session) => {
  const before = await whatIsThere(session);
  await inTurns(rows, async ([place, deed]) => {
    const { set, fire, next } = PLACES[place];
    const source = HELD + withHost(`
      let [calls, others, depth] = [0, 0, 0];
      let raised = [];
      let request;
      let monitor = new kiv.ScreenLockMonitor();
      process.on('uncaughtException', (error) => { raised.push(String(error && error.stack)); });
      bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
      const g = () => { ++others; return 'desktop'; };
      let f = () => {
        ++calls;
        ${DEEDS[deed].replace('NEXT', next)}
        return 'desktop';
      };
      const fire = async (known) => { ${fire} };
      const trouble = async (action) => { try { await action(); } catch (error) { raised.push(String(error && error.stack)); } };
      kiv.teardown();
      kiv.init();
      kiv.getScreenSnap('desktop');
      bus.emit('/', 'a.b', 'c', '');
      gc();
      const known = held();
      ${set}
      if (${deed === 'was dropped'}) { f = null; gc(); }
      await trouble(() => fire(calls));
      await new Promise(setImmediate);
      const first = [calls, raised];
      // Whatever that was, the next one comes.
      kiv.teardown();
      kiv.init();
      ${next}
      await until(() => !findOverlay(client), { what: 'no overlay' });
      calls = others = 0;
      raised = [];
      await trouble(() => fire(0).then(() => until(() => others > 0)));
      const second = [others > 0, raised];
      kiv.setInterval(() => {}, 0);
      kiv.setupLogger(() => {});
      const { width } = kiv.getScreenSnap('desktop');
      report({ first, second, width });
      await released(known);`);
    const label = `${place} ${deed}`;
    const { first: [calls, raised], second, width } = await look(source, { env: session.env, nodeArgs: ['--expose-gc'] })
      .catch((error) => { throw new Error(`${label}: ${error.message}`); });
    assert.deepStrictEqual([calls > 0, second, width], [true, [true, []], 1280], label);
    const expected = raised.filter((text) => /^Error: expected|^undefined$/.test(text)).length;
    assert.strictEqual(raised.length, expected, `${label}: ${raised}`);
    // All lines of one call are one exception.
    if (deed.startsWith('throws')) assert.strictEqual(expected, place === 'the logger' ? 1 : calls, label);
    else assert.strictEqual(expected, 0, label);
  }, width);
  await nothingLeft(session, before);
});

test('whatever a callback does, wherever it is called', () => work(ROWS.filter((row) => !selects(row)), 4));
test('the same where selections are', () => work(ROWS.filter(selects), 1));
