'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { setTimeout: wait } = require('timers/promises');
const { act, hover, openSelection, outcome } = require('./lib/overlay');
const { until } = require('./lib/processes');
const { startWindowManager, useSession } = require('./lib/session');
const { ESCAPE } = require('./lib/x');

const [COMPLETED, FAILED, CANCELLED] = [0, 102003, 102005];
const DRAG = ['press', [400, 300], 'release'];
const DRAGGED = [COMPLETED, 80, 60];
const FAULTY = { faulty: true };

const shared = useSession({ screens: ['640x480'], wm: 'openbox', bus: false });
/** A drag and Escape, each in a selection of its own. */
async function works(app) {
  for (const steps of [DRAG, [ESCAPE]]) {
    await openSelection(shared.x, app);
    act(shared.x, ...steps);
    const expected = steps === DRAG ? DRAGGED : [CANCELLED, 0, 0];
    assert.deepStrictEqual(await outcome(shared.x, app), [expected]);
  }
}

async function replaceManager(x, { other }) {
  await shared.wm.stop();
  x.key(ESCAPE);
  x.destroy(other);
  shared.stops.push((await startWindowManager(shared.env, 'openbox')).stop);
}

// What the person or somebody else does to the open overlay, and with what it ends.
const ENDINGS = {
  'a click': [(x) => x.click(), COMPLETED],
  'a horizontal drag': [(x) => act(x, 'press', [400, 240], 'release'), COMPLETED],
  'a vertical drag': [(x) => act(x, 'press', [320, 300], 'release'), COMPLETED],
  'Escape while dragging': [(x) => act(x, 'press', [400, 300], ESCAPE, 'release'), CANCELLED],
  'another key, then Escape twice': [(x) => act(x, 38, ESCAPE, ESCAPE), CANCELLED],
  'closed by the window manager': [(x, { id }) => x.closeWindow(id), FAILED],
  'destroyed by somebody': [(x, { id }) => x.destroy(id), FAILED],
  'unmapped by somebody': [(x, { id }) => x.unmap(id), FAILED],
  teardown: [(_, { app }) => app.run(() => kiv.teardown()), FAILED],
  'another window manager': [replaceManager],
  'the focus lost late': [(_, { lose }) => wait(520).then(lose), FAILED],
  // Early, so at once when it has the focus.
  'Escape without the focus': [(x, { lose }) => lose().then(() => x.key(ESCAPE)), CANCELLED, null],
};
for (const [what, [deed, code, at]] of Object.entries(ENDINGS))
  test(`a selection ends once, leaves the guard free and lets the next in: ${what}`, () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      const other = await x.activeWindow({ x: 0, y: 0 });
      const lose = async () => {
        await x.activate(other);
        await until(async () => (await x.focused()) === other, 'the focus elsewhere');
      };
      const id = await openSelection(x, app, at);
      const own = [id, ...(await x.children(id))]; // GDK may use a window of its own within
      await until(async () => own.includes(await x.focused()), 'the focus');
      await deed(x, { id, app, lose, other });
      const calls = await outcome(x, app);
      assert.deepStrictEqual(calls, [[code ?? calls[0][0], 0, 0]]);
      x.destroy(other);
      await works(app);
      // GDK's remark about a window that somebody destroyed.
      app.text[2] = app.text[2].replace(/\n?\(.*\): Gdk-WARNING .* unexpectedly destroyed\n/, '');
    }));

// What the host has done before, and what it does in the completion.
for (const [what, before, inside = () => {}] of [
  // Without init Escape reaches the overlay by its window only.
  ['its modal window is open', () => [kiv.teardown(), faults.openModalWindow()]],
  ['its menu is open', () => [kiv.teardown(), faults.openMenu()]],
  ['its popup is open', () => [kiv.teardown(), faults.openPopup()]],
  ['teardown and init inside', () => {}, () => [kiv.teardown(), kiv.init()]],
  ['a request inside', () => {}, () => kiv.getScreenSnapAsync('selection', global.again)],
  ['an exception inside', () => process.on('uncaughtException', Boolean).pid, () => log.no.no],
  [
    'teardown in the line of the end',
    () => kiv.setupLogger((_, text) => /selection error/.test(text) && kiv.teardown()),
  ],
])
  test(`a selection gets pointer and keys and completes once, whatever the host does: ${what}`, () =>
    shared.withApp(async (app) => {
      await app.run(before);
      await app.run(`() => { global.inside = ${inside} }`);
      await works(app);
    }, FAULTY));

test("the encoder's error line may end its selection and open another", () =>
  shared.withApp(async (app) => {
    await app.run(() => {
      faults.failSave();
      kiv.setupLogger((_, text) => {
        if (!/Fetch image error/.test(text)) return;
        kiv.teardown();
        kiv.getScreenSnapAsync('selection', global.again);
      });
    });
    await openSelection(shared.x, app);
    act(shared.x, ...DRAG);
    await until(() => app.run(() => global.results.length === 1));
    await hover(shared.x, [320, 240]);
    shared.x.key(ESCAPE);
    const expected = [FAILED, CANCELLED].map((code) => [code, 0, 0]);
    assert.deepStrictEqual(await outcome(shared.x, app), expected);
  }, FAULTY));

// The picture is the first pixbuf of a start, its dimmed copy the second.
for (const [what, number, expected, env] of [
  ['no memory for the picture', 1, ['base pixmap error', FAILED]],
  ['no memory for the dimmed copy', 2, ['blanded pixmap error', FAILED]],
  ['no display', 0, ['base pixmap error', FAILED], { DISPLAY: undefined }],
  ['no screenshot service', 0, ['base pixmap error', FAILED], { XDG_SESSION_TYPE: 'wayland' }],
  ['ended by the logger', -1, [FAILED], { XDG_SESSION_TYPE: 'wayland' }],
])
  test(`a selection that cannot start fails once, and so does the next: ${what}`, () => {
    const options = { env, faulty: true };
    return shared.withApp(async (app) => {
      const seen = await app.run((failing) => {
        const all = [];
        kiv.setupLogger((_, text) => {
          if (/creating/.test(text)) all.push(text.slice(21));
          if (failing === -1 && /^DBUS/.test(text)) kiv.teardown();
        });
        for (let i = 0; i < 2; ++i) {
          faults.failNewPixbuf(failing);
          kiv.getScreenSnapAsync('selection', (snap) => all.push(snap.errorCode));
        }
        return all;
      }, number);
      assert.deepStrictEqual(seen, [...expected, ...expected]);
    }, options);
  });

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
