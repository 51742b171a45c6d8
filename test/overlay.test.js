'use strict';

const assert = require('node:assert');
const { before, describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { act, color, hover, openSelection, outcome, wrongPixels } = require('./lib/overlay');
const { lacking, until } = require('./lib/processes');
const { useSession } = require('./lib/session');
const { ESCAPE } = require('./lib/x');

const LEFT = { x: 0, y: 0, width: 640, height: 480 };
const RIGHT = { x: 640, y: 0, width: 800, height: 600 };
// The whole has the size it had.
const EXCHANGED = [{ ...LEFT, x: 800 }].concat({ ...RIGHT, x: 0 });
const FAULTY = { faulty: true };
const PICTURE = Buffer.alloc(LEFT.width * LEFT.height * 4);
for (let i = 0; i < PICTURE.length; i += 4)
  PICTURE.writeUInt32LE(Math.imul(i, 0x9e3779b1) >>> 8, i);

/** Waits until the overlay shows a rectangle from one point to another, where the pointer is. */
async function shows({ x, picture, area }, [ax, ay], at, shrunk) {
  const [w, h] = [Math.abs(ax - at[0]), Math.abs(ay - at[1])];
  const rectangle = [Math.min(ax, at[0]), Math.min(ay, at[1]), w, h];
  let wrong;
  await until(async () => {
    const shown = await x.image(area.x, area.y, area.width, area.height);
    wrong = wrongPixels(shown, picture, area.width, at, rectangle, shrunk);
    return wrong === 0;
  }, '').catch(() => assert.fail(`${wrong} wrong pixels at ${at} after a press at ${[ax, ay]}`));
}

async function cutsOut({ x, picture, area }, app, [left, top, width, height]) {
  assert.deepStrictEqual(await outcome(x, app), [[0, width, height]]);
  const { data } = PNG.sync.read(await app.run(() => global.results[0].data));
  for (let i = 0; i < width * height; ++i) {
    const at = (top + Math.floor(i / width)) * area.width + left + (i % width);
    assert.strictEqual(data.readUIntBE(i * 4, 3), color(picture, at), `pixel ${i} of the cut-out`);
  }
}

describe('without a window manager', () => {
  const shared = useSession({ screens: ['640x480'], bus: false });
  before(() => shared.x.wallpaper(640, 480, PICTURE));

  for (const options of [{ env: { GDK_SCALE: '1' } }, { env: { GDK_SCALE: '2' } }])
    test(`the overlay shows the rectangle and cuts it out, GDK_SCALE=${options.env.GDK_SCALE}`, () =>
      shared.withApp(async (app) => {
        const seen = { x: shared.x, picture: PICTURE, area: LEFT };
        for (const corner of ['101 57', '402 303', '101 303', '402 57']) {
          const from = corner.split(' ').map(Number);
          const to = [503 - from[0], 360 - from[1]];
          await openSelection(shared.x, app, from);
          await shows(seen, from, from);
          shared.x.press();
          for (const [i, at] of [[251, 201], to, [255, 222], [639, 0], to].entries()) {
            shared.x.moveTo(...at);
            await shows(seen, from, at, i > 1);
          }
          shared.x.release();
          await cutsOut(seen, app, [101, 57, 301, 246]);
        }
      }, options));

  test('a point on the bound counts, one beyond does not', () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      await app.run(() => {
        global.inside = () => Object.assign(global, { shot: kiv.getScreenSnap('desktop').data });
      });
      // The picture's corner lies two pixels beyond the screen's.
      x.place(await openSelection(x, app), -2, -2, 720, 560);
      await hover(x, [98, 98]);
      act(x, 'press', [638, 478]);
      const shown = color(PICTURE, 472 * 640 + 632);
      await until(async () => (await x.pixel(630, 470)) === shown, 'the rectangle');
      act(x, [639, 479], 'release');
      assert.deepStrictEqual(await outcome(x, app), [[0, 540, 380]]);
      const { data } = PNG.sync.read(await app.run(() => global.shot));
      assert.strictEqual(data.readUIntBE(0, 3), color(PICTURE, 0), 'no overlay in the completion');
    }));

  test('selections leave nothing on the server, whatever size their windows had', () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      const counts = [];
      for (let i = 0; i < 12; ++i) {
        const id = await openSelection(x, app);
        for (const at of [300, 310]) {
          x.place(id, 0, 0, 400 + at, 500);
          await hover(x, [at, 200]);
        }
        act(x, 'press', [400, 300], ...(i % 2 ? [ESCAPE] : []), 'release');
        await outcome(x, app);
        const { PIXMAP, WINDOW, CURSOR, PICTURE } = await x.resources(id);
        counts.push([PIXMAP, WINDOW, CURSOR, PICTURE]);
      }
      assert.deepStrictEqual(counts[11], counts[3]);
    }));

  // What is not needed before a drag waits by the first picture.
  test('a selection that the host destroys fails, with nothing left to a loop in its completion', () =>
    shared.withApp(async (app) => {
      const code = await app.run(() => {
        host.stopLoop();
        let ended;
        kiv.getScreenSnapAsync('selection', ({ errorCode }) => {
          for (let i = 0; i < 100; ++i) faults.iterate();
          ended = errorCode;
        });
        const shown = () => kiv.getScreenSnap('desktop').data;
        const before = shown();
        for (let i = 0; i < 1000 && shown().equals(before); ++i) faults.iterate();
        faults.destroyWindows();
        return ended;
      });
      assert.strictEqual(code, 102003);
    }, FAULTY));
});

for (const wm of ['openbox', 'metacity'])
  describe(`with ${wm} and two monitors`, { skip: lacking('Xorg', wm) }, () => {
    const shared = useSession({ monitors: [LEFT, RIGHT], wm });

    for (const area of [LEFT, RIGHT])
      test(`the overlay covers the monitor of the active window at ${area.x}`, () =>
        shared.withApp(async (app) => {
          const { x } = shared;
          const active = await x.activeWindow({ x: area.x + 40, y: 60 });
          await until(async () => (await x.pixel(area.x + 100, 120)) === 0x336699, 'its colour');
          const picture = Buffer.from(await x.image(area.x, 0, area.width, area.height));
          const id = await openSelection(x, app, [area.x + 201, 151], [area.x, 0]);
          assert.deepStrictEqual(await x.geometry(id), area);
          act(x, 'press', [area.x + 300, 203]);
          await shows({ x, picture, area }, [201, 151], [300, 203]);
          act(x, [area === LEFT ? 900 : 100, 400], 'release');
          await cutsOut({ x, picture, area }, app, [201, 151, 99, 52]);
          x.destroy(active);
        }));

    for (const [what, layout, code] of [
      ['its monitor unplugged', [{ ...RIGHT, x: 0 }], 102003],
      ['the monitors exchanged', EXCHANGED, 102003],
      ['the other monitor resized', [LEFT, { ...LEFT, x: 640 }], 102005],
    ])
      test(`the layout changes while the overlay is open: ${what}`, () =>
        shared.withApp(async (app) => {
          const active = await shared.x.activeWindow({ x: 40, y: 60 });
          await openSelection(shared.x, app);
          const width = () => app.run(() => kiv.getScreenSnap('desktop').width);
          const before = await width();
          shared.server.layOut(layout);
          if (code === 102005) {
            await until(async () => (await width()) !== before, 'another layout');
            shared.x.key(ESCAPE);
          }
          assert.deepStrictEqual(await outcome(shared.x, app), [[code, 0, 0]]);
          shared.server.layOut([LEFT, RIGHT]);
          shared.x.destroy(active);
        }));
  });
