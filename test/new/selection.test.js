'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { setTimeout: wait } = require('timers/promises');
const { act, openSelection, outcome } = require('../lib/overlay');
const { until } = require('../lib/processes');
const { startWindowManager, useSession } = require('../lib/session');
const { ESCAPE } = require('../lib/x');

const [COMPLETED, FAILED, CANCELLED] = [0, 102003, 102005];
const DRAG = ['press', [400, 300], 'release'];

const shared = useSession({ screens: ['640x480'], wm: 'openbox', bus: false });
// With what stands in front of the libraries; `log` has this file's subject only.
const withFaults = (f, env) =>
  shared.withApp(
    async (app) => {
      await app.run(() => {
        faults;
        host.startLoop();
        kiv.setupLogger((level, text) => {
          if (/^(Screensnap|OnScreenSnap|Fetch|DBUS)/.test(text)) log.push(`${level} ${text}`);
          if (global.listen) global.listen(text);
        });
        kiv.init();
      });
      await f(app, shared.x);
    },
    { setUp: false, env },
  );
const open = async (app) => {
  const id = await openSelection(shared.x, app);
  const own = [id, ...(await shared.x.children(id))]; // GDK may use a window of its own within
  await until(async () => own.includes(await shared.x.focused()), 'the focus');
  return id;
};
const takeFocus = async (x) => {
  const id = await x.activeWindow({ x: 0, y: 0 });
  await until(async () => (await x.focused()) === id);
  return id;
};

// What the person or somebody else does to the open overlay, and with what it ends.
const ENDINGS = {
  'a click': [(x) => x.click(), COMPLETED],
  'a horizontal drag': [(x) => act(x, 'press', [400, 240], 'release'), COMPLETED],
  'a vertical drag': [(x) => act(x, 'press', [320, 300], 'release'), COMPLETED],
  'Escape while dragging': [(x) => act(x, 'press', [400, 300], ESCAPE, 'release'), CANCELLED],
  'another key, then Escape twice': [(x) => act(x, 38, ESCAPE, ESCAPE), CANCELLED],
  'closed by the window manager': [(x, id) => x.closeWindow(id), FAILED],
  'destroyed by somebody': [(x, id) => x.destroy(id), FAILED],
  'unmapped by somebody': [(x, id) => x.unmap(id), FAILED],
  teardown: [(_x, _id, app) => app.run(() => kiv.teardown()), FAILED],
  'the focus lost late': [(x) => wait(520).then(() => takeFocus(x)), FAILED],
  'Escape after the focus was lost early': [
    (x) => takeFocus(x).then(() => x.key(ESCAPE)),
    CANCELLED,
  ],
  'a new window manager': [
    async (x) => {
      await shared.wm.stop();
      shared.stops.push((await startWindowManager(shared.env, 'openbox')).stop);
      x.key(ESCAPE);
    },
  ],
};
for (const [what, [deed, code]] of Object.entries(ENDINGS))
  test(`a selection ends once, leaves the guard free and lets the next in: ${what}`, () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      await deed(x, await open(app), app);
      const calls = await outcome(x, app);
      assert.deepStrictEqual(calls, [[code === undefined ? calls[0][0] : code, 0, 0]]);
      await openSelection(x, app);
      act(x, ...DRAG);
      assert.deepStrictEqual(await outcome(x, app), [[COMPLETED, 80, 60]]);
      // GDK's remark about a window that somebody destroyed.
      app.text[2] = app.text[2].replace(/\n?\(.*\): Gdk-WARNING .* unexpectedly destroyed\n/, '');
    }));

for (const host of ['openModalWindow', 'openMenu', 'openPopup'])
  test(`the overlay gets the pointer and the keys from the host's ${host}, without init too`, () =>
    withFaults(async (app, x) => {
      await app.run((method) => {
        kiv.teardown();
        faults[method]();
      }, host);
      for (const [steps, expected] of [
        [DRAG, [COMPLETED, 80, 60]],
        [[ESCAPE], [CANCELLED, 0, 0]],
      ]) {
        await openSelection(x, app);
        act(x, ...steps);
        assert.deepStrictEqual(await outcome(x, app), [expected]);
      }
    }));

// What JavaScript does inside the completion.
for (const [what, inside] of Object.entries({
  'teardown and init': () => [kiv.teardown(), kiv.init()],
  'another request': () => kiv.getScreenSnapAsync('selection', () => global.results.push({})),
  'an exception': () => {
    throw new Error('mine');
  },
}))
  test(`a completion may do what it likes: ${what}`, () =>
    withFaults(async (app, x) => {
      await app.run((text) => {
        global.inside = require('vm').runInThisContext(text);
        process.on('uncaughtException', (error) => log.push(error.message));
      }, `(${inside})`);
      for (const [steps, expected] of [
        [DRAG, [COMPLETED, 80, 60]],
        [[ESCAPE], [CANCELLED, 0, 0]],
      ]) {
        await openSelection(x, app);
        act(x, ...steps);
        assert.deepStrictEqual(await outcome(x, app), [expected]);
      }
      const thrown = (await app.log()).filter((line) => line === 'mine').length;
      assert.strictEqual(thrown, what === 'an exception' ? 2 : 0);
    }));

for (const [line, failing, expected] of [
  ['Screensnap: selection error', false, [COMPLETED, 80, 60]],
  ['Fetch image error', true, [FAILED, 0, 0]],
])
  test(`a selection that the logger ends at "${line}" completes once`, () =>
    withFaults(async (app, x) => {
      await app.run(
        (begin, fails) => {
          if (fails) faults.failSave();
          global.listen = (text) => {
            if (text.startsWith(begin)) kiv.teardown();
          };
        },
        line,
        failing,
      );
      await openSelection(x, app);
      act(x, ...DRAG);
      assert.deepStrictEqual(await outcome(x, app), [expected]);
    }));

// The picture is the first pixbuf of a start, its dimmed copy the second.
for (const [what, number, name, env, line] of [
  ['no memory for the picture', 1, 'base'],
  ['no memory for the dimmed copy', 2, 'blanded'],
  ['no display', 0, 'base', { DISPLAY: undefined }],
  ['no screenshot service', 0, 'base', { XDG_SESSION_TYPE: 'wayland' }],
  ['the logger ends it', 0, null, { XDG_SESSION_TYPE: 'wayland' }, 'DBUS Screenshot'],
])
  test(`a selection that cannot start fails once, and the next one, too: ${what}`, () =>
    withFaults(async (app) => {
      const codes = await app.run(
        (failing, begin) => {
          const seen = [];
          global.listen = (text) => begin && text.startsWith(begin) && kiv.teardown();
          for (let i = 0; i < 2; ++i) {
            faults.failNewPixbuf(failing);
            kiv.getScreenSnapAsync('selection', (snap) => seen.push(snap.errorCode));
          }
          return seen;
        },
        number,
        line,
      );
      assert.deepStrictEqual(codes, [FAILED, FAILED]);
      const lines = (await app.log()).filter((text) => text.includes('creating'));
      const expected = name ? [`error Screensnap: creating ${name} pixmap error`] : [];
      assert.deepStrictEqual(lines, [...expected, ...expected]);
    }, env));

test('nothing of a selection is left to a loop that its completion runs', () =>
  withFaults(async (app, x) => {
    const before = await x.pixel(320, 240);
    await app.run(() => {
      host.stopLoop();
      kiv.getScreenSnapAsync('selection', ({ errorCode }) => {
        for (let i = 0; i < 100; ++i) faults.iterate();
        log.push(errorCode);
      });
    });
    // What is not needed before a drag waits by the first picture.
    await until(async () => {
      await app.run(() => faults.iterate());
      return (await x.pixel(320, 240)) !== before;
    });
    await app.run(() => faults.destroyWindows());
    assert.ok((await app.log()).includes(FAILED));
  }));

test('selections leave no window, surface, cursor or picture on the server', () =>
  shared.withApp(async (app) => {
    const counts = [];
    for (let i = 0; i < 12; ++i) {
      const id = await openSelection(shared.x, app);
      act(shared.x, ...(i % 2 ? [ESCAPE] : DRAG));
      await outcome(shared.x, app);
      const { PIXMAP, WINDOW, CURSOR, PICTURE } = await shared.x.resources(id);
      counts.push([PIXMAP, WINDOW, CURSOR, PICTURE]);
    }
    assert.deepStrictEqual(counts[11], counts[3]);
  }));

for (const [what, leave, code] of [
  ['process.exit', () => process.exit(7), 7],
  ['the end of the loop', () => [kiv.setupLogger(() => {}), process.disconnect()], 0],
])
  test(`the process may end with an open overlay: ${what}`, async () => {
    const app = await shared.app({ leaks: code === 0, setUp: false });
    await app.run(() => host.startLoop());
    await openSelection(shared.x, app);
    app.run(leave).catch(() => {});
    assert.deepStrictEqual(await app.ended, { code, signal: null });
  });
