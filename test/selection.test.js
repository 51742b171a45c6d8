'use strict';

const assert = require('assert');
const { describe, test } = require('node:test');
const { share, withHost } = require('./helpers/suite');

/* global ESCAPE, act, client, findOverlay, key, log, openSelection, settle */
const [COMPLETED, FAILED, CANCELLED] = [0, 102003, 102005];
const NOTHING = (code) => [[code, 0, 0, false]];

describe('with a window manager', () => {
  const { hosted, run } = share({ screens: ['640x480x24'], bus: false });

  test('the cut-out is byte for byte what the screen showed, whichever way it was dragged', async () => {
    assert.deepStrictEqual(await hosted(async () => {
      const { bgrx, crop, desktop, difference } = require('./overlay');
      const { draw } = await desktop(client, 640, 480);
      const before = draw();
      const wrong = [];
      let last;
      for (const [x1, y1] of [[101, 57], [402, 303], [101, 303], [402, 57]]) {
        draw();
        const selection = await openSelection(client);
        act(client, `m ${x1} ${y1}`, 'p', 'm 300 200', `m ${503 - x1} ${360 - y1}`, 'r');
        last = await selection.finished();
        const pixels = difference(bgrx(last.data), crop(before, 640, 101, 57, 301, 246));
        if (pixels !== 0 || last.width !== 301 || last.height !== 246) wrong.push([x1, y1, pixels]);
        await settle(selection);
      }
      report({ wrong, filename: last.filename, lines: log.slice(-3) });
    }), { wrong: [], filename: 'screen.png', lines: ['debug GetScreenSnapAsync:selection:End',
      'info Screensnap: selection error:0', 'debug OnScreenSnapCompleted:0:End'] });
  });

  // What the person or somebody else does to an open overlay with the focus, and with what the
  // function is called. Where two endings race, either may win, but only one.
  const ENDINGS = {
    'a click': [`act(client, 'p', 'r');`, NOTHING(COMPLETED)],
    'a horizontal drag': [`act(client, 'p', 'm 400 240', 'r');`, NOTHING(COMPLETED)],
    'a vertical drag': [`act(client, 'p', 'm 320 300', 'r');`, NOTHING(COMPLETED)],
    // The window manager holds events back until it has passed the first press on.
    'a second button starting anew': [`act(client, 'p', 'm 400 300');
      await until(() => client.getImage(client.rootWindow(0), 400, 1, 1, 1)[0] === 255, { what: 'the cross' });
      act(client, 'p 3', 'm 410 320', 'r', 'r 3');`, [[COMPLETED, 10, 20, true]]],
    'Escape while dragging': [`act(client, 'p', 'm 400 300'); key(client, ESCAPE); act(client, 'r');`, NOTHING(CANCELLED)],
    'another key, then Escape twice': [`[38, ESCAPE, ESCAPE].forEach((code) => key(client, code));`, NOTHING(CANCELLED)],
    'Escape and release at once': [
      `act(client, 'p', 'm 400 300'); client.key(ESCAPE, true); client.key(ESCAPE, false); act(client, 'r');`, null],
    'the window manager closing it': [`client.closeWindow(selection.id);`, NOTHING(FAILED)],
    'its X window destroyed': [`client.destroy(selection.id);`, NOTHING(FAILED)],
    'its X window destroyed amid a drag': [`act(client, 'p', 'm 400 300', 'm 350 260'); client.destroy(selection.id);
      act(client, 'm 420 330', 'm 100 100', 'r');`, null],
    'its X window unmapped': [`client.unmap(selection.id);`, NOTHING(FAILED)],
    'the focus taken late': [
      `await new Promise((resolve) => setTimeout(resolve, 520)); await takeFocus();`, NOTHING(FAILED)],
    'the focus taken early, then Escape': [`await takeFocus(); key(client, ESCAPE);`, NOTHING(CANCELLED)],
    teardown: [`kiv.teardown(); kiv.init();`, NOTHING(FAILED)],
  };

  test('every ending calls back once, leaves nothing and lets the next one in', async () => {
    const { json, stderr, code } = await run(withHost(async (endings) => {
      const outcomes = {};
      for (const name of Object.keys(endings)) {
        const selection = await openSelection(client);
        const taken = [];
        const takeFocus = async () => {
          taken.push(client.createWindow({ x: 0, y: 0, width: 60, height: 60 }));
          client.map(taken[0]);
          client.activate(taken[0]);
          await until(() => client.focusedWindow() === taken[0], { what: 'another window with the focus' });
        };
        act(client, 'm 320 241', 'm 320 240');
        // GDK may give it to a window of its own within.
        const focused = () => [selection.id, ...client.children(selection.id)].includes(client.focusedWindow());
        await until(focused, { what: 'the focus' });
        await new Function('selection', 'takeFocus', 'client', 'act', 'key', 'ESCAPE',
          `return (async () => { ${endings[name][0]} })()`)(selection, takeFocus, client, act, key, ESCAPE);
        outcomes[name] = await settle(selection);
        taken.forEach((id) => client.destroy(id));
        act(client, 'r', 'r 3');
        // The guard is free: an immediate snapshot calls back at once.
        let free = false;
        kiv.getScreenSnapAsync('display', () => { free = true; });
        if (!free) outcomes[name].push('the guard is taken');
      }
      report(outcomes);
    }), { args: [ENDINGS] });
    assert.ok(json, stderr);
    for (const [name, [, expected]] of Object.entries(ENDINGS)) {
      if (expected) assert.deepStrictEqual(json[name], expected, name);
      else assert.strictEqual(json[name].length, 1, `${name}: ${JSON.stringify(json[name])}`);
    }
    // GDK's own remark about a window that somebody else destroyed.
    const rest = stderr.replace(/\n?\(.*\): Gdk-WARNING .*: GdkWindow .* unexpectedly destroyed\n/g, '');
    assert.deepStrictEqual([rest, code], ['', 0]);
  });

  for (const open of ['openModalWindow', 'openMenu', 'openPopup']) {
    test(`with the host's own window open (${open}) the overlay gets the pointer and the keys, before init too`, async () => {
      assert.deepStrictEqual(await hosted(async (method) => {
        kiv.teardown();
        faults[method]();
        const codes = [];
        for (const end of [() => act(client, 'm 41 50', 'm 40 50', 'p', 'm 90 99', 'r'), () => key(client, ESCAPE)]) {
          kiv.getScreenSnapAsync('selection', ({ errorCode, width }) => codes.push(errorCode, width));
          // Once it is there a line of its cross runs through the top row.
          const row = () => client.getImage(client.rootWindow(0), 0, 1, 640, 1);
          await until(() => { act(client, 'm 300 200', 'm 301 200'); return row()[301 * 4] === 255; }, { what: 'the overlay' });
          const known = codes.length;
          end();
          await until(() => codes.length > known, { what: 'the end of the selection' });
          await until(() => !row().includes(255), { what: 'no overlay' });
        }
        report(codes);
      }, { args: [open] }), [COMPLETED, 50, CANCELLED, 0]);
    });
  }

  const BOTH = [[COMPLETED, 80, 60, true], [CANCELLED, 0, 0, false]];
  test('what JavaScript does inside the completion and the logger', async () => {
    const { events, ...outcomes } = await hosted(async () => {
      const seen = { events: [] };
      process.on('uncaughtException', (error) => seen.events.push(error.message));
      const open = async (options) => {
        act(client, 'm 320 240');
        const selection = await openSelection(client, options);
        act(client, 'm 321 240', 'm 320 240');
        return selection;
      };
      const drag = () => act(client, 'p', 'm 400 300', 'r');
      const stories = {
        'teardown and init': () => { kiv.teardown(); kiv.teardown(); kiv.init(); },
        'another request': () => ['desktop', 'selection'].forEach((type) =>
          kiv.getScreenSnapAsync(type, () => seen.events.push('never'))),
        'a synchronous snapshot': () => seen.events.push(kiv.getScreenSnap('desktop').width),
        'an exception': () => { throw new Error('mine'); },
      };
      for (const name of Object.keys(stories)) {
        seen[name] = [];
        for (const end of [drag, () => key(client, ESCAPE)]) {
          const selection = await open({ callback: stories[name] });
          end();
          seen[name].push(...await settle(selection));
        }
      }
      // Before the completion.
      kiv.setupLogger((level, text) => {
        if (!text.startsWith('Screensnap: selection error')) return;
        kiv.setupLogger(() => {});
        kiv.teardown();
        seen.events.push(kiv.getScreenSnap('desktop').width);
        kiv.init();
      });
      let selection = await open();
      drag();
      seen.logger = await settle(selection);
      // The guard is free by the completion's last line, while the ended overlay is still there.
      seen.next = [];
      kiv.setupLogger((level, text) => {
        if (text !== 'OnScreenSnapCompleted:0:End') return;
        kiv.setupLogger(() => {});
        kiv.getScreenSnapAsync('selection', ({ errorCode, width, height }) => seen.next.push([errorCode, width, height]));
      });
      selection = await open();
      drag();
      await selection.finished();
      await until(() => ![undefined, selection.id].includes(findOverlay(client)), { what: 'the next overlay' });
      key(client, ESCAPE);
      await until(() => seen.next.length === 1 && !findOverlay(client), { what: 'the end of the next selection' });
      report(seen);
    });
    assert.deepStrictEqual(outcomes, { 'teardown and init': BOTH, 'another request': BOTH,
      'a synchronous snapshot': BOTH, 'an exception': BOTH, logger: BOTH.slice(0, 1), next: [[CANCELLED, 0, 0]] });
    assert.deepStrictEqual(events, [640, 640, 'mine', 'mine', 640]);
  });

  for (const [way, leave, code] of [
    ['the end of the loop', 'client.close();', 0],
    ['process.exit', 'process.exit(7);', 7],
    ['process.exit inside the completion', 'key(client, ESCAPE); await settle(selection);', 8],
  ]) {
    test(`leaving with an open overlay: ${way}`, async () => {
      const result = await run(`
        const { ESCAPE, key, openSelection, settle } = require('./overlay');
        host.startLoop();
        kiv.setupLogger(() => {});
        ${code === 0 ? '' : 'kiv.init();'}
        const client = X.open(process.env.DISPLAY);
        const selection = await openSelection(client, { callback: () => process.exit(8) });
        ${leave}`, { leaks: code === 0 });
      assert.deepStrictEqual([result.code, result.signal, result.stderr], [code, null, '']);
    });
  }
});

describe('on a small screen', () => {
  const shared = share({ screens: ['320x240x24'], wm: false, bus: false });

  // The picture is the first pixbuf of a start, its dimmed copy the second.
  for (const [what, env, failing, line] of [
    ['no memory for the picture', {}, 1, 'base pixmap'],
    ['no memory for the dimmed copy', {}, 2, 'blanded pixmap'],
    ['no display', { DISPLAY: undefined }, 0, 'base pixmap'],
    ['a session without its screenshot service', { XDG_SESSION_TYPE: 'wayland' }, 0, 'base pixmap'],
  ]) {
    test(`a start that fails, and the next one: ${what}`, async () => {
      const { lines, results } = await shared.look((number) => {
        faults;
        host.startLoop();
        const seen = { lines: [], results: [] };
        kiv.setupLogger((level, text) => /Screensnap|OnScreenSnap/.test(text) && seen.lines.push(`${level} ${text}`));
        for (let i = 0; i < 2; ++i) {
          faults.failNewPixbuf(number);
          kiv.getScreenSnapAsync('selection',
            ({ errorCode, width, data }) => seen.results.push([errorCode, width, data.length]));
        }
        report(seen);
      }, { env: { ...shared.session.env, ...env }, args: [failing] });
      const once = [`error Screensnap: creating ${line} error`, `debug OnScreenSnapCompleted:${FAILED}:End`];
      assert.deepStrictEqual([lines, results], [[...once, ...once], [[FAILED, 0, 0], [FAILED, 0, 0]]]);
    });
  }

  test('a selection that the logger ends while it starts or is encoded completes once, and leaves no bytes', async () => {
    const results = await Promise.all([['x11', 'Fetch image error'], ['wayland', 'DBUS Screenshot']].map(([type, line]) =>
      shared.look(async (begin, type) => {
        const { act, findOverlay } = require('./overlay');
        faults.failSave();
        host.startLoop();
        const seen = { codes: [], ends: 0 };
        kiv.setupLogger((level, text) => {
          if (text.startsWith(begin)) kiv.teardown();
          if (text.startsWith('OnScreenSnapCompleted')) seen.ends += 1;
        });
        kiv.init();
        kiv.getScreenSnapAsync('selection', ({ errorCode, data }) => seen.codes.push(errorCode, data.length));
        const client = X.open(process.env.DISPLAY);
        if (seen.codes.length === 0) {
          await until(() => findOverlay(client), { what: 'the overlay' });
          act(client, 'm 40 50', 'm 41 50', 'p', 'm 90 99', 'r');
        }
        await until(() => seen.codes.length > 0, { what: 'the end of the selection' });
        kiv.setupLogger(() => {});
        seen.next = kiv.getScreenSnap('desktop').data.toString();
        // Nor does the selection after it.
        if (type === 'x11') {
          kiv.getScreenSnapAsync('selection', ({ errorCode, width, data }) => seen.codes.push(errorCode, width, data.length));
          kiv.teardown();
        }
        client.close();
        report(seen);
      }, { args: [line, type], env: { ...shared.session.env, XDG_SESSION_TYPE: type } })));
    assert.deepStrictEqual(results, [{ codes: [FAILED, 0, FAILED, 0, 0], ends: 1, next: 'partial' }, { codes: [FAILED, 0], ends: 1, next: '' }]);
  });

  test('nothing of a selection is left to a loop that its completion runs', async () => {
    assert.strictEqual(await shared.look(() => {
      faults;
      host.startLoop();
      host.stopLoop();
      kiv.setupLogger(() => {});
      let code;
      kiv.getScreenSnapAsync('selection', ({ errorCode }) => {
        for (let i = 0; i < 100; ++i) faults.iterate();
        code = errorCode;
      });
      const client = X.open(process.env.DISPLAY);
      const before = client.getImage(client.rootWindow(0), 0, 0, 320, 240);
      const end = Date.now() + 20000;
      // The source of what is not needed before a drag waits by the first picture.
      do faults.iterate(); while (client.getImage(client.rootWindow(0), 0, 0, 320, 240).equals(before) && Date.now() < end);
      faults.destroyWindows();
      client.close();
      report(code);
    }), FAILED);
  });

  test('many selections leave no window, surface, cursor, picture or file', async () => {
    const sanitized = process.env.KIV_SANITIZE === '1';
    const count = sanitized ? 60 : 500;
    const [first, last] = await shared.hosted(async (total) => {
      const fs = require('fs');
      const { status } = require('../../bench/measure');
      const samples = [];
      for (let i = 0; i <= total; ++i) {
        const selection = await openSelection(client);
        act(client, 'm 40 50', 'm 41 50', 'p', 'm 90 99', 'm 80 88');
        if (i % 4 === 3) key(client, ESCAPE);
        act(client, 'r');
        await settle(selection);
        if (i !== 20 && i !== total) continue;
        global.gc();
        const { PIXMAP, WINDOW, CURSOR, PICTURE } = client.resources(selection.id);
        samples.push([[PIXMAP, WINDOW, CURSOR, PICTURE, fs.readdirSync('/proc/self/fd').length,
          fs.readdirSync(process.env.TMPDIR).length], status('VmRSS')]);
      }
      report(samples);
    }, { args: [count], nodeArgs: ['--expose-gc'], timeout: 600000 });
    assert.deepStrictEqual(last[0], first[0]);
    // Each captured picture alone takes 225 kB and its dimmed copy as much.
    const pictures = (last[1] - first[1]) / 225;
    assert.ok(sanitized || pictures < count / 10, `${pictures} pictures' worth of memory`);
  });
});
