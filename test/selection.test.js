'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { setTimeout: wait } = require('timers/promises');
const { act, hover, openSelection, outcome } = require('./lib/overlay');
const { until } = require('./lib/processes');
const { useSession } = require('./lib/session');
const { ESCAPE } = require('./lib/x');

const [COMPLETED, FAILED, CANCELLED] = [0, 102003, 102005];
const FAULTY = { faulty: true };
const WAYLAND = { env: { XDG_SESSION_TYPE: 'wayland' } };

const shared = useSession({ screens: ['640x480'], wm: 'openbox', bus: false });
/** A drag, then Escape, each in its own selection. */
async function works(app) {
  await openSelection(shared.x, app);
  act(shared.x, 'press', [400, 300], 'release');
  assert.deepStrictEqual(await outcome(shared.x, app), [[COMPLETED, 80, 60]]);
  await openSelection(shared.x, app);
  act(shared.x, ESCAPE);
  assert.deepStrictEqual(await outcome(shared.x, app), [[CANCELLED, 0, 0]]);
}

// What the user or another client does to the open overlay, and the resulting code.
for (const [what, deed, code, at] of [
  ['a click', (x) => x.click(), COMPLETED],
  ['Escape while dragging', (x) => act(x, 'press', [400, 300], ESCAPE, 'release'), CANCELLED],
  ['closed by the window manager', (x, { id }) => x.closeWindow(id), FAILED],
  ['destroyed by another client', (x, { id }) => x.destroy(id), FAILED],
  ['unmapped by another client', (x, { id }) => x.unmap(id), FAILED],
  ['teardown', (_, { app }) => app.run(() => kiv.teardown()), FAILED],
  ['the focus lost after the grace period', (_, { lose }) => wait(520).then(lose), FAILED],
  // Within the grace period, so right after it got the focus.
  ['Escape without the focus', (x, { lose }) => lose().then(() => x.key(ESCAPE)), CANCELLED, null],
])
  test(`a selection completes once, releases the guard and allows the next: ${what}`, () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      const other = await x.activeWindow({ x: 0, y: 0 });
      const lose = async () => {
        await x.activate(other);
        await until(async () => (await x.focused()) === other, 'the focus elsewhere');
      };
      const id = await openSelection(x, app, at);
      const own = [id, ...(await x.children(id))]; // GDK may use a child window
      await until(async () => own.includes(await x.focused()), 'the focus');
      await deed(x, { id, app, lose });
      assert.deepStrictEqual(await outcome(x, app), [[code, 0, 0]]);
      x.destroy(other);
      await works(app);
      // GDK's warning about a window that another client destroyed.
      app.text[2] = app.text[2].replace(/\n?\(.*\): Gdk-WARNING .* unexpectedly destroyed\n/, '');
    }, FAULTY));

// What the host did before, and what it does in the completion.
for (const [what, before, inside = () => {}] of [
  // Without init, Escape reaches the overlay through its window only.
  ['its modal window is open', () => [kiv.teardown(), faults.openModalWindow()]],
  ['its menu is open', () => [kiv.teardown(), faults.openMenu()]],
  ['its popup is open', () => [kiv.teardown(), faults.openPopup()]],
  ['one was destroyed', () => kiv.getScreenSnapAsync('selection', gc) || faults.destroyWindows()],
  ['teardown and init inside', () => {}, () => [kiv.teardown(), kiv.init()]],
  ['a request inside', () => {}, (done) => kiv.getScreenSnapAsync('selection', done)],
  ['an exception inside', () => process.on('uncaughtException', Boolean).pid, () => log.no.no],
  ['its logger ends it', () => kiv.setupLogger((_, s) => /n error/.test(s) && kiv.teardown())],
])
  test(`a selection gets its input and completes once: ${what}`, () =>
    shared.withApp(async (app) => {
      await app.run(before);
      await app.run(`() => { global.inside = ${inside} }`);
      await works(app);
    }, FAULTY));

test("an out-of-memory encoder's log line may end its selection and open another", () =>
  shared.withApp(async (app) => {
    await app.run(() => {
      faults.failSave();
      const again = () => kiv.getScreenSnapAsync('selection', (snap) => global.results.push(snap));
      kiv.setupLogger((_, text) => /error:\d:Not enough/.test(text) && again(kiv.teardown()));
    });
    await openSelection(shared.x, app);
    act(shared.x, 'press', [400, 300], 'release');
    await until(() => app.run(() => global.results.length), 'the end of the first selection');
    await hover(shared.x, [320, 240]);
    act(shared.x, ESCAPE);
    assert.deepStrictEqual(
      await outcome(shared.x, app),
      [FAILED, CANCELLED].map((c) => [c, 0, 0]),
    );
  }, FAULTY));

test('a selection fails once if it cannot start or its error line ends it', () =>
  shared.withApp(async (app) => {
    const seen = await app.run(() => {
      const seen = [];
      const ask = () => kiv.getScreenSnapAsync('selection', (snap) => seen.push(snap.errorCode));
      kiv.setupLogger((_, text) => /creating/.test(text) && seen.push(text));
      ask(ask());
      kiv.setupLogger((_, text) => /^DBUS/.test(text) && kiv.teardown());
      ask(ask());
      return seen;
    });
    const failed = ['Screensnap: creating base pixmap error', FAILED];
    assert.deepStrictEqual(seen, [...failed, ...failed, FAILED, FAILED]);
  }, WAYLAND));
