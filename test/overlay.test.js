'use strict';

const assert = require('node:assert');
const { before, describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { act, hover, openSelection, outcome, showsRectangle } = require('./lib/overlay');
const { lacking, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const LEFT = { x: 0, y: 0, width: 640, height: 480 };
const RIGHT = { x: 640, y: 0, width: 800, height: 600 };
// The whole desktop keeps its size.
const EXCHANGED = [LEFT, RIGHT].map((area) => ({ ...area, x: area === LEFT ? 800 : 0 }));
const PICTURE = Buffer.alloc(LEFT.width * LEFT.height * 4);
for (let i = 0; i < PICTURE.length; i += 4)
  PICTURE.writeUInt32LE(Math.imul(i, 0x9e3779b1) >>> 8, i);

/** Waits until the overlay shows a rectangle between two points, the second at the pointer. */
const shows = (seen, from, at) =>
  until(async () => {
    const shown = await seen.x.image(...Object.values(seen.area));
    return showsRectangle(shown, seen, from, at);
  }, `a rectangle from ${from} to ${at}`);

async function cutsOut({ x, picture, area }, app, [left, top, width, height]) {
  assert.deepStrictEqual(await outcome(x, app), [[0, width, height]]);
  const { data } = PNG.sync.read(await app.run(() => global.results[0].data));
  for (let i = 0; i < width * height; ++i) {
    const at = (top + Math.floor(i / width)) * area.width + left + (i % width);
    const [cut, wanted] = [data.readUIntBE(i * 4, 3), picture.readUIntLE(at * 4, 3)];
    assert.strictEqual(cut, wanted, `pixel ${i} of the cut-out`);
  }
}

describe('without a window manager', () => {
  const shared = useSession({ screens: ['640x480'], bus: false });
  before(() => shared.x.wallpaper(640, 480, PICTURE));

  for (const options of [{ env: { GDK_SCALE: '1' } }, { env: { GDK_SCALE: '2' } }])
    test(`the overlay shows and cuts out the rectangle, GDK_SCALE=${options.env.GDK_SCALE}`, () =>
      shared.withApp(async (app) => {
        const seen = { x: shared.x, picture: PICTURE, area: LEFT };
        for (const left of [101, 402])
          for (const top of [57, 303]) {
            const from = [left, top];
            const opposite = [503 - left, 360 - top];
            await openSelection(shared.x, app, from);
            await shows(seen, from, from);
            shared.x.press();
            for (const at of [[251, 201], opposite]) {
              shared.x.moveTo(...at);
              await shows(seen, from, at);
            }
            shared.x.release();
            await cutsOut(seen, app, [101, 57, 301, 246]);
          }
      }, options));

  test('a resized overlay accepts points up to its edge and leaks nothing when it closes', () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      await app.run(() => {
        global.inside = () => Object.assign(global, { shot: kiv.getScreenSnap('desktop').data });
      });
      const counts = [];
      for (let i = 0; i < 12; ++i) {
        const id = await openSelection(x, app);
        for (const at of [108, 98]) {
          // The picture's corner is two pixels outside the screen.
          x.place(id, -2, -2, 620 + at, 560);
          await hover(x, [at, 98]);
        }
        const at = 638 + (i % 2);
        act(x, 'press', [at, at - 160], 'release');
        assert.deepStrictEqual(await outcome(x, app), [i % 2 ? [0, 0, 0] : [0, 540, 380]]);
        counts.push(await x.resources(id));
      }
      assert.deepStrictEqual(counts[11], counts[3]);
      const { data } = PNG.sync.read(await app.run(() => global.shot));
      const [first, wanted] = [data.readUIntBE(0, 3), PICTURE.readUIntLE(0, 3)];
      assert.strictEqual(first, wanted, 'the overlay is still visible in the completion');
    }));

  // Destroyed while an idle source that prepares the first drag is pending.
  test('after the host destroys a selection, a loop in its completion draws nothing', () =>
    shared.withApp(
      async (app) => {
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
      },
      { faulty: true },
    ));
});

for (const wm of ['openbox', 'metacity'])
  describe(`with ${wm} and two monitors`, { skip: lacking('Xorg', 'xrandr', wm) }, () => {
    const shared = useSession({ monitors: [LEFT, RIGHT], wm });

    for (const area of [LEFT, RIGHT])
      test(`the overlay covers the active window's monitor, x=${area.x}, and fails with it`, () =>
        shared.withApp(async (app) => {
          const { x } = shared;
          const active = await x.activeWindow({ x: area.x + 40, y: 60 });
          await until(async () => (await x.pixel(area.x + 100, 120)) === 0x336699, 'a colour');
          const picture = Buffer.from(await x.image(...Object.values(area)));
          const id = await openSelection(x, app, [area.x + 201, 151]);
          assert.deepStrictEqual(await x.geometry(id), area);
          act(x, 'press', [area.x + 300, 203]);
          await shows({ x, picture, area }, [201, 151], [300, 203]);
          act(x, [area === LEFT ? 900 : 100, 400], 'release');
          await cutsOut({ x, picture, area }, app, [201, 151, 99, 52]);
          await openSelection(x, app, [area.x + 201, 151]);
          shared.server.layOut(EXCHANGED);
          assert.deepStrictEqual(await outcome(x, app), [[102003, 0, 0]]);
          shared.server.layOut([LEFT, RIGHT]);
          x.destroy(active);
        }));
  });
