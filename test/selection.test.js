'use strict';

const assert = require('assert');
const { after, before, describe, test } = require('node:test');
const { runCase, startCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

const COMPLETED = 0;
const FAILED = 102003;
const CANCELLED = 102005;
const NOTHING = (code) => [[code, 0, 0, false]];

// Each case gets a host, the module and a client of its own; `log` holds the module's lines.
const around = (body) => `
  const overlay = require('./overlay');
  const { ESCAPE, act, bgrx, crop, difference, findOverlay, key, openSelection, settle } = overlay;
  host.startLoop();
  const log = [];
  kiv.setupLogger((level, text) => log.push(level + ' ' + text));
  kiv.init();
  const client = X.open(process.env.DISPLAY);
  const root = client.rootWindow(0);
  act(client, 'm 320 240');
  try {
    ${body}
  } finally {
    client.close();
    kiv.teardown();
  }`;

describe('with a window manager', () => {
  let session;
  before(async () => { session = await startSession({ screens: ['640x480x24'], bus: false }); });
  after(() => session.stop());
  const run = (body, options) => runCase(around(body), { env: session.env, ...options });

  test('the cut-out is byte for byte what the screen showed, whichever way it was dragged', async () => {
    const { json, stderr } = await run(`
      const desktop = await overlay.desktop(client, 640, 480);
      const before = desktop.draw();
      const corners = [[101, 57], [402, 303]];
      const wrong = [];
      for (const [a, b] of [[0, 1], [1, 0]]) {
        for (const [c, d] of [[0, 1], [1, 0]]) {
          desktop.draw();
          const selection = await openSelection(client);
          act(client, 'm ' + corners[a][0] + ' ' + corners[c][1], 'p', 'm 300 200', 'm ' + corners[b][0] + ' ' + corners[d][1], 'r');
          const result = await selection.finished();
          const pixels = difference(bgrx(result.data), crop(before, 640, 101, 57, 301, 246));
          if (pixels !== 0 || result.width !== 301 || result.height !== 246) wrong.push([a, c, pixels]);
          await settle(selection);
        }
      }
      const { results } = await openSelection(client);
      act(client, 'm 10 10', 'p', 'm 50 60', 'r');
      await until(() => results.length);
      report({ wrong, keys: Object.keys(results[0]), filename: results[0].filename, log: log.slice(-3) });`);
    assert.deepStrictEqual(json, { wrong: [],
      keys: ['width', 'height', 'activeWindowTitle', 'activeProcessName', 'filename', 'data', 'dataThumbnail', 'errorCode'],
      filename: 'screen.png',
      log: ['debug GetScreenSnapAsync:selection:End', 'info Screensnap: selection error:0', 'debug OnScreenSnapCompleted:0:End'],
    }, stderr);
  });

  // What the person or somebody else does to an open overlay, and how often and with what the
  // function is called. The overlay has the focus.
  const ENDINGS = {
    'a click': [`act(client, 'p', 'r');`, NOTHING(COMPLETED)],
    'a horizontal drag': [`act(client, 'p', 'm 400 240', 'r');`, NOTHING(COMPLETED)],
    'a vertical drag': [`act(client, 'p', 'm 320 300', 'r');`, NOTHING(COMPLETED)],
    'a second button starting anew': [`act(client, 'p', 'm 400 300', 'p 3', 'm 410 320', 'r', 'r 3');`, [[COMPLETED, 10, 20, true]]],
    'Escape while hovering': [`key(client, ESCAPE);`, NOTHING(CANCELLED)],
    'Escape while dragging': [`act(client, 'p', 'm 400 300'); key(client, ESCAPE); act(client, 'r');`, NOTHING(CANCELLED)],
    'another key, then Escape twice': [`key(client, client.keycode('a')); key(client, ESCAPE); key(client, ESCAPE);`, NOTHING(CANCELLED)],
    'Escape and release at once': [`act(client, 'p', 'm 400 300'); client.key(ESCAPE, true); client.key(ESCAPE, false); act(client, 'r');`, null],
    'the window manager closing it': [`client.closeWindow(selection.id);`, NOTHING(FAILED)],
    'its X window destroyed': [`client.destroy(selection.id);`, NOTHING(FAILED)],
    'its X window destroyed amid a drag': [`act(client, 'p', 'm 400 300', 'm 350 260'); client.destroy(selection.id); act(client, 'm 420 330', 'm 100 100', 'r');`, null],
    'its X window unmapped': [`client.unmap(selection.id);`, NOTHING(FAILED)],
    'the focus taken late': [`await new Promise((resolve) => setTimeout(resolve, 520)); await takeFocus();`, NOTHING(FAILED)],
    'the focus taken early, then Escape': [`await takeFocus(); key(client, ESCAPE);`, NOTHING(CANCELLED)],
    teardown: [`kiv.teardown(); kiv.init();`, NOTHING(FAILED)],
  };

  test('every ending calls back once, leaves nothing and lets the next one in', async () => {
    const { json, stderr, code } = await run(`
      const outcomes = {};
      for (const [name, body] of endings) {
        let selection = await openSelection(client);
        const focused = () => client.focusedWindow() === selection.id;
        const takeFocus = async () => {
          const other = client.createWindow({ x: 0, y: 0, width: 60, height: 60 });
          client.map(other);
          client.activate(other);
          await until(() => client.focusedWindow() === other, { what: 'another window with the focus' });
          taken.push(other);
        };
        const taken = [];
        act(client, 'm 320 241', 'm 320 240');
        await until(focused, { what: 'the focus' });
        await new Function('selection', 'takeFocus', 'client', 'act', 'key', 'ESCAPE',
          'return (async () => {' + body + '})()')(selection, takeFocus, client, act, key, ESCAPE);
        outcomes[name] = await settle(selection);
        taken.forEach((id) => client.destroy(id));
        act(client, 'r', 'r 3');
        // The guard is free: an immediate snapshot calls back at once.
        let free = false;
        kiv.getScreenSnapAsync('display', () => { free = true; });
        if (!free) outcomes[name].push('the guard is taken');
      }
      report(outcomes);`.replace('endings', JSON.stringify(Object.entries(ENDINGS).map(([name, [body]]) => [name, body]))),
    { timeout: 120000 });
    assert.ok(json, stderr);
    for (const [name, [, expected]] of Object.entries(ENDINGS)) {
      // Where two endings race, either may win, but only one.
      if (expected) assert.deepStrictEqual(json[name], expected, name);
      else assert.strictEqual(json[name].length, 1, `${name}: ${JSON.stringify(json[name])}`);
    }
    // GDK's own remark about a window that somebody else destroyed.
    const rest = stderr.replace(/\n?\(.*\): Gdk-WARNING .*: GdkWindow .* unexpectedly destroyed\n/g, '');
    assert.deepStrictEqual([rest, code], ['', 0]);
  });

  test('what JavaScript does inside the completion and the logger', async () => {
    const { json, stderr } = await run(`
      const events = [];
      const stories = {
        'teardown and init': () => { kiv.teardown(); kiv.teardown(); kiv.init(); },
        'another request': () => {
          kiv.getScreenSnapAsync('desktop', () => events.push('never'));
          kiv.getScreenSnapAsync('selection', () => events.push('never'));
        },
        'a synchronous snapshot': () => { events.push(kiv.getScreenSnap('desktop').width); },
        'an exception': () => { throw new Error('mine'); },
      };
      process.on('uncaughtException', (error) => events.push(error.message));
      const outcomes = {};
      for (const [name, callback] of Object.entries(stories)) {
        for (const way of [() => act(client, 'p', 'm 400 300', 'r'), () => key(client, ESCAPE)]) {
          act(client, 'm 320 240');
          const selection = await openSelection(client, { callback });
          act(client, 'm 321 240', 'm 320 240');
          way();
          outcomes[name] = (outcomes[name] || []).concat(await settle(selection));
        }
      }
      let armed = true;
      let picture = null;
      kiv.setupLogger((level, text) => {
        if (armed && text.startsWith('Screensnap: selection error')) {
          armed = false;
          kiv.teardown();
          picture = kiv.getScreenSnap('desktop').width;
          kiv.init();
        }
      });
      act(client, 'm 320 240');
      const selection = await openSelection(client);
      act(client, 'm 321 240', 'm 320 240', 'p', 'm 400 300', 'r');
      outcomes.logger = await settle(selection);
      // The guard is free by the completion's last line, while the ended overlay is still there.
      let next = null;
      kiv.setupLogger((level, text) => {
        if (next || text !== 'OnScreenSnapCompleted:0:End') return;
        next = [];
        kiv.getScreenSnapAsync('selection', ({ errorCode, width, height }) => next.push([errorCode, width, height]));
      });
      act(client, 'm 320 240');
      const first = await openSelection(client);
      act(client, 'm 321 240', 'm 320 240', 'p', 'm 400 300', 'r');
      await first.finished();
      await until(() => ![undefined, first.id].includes(findOverlay(client)), { what: 'the next overlay' });
      key(client, ESCAPE);
      await until(() => next.length === 1 && !findOverlay(client), { what: 'the end of the next selection' });
      outcomes.next = next;
      kiv.setupLogger(() => {});
      const after = await openSelection(client);
      key(client, ESCAPE);
      outcomes.after = await settle(after);
      report({ outcomes, events, picture });`);
    const both = [[COMPLETED, 80, 60, true], [CANCELLED, 0, 0, false]];
    assert.ok(json, stderr);
    assert.deepStrictEqual(json.outcomes, { 'teardown and init': both, 'another request': both,
      'a synchronous snapshot': both, 'an exception': both, logger: both.slice(0, 1), next: [[CANCELLED, 0, 0]], after: both.slice(1) });
    assert.deepStrictEqual(json.events, [640, 640, 'mine', 'mine']);
    assert.strictEqual(json.picture, 640);
  });

  for (const [way, leave, code] of [['the end of the loop', '', 0], ['process.exit', 'process.exit(7);', 7]]) {
    test(`leaving with an open overlay: ${way}`, async () => {
      const result = await runCase(`
        const { openSelection } = require('./overlay');
        host.startLoop(); kiv.setupLogger(() => {}); ${leave && 'kiv.init();'}
        const client = X.open(process.env.DISPLAY);
        await openSelection(client, { callback: () => report('called') });
        ${leave}`, { env: session.env, leaks: way !== 'process.exit' });
      assert.deepStrictEqual([result.code, result.signal, result.reports, result.stderr], [code, null, [], '']);
    });
  }

  test('process.exit inside the completion', async () => {
    const result = await run(`
      const selection = await openSelection(client, { callback: () => process.exit(8) });
      key(client, ESCAPE);
      await settle(selection);`, { leaks: false });
    assert.deepStrictEqual([result.code, result.signal, result.stderr], [8, null, '']);
  });
});

describe('starts that fail', () => {
  let session;
  before(async () => { session = await startSession({ screens: ['320x240x24'], wm: false, bus: false }); });
  after(() => session.stop());
  const twice = `
    const lines = [];
    const results = [];
    kiv.setupLogger((level, text) => { if (/Screensnap|OnScreenSnap/.test(text)) lines.push(level + ' ' + text); });
    kiv.init();
    for (let i = 0; i < 2; ++i) {
      faults && faults.failNewPixbuf(failing);
      kiv.getScreenSnapAsync('selection', ({ errorCode, width, data }) => results.push([errorCode, width, data.length]));
    }
    report({ lines, results });
    kiv.teardown();`;
  const failure = (line) => ({ lines: [...Array(2)].flatMap(() => [`error Screensnap: ${line}`, `debug OnScreenSnapCompleted:${FAILED}:End`]),
    results: [[FAILED, 0, 0], [FAILED, 0, 0]] });
  const faults = `
    const path = require('path');
    const { RTLD_NOW, RTLD_GLOBAL } = require('os').constants.dlopen;
    const holder = { exports: {} };
    process.dlopen(holder, path.resolve('build', process.env.KIV_BUILD, 'kiv_faults.node'), RTLD_NOW | RTLD_GLOBAL);
    const faults = holder.exports;
    host.startLoop();`;

  // The picture is the first pixbuf of a start, its dimmed copy the second.
  for (const [failing, line] of [[1, 'creating base pixmap error'], [2, 'creating blanded pixmap error']]) {
    test(line, async () => {
      const { json, stderr } = await runCase(`const failing = ${failing}; ${faults} ${twice}`, { env: session.env });
      assert.deepStrictEqual(json, failure(line), stderr);
    });
  }

  test('no display, or a session without its screenshot service', async () => {
    const none = { ...session.env };
    delete none.DISPLAY;
    for (const env of [none, { ...session.env, XDG_SESSION_TYPE: 'wayland' }]) {
      const { json, stderr } = await runCase(`const faults = null; host.startLoop(); ${twice}`, { env });
      assert.deepStrictEqual(json, failure('creating base pixmap error'), stderr);
    }
  });
});

test('many selections leave no window, surface, cursor, picture or file', async () => {
  const session = await startSession({ screens: ['320x240x24'], bus: false });
  const count = process.env.KIV_SANITIZE === '1' ? 60 : 500;
  try {
    const { json, stderr } = await runCase(around(`
      const fs = require('fs');
      const { status } = require('../../bench/measure');
      let some = 0;
      const counts = () => {
        global.gc();
        const { PIXMAP, WINDOW, CURSOR, PICTURE } = client.resources(some);
        return { PIXMAP, WINDOW, CURSOR, PICTURE, descriptors: fs.readdirSync('/proc/self/fd').length,
          files: fs.readdirSync(process.env.TMPDIR).length };
      };
      const samples = [];
      const memory = [];
      for (let i = 0; i <= ${count}; ++i) {
        const selection = await openSelection(client);
        some = selection.id;
        act(client, 'm 40 50', 'm 41 50', 'p', 'm 90 99', 'm 80 88');
        if (i % 4 === 3) key(client, ESCAPE);
        act(client, 'r');
        await settle(selection);
        if (i === 20 || i === ${count}) {
          samples.push(counts());
          memory.push(status('VmRSS'));
        }
      }
      report({ samples, memory });`), { env: session.env, nodeArgs: ['--expose-gc'], timeout: 280000 });
    assert.ok(json, stderr);
    assert.deepStrictEqual(json.samples[1], json.samples[0]);
    // Each captured picture alone takes 225 kB and its dimmed copy as much.
    const pictures = (json.memory[1] - json.memory[0]) / 225;
    if (process.env.KIV_SANITIZE !== '1') assert.ok(pictures < count / 10, `${pictures} pictures' worth of memory`);
  } finally {
    await session.stop();
  }
});
