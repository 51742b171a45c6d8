'use strict';

const assert = require('node:assert');
const { before, describe, test } = require('node:test');
const { PNG } = require('pngjs');
const { hover, openSelection, outcome, wrongPixels } = require('../lib/overlay');
const { lacking, until } = require('../lib/processes');
const { useSession } = require('../lib/session');
const { ESCAPE } = require('../lib/x');

const [WIDTH, HEIGHT] = [640, 480];
const PICTURE = Buffer.alloc(WIDTH * HEIGHT * 4);
for (let i = 0; i < PICTURE.length; i += 4)
  PICTURE.writeUInt32LE(Math.imul(i, 2654435761) >>> 8, i);
const rectangle = ([ax, ay], [bx, by]) => [
  Math.min(ax, bx),
  Math.min(ay, by),
  Math.abs(ax - bx),
  Math.abs(ay - by),
];

/** Waits until the overlay of a monitor shows what it has to of its picture. */
async function shows(x, picture, { left = 0, top = 0, width = WIDTH, height = HEIGHT }, state) {
  let wrong;
  const right = async () => {
    wrong = wrongPixels(await x.image(left, top, width, height), picture, width, state);
    return wrong === 0;
  };
  await until(right, '', 10000).catch(() => {});
  assert.strictEqual(wrong, 0, `wrong pixels with ${JSON.stringify(state)}`);
}

function sameCut(file, picture, stride, [left, top, width, height]) {
  const { data } = PNG.sync.read(file);
  for (let i = 0; i < width * height; ++i) {
    const at = (top + Math.floor(i / width)) * stride + left + (i % width);
    if (data.readUIntBE(i * 4, 3) !== picture.readUIntLE(at * 4, 3)) return false;
  }
  return true;
}

describe('without a window manager', () => {
  const shared = useSession({ screens: [`${WIDTH}x${HEIGHT}`], bus: false });
  before(() => shared.x.wallpaper(WIDTH, HEIGHT, PICTURE));

  for (const scale of [1, 2])
    test(`the overlay's pixels, and the picture cut out of them; ${scale} to a point`, () =>
      shared.withApp(
        async (app) => {
          const { x } = shared;
          for (const [from, to] of [
            [
              [101, 57],
              [402, 303],
            ],
            [
              [402, 303],
              [101, 57],
            ],
            [
              [101, 303],
              [402, 57],
            ],
            [
              [402, 57],
              [101, 303],
            ],
          ]) {
            x.moveTo(300, 205);
            await openSelection(x, app);
            await hover(x, 205, 156);
            await hover(x, ...from);
            await shows(x, PICTURE, {}, { cross: from, area: [0, 0, 0, 0] });
            x.press();
            for (const [at, shrunk] of [
              [[251, 201]],
              [to],
              [[255, 222], true],
              [[639, 0], true],
              [to, true],
            ]) {
              x.moveTo(...at);
              await shows(x, PICTURE, {}, { cross: at, area: rectangle(from, at), shrunk });
            }
            x.release();
            assert.deepStrictEqual(await outcome(x, app), [[0, 301, 246]]);
            const { data, filename } = await app.run(() => global.results[0]);
            assert.ok(sameCut(data, PICTURE, WIDTH, [101, 57, 301, 246]), 'the cut-out');
            assert.strictEqual(filename, 'screen.png');
          }
        },
        { env: { GDK_SCALE: `${scale}` } },
      ));

  test('a point on the bound counts, one beyond does not', () =>
    shared.withApp(async (app) => {
      const { x } = shared;
      const id = await openSelection(x, app);
      await hover(x, 205, 156);
      // The picture's corner lies two pixels beyond the screen's.
      x.place(id, -2, -2, WIDTH + 80, HEIGHT + 80);
      await hover(x, 98, 98);
      x.press();
      x.moveTo(638, 478);
      await until(
        async () => (await x.pixel(630, 470)) === PICTURE.readUIntLE((472 * WIDTH + 632) * 4, 3),
        'the rectangle',
      );
      x.moveTo(639, 479);
      x.release();
      assert.deepStrictEqual(await outcome(x, app), [[0, 540, 380]]);
    }));
});

const LEFT = { left: 0, top: 0, width: WIDTH, height: HEIGHT };
const RIGHT = { left: 640, top: 0, width: 800, height: 600 };
const monitor = ({ left, top, ...size }) => ({ ...size, x: left, y: top });

for (const wm of ['openbox', 'metacity'])
  describe(`with ${wm} and two monitors`, { skip: lacking('Xorg', wm) }, () => {
    const shared = useSession({ monitors: [LEFT, RIGHT].map(monitor), wm });
    before(() => shared.x.wallpaper(WIDTH, HEIGHT, PICTURE));

    for (const [name, area] of Object.entries({ LEFT, RIGHT }))
      test(`the overlay covers the active window's monitor: ${name}`, () =>
        shared.withApp(async (app) => {
          const { x } = shared;
          const { left, top, width, height } = area;
          const active = await x.activeWindow({ x: left + 40, y: top + 60 });
          await until(async () => (await x.pixel(left + 100, top + 120)) === 0x336699);
          const picture = Buffer.from(await x.image(left, top, width, height));
          x.moveTo(left + 300, top + 205);
          const id = await openSelection(x, app);
          await hover(x, left + 205, top + 156, left, top);
          await hover(x, left + 201, top + 151, left, top);
          assert.deepStrictEqual(await x.geometry(id), monitor(area));
          x.press();
          x.moveTo(left + 300, top + 203);
          await shows(x, picture, area, { cross: [300, 203], area: [201, 151, 99, 52] });
          // The release of a drag that ends on the other monitor comes, too.
          x.moveTo(left === 0 ? 900 : 100, 400);
          x.release();
          assert.deepStrictEqual(await outcome(x, app), [[0, 99, 52]]);
          const { data } = await app.run(() => global.results[0]);
          assert.ok(sameCut(data, picture, width, [201, 151, 99, 52]), 'the cut-out');
          x.destroy(active);
        }));

    for (const [what, layout, code] of [
      ['its monitor unplugged', [{ ...RIGHT, left: 0 }], 102003],
      [
        'its monitor resized',
        [
          { ...LEFT, width: 800, height: 600 },
          { ...RIGHT, left: 800 },
        ],
        102003,
      ],
      ['the other monitor resized', [LEFT, { ...RIGHT, width: 640, height: 480 }], 102005],
    ])
      test(`the layout changes while the overlay is open: ${what}`, () =>
        shared.withApp(async (app) => {
          const { x } = shared;
          const active = await x.activeWindow({ x: 40, y: 60 });
          await openSelection(x, app);
          shared.server.layOut(layout.map(monitor));
          const wide = layout.reduce((sum, { width }) => sum + width, 0);
          await until(
            () => app.run((width) => kiv.getScreenSnap('desktop').width === width, wide),
            'the layout',
          );
          if (code === 102005) x.key(ESCAPE);
          assert.deepStrictEqual(await outcome(x, app), [[code, 0, 0]]);
          shared.server.layOut([LEFT, RIGHT].map(monitor));
          x.destroy(active);
        }));
  });
