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
const DRAGGED = [COMPLETED, 80, 60];

const shared = useSession({ screens: ['640x480'], wm: 'openbox', bus: false });
const takeFocus = async (x) => {
  const id = await x.activeWindow({ x: 0, y: 0 });
  await until(async () => (await x.focused()) === id);
};
/** A drag and Escape, each in a selection of its own. */
async function works(app, dragged = DRAGGED) {
  for (const [steps, ...expected] of [
    [DRAG, dragged],
    [[ESCAPE], [CANCELLED, 0, 0]],
  ]) {
    await openSelection(shared.x, app);
    act(shared.x, ...steps);
    assert.deepStrictEqual(await outcome(shared.x, app), expected);
  }
}

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
  'another window manager': [
    async (x) => {
      await shared.wm.stop();
      shared.stops.push((await startWindowManager(shared.env, 'openbox')).stop);
      x.key(ESCAPE);
    },
  ],
  'the focus lost late': [(x) => wait(520).then(() => takeFocus(x)), FAILED],
  'Escape without the focus': [(x) => takeFocus(x).then(() => x.key(ESCAPE)), CANCELLED],
};
for (const [what, [deed, code]] of Object.entries(ENDINGS))
  test(`a selection ends once, leaves the guard free and lets the next in: ${what}`, () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      const id = await openSelection(x, app);
      const own = [id, ...(await x.children(id))]; // GDK may use a window of its own within
      await until(async () => own.includes(await x.focused()), 'the focus');
      await deed(x, id, app);
      const calls = await outcome(x, app);
      assert.deepStrictEqual(calls, [[code ?? calls[0][0], 0, 0]]);
      await openSelection(x, app);
      act(x, ...DRAG);
      assert.deepStrictEqual(await outcome(x, app), [DRAGGED]);
      // GDK's remark about a window that somebody destroyed.
      app.text[2] = app.text[2].replace(/\n?\(.*\): Gdk-WARNING .* unexpectedly destroyed\n/, '');
    }));

// What the host does before; without init Escape reaches the overlay by its window only.
const HOSTS = {
  'its modal window, without init': [() => [kiv.teardown(), faults.openModalWindow()]],
  'its menu, without init': [() => [kiv.teardown(), faults.openMenu()]],
  'its popup, without init': [() => [kiv.teardown(), faults.openPopup()]],
  'teardown and init in the completion': [
    () => {
      global.inside = () => [kiv.teardown(), kiv.init()];
    },
  ],
  'another request in the completion': [
    () => {
      global.inside = () =>
        kiv.getScreenSnapAsync('selection', (snap) => global.results.push(snap));
    },
  ],
  'an exception in the completion': [
    () => {
      process.on('uncaughtException', () => {});
      global.inside = () => {
        throw new Error('mine');
      };
    },
  ],
  'teardown in the line of the end': [
    () => kiv.setupLogger((_, text) => /selection error/.test(text) && kiv.teardown()),
  ],
  "teardown in the encoder's error": [
    () => {
      faults.failSave();
      kiv.setupLogger((_, text) => /Fetch image error/.test(text) && kiv.teardown());
    },
    [FAILED, 0, 0],
  ],
};
for (const [what, [prepare, dragged]] of Object.entries(HOSTS))
  test(`a selection gets pointer and keys and completes once whatever the host does: ${what}`, () =>
    shared.withApp((app) => app.run(prepare).then(() => works(app, dragged)), { faulty: true }));

// The picture is the first pixbuf of a start, its dimmed copy the second.
for (const [what, number, lines, env] of [
  ['no memory for the picture', 1, 'base pixmap error'],
  ['no memory for the dimmed copy', 2, 'blanded pixmap error'],
  ['no display', 0, 'base pixmap error', { DISPLAY: undefined }],
  ['no screenshot service', 0, 'base pixmap error', { XDG_SESSION_TYPE: 'wayland' }],
  ['ended by the logger', 0, undefined, { XDG_SESSION_TYPE: 'wayland' }],
])
  test(`a selection that cannot start fails once, and so does the next: ${what}`, () =>
    shared.withApp(
      async (app) => {
        const seen = await app.run(
          (failing, quick) => {
            const all = [];
            kiv.setupLogger((_, text) => {
              if (/creating/.test(text)) all.push(text.slice(21));
              if (quick && /^DBUS/.test(text)) kiv.teardown();
            });
            for (let i = 0; i < 2; ++i) {
              faults.failNewPixbuf(failing);
              kiv.getScreenSnapAsync('selection', (snap) => all.push(snap.errorCode));
            }
            return all;
          },
          number,
          !lines,
        );
        const once = [lines, FAILED].filter(Boolean);
        assert.deepStrictEqual(seen, [...once, ...once]);
      },
      { env, faulty: true },
    ));

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
