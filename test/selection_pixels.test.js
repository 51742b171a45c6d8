'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

let session;
before(async () => { session = await startSession({ screens: ['640x480x24'], wm: false, bus: false }); });
after(() => session.stop());

// Replays a story on the real overlay and on the reference and compares the screen after each step.
const replay = async (story) => {
  const { act, crop, difference, openSelection, settle } = require('./overlay');
  const { OverlayReference } = require('./overlay_reference');
  const { paint } = require('../../bench/pictures');
  const [width, height] = [640, 480];
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const client = X.open(process.env.DISPLAY);
  const root = client.rootWindow(0);
  const screen = (w = width, h = height) => client.getImage(root, 0, 0, w, h);
  const background = paint('busy', width, height);
  let reference = new OverlayReference(screen(), width, height);
  let selection;
  // Where the overlay's corner stands on the screen.
  let corner = { x: 0, y: 0 };
  // What a larger window shows beyond the picture is not drawn anew.
  const shown = () => [width + corner.x, height + corner.y];
  const expected = () => crop(reference.pixels, reference.surface.width, -corner.x, -corner.y, ...shown());
  const wrong = [];
  const compare = async (what) => {
    const wanted = expected();
    let pixels = null;
    const same = () => (pixels = difference(screen(...shown()), wanted)) === 0;
    await until(same, { timeout: 4000 }).catch(() => wrong.push(`${what}: ${pixels} pixels`));
  };
  for (const [index, step] of story.entries()) {
    const [what, ...numbers] = step.split(' ');
    const [x, y, w, h] = numbers.map(Number);
    if (what === 'start') {
      act(client, `m ${x} ${y}`);
      if (selection) reference = reference.next(screen());
      selection = await openSelection(client);
      corner = { x: 0, y: 0 };
      reference.configure(width, height, x, y);
    } else if (what === 'm') {
      act(client, step);
      reference.motion(x - corner.x, y - corner.y);
    } else if (what === 'p') {
      const { x: px, y: py } = client.pointer();
      act(client, step);
      reference.press(px - corner.x, py - corner.y);
    } else if (what === 'r') {
      act(client, step);
      await settle(selection);
      continue;
    } else if (what === 'resize') {
      client.moveResize(selection.id, x, y, w, h);
      corner = { x, y };
      const pointer = client.pointer();
      reference.configure(w, h, pointer.x, pointer.y);
    }
    await compare(`${index}: ${step}`);
  }
  report({ wrong, steps: story.length });
  act(client, 'r', 'r 3');
  background.close();
  client.close();
  kiv.teardown();
};

const STORIES = {
  // Two selections of one module: only the first keeps the first crosshair through one motion.
  'hovering, in a first and in a second selection': [
    'start 300 205', 'm 100 101', 'm 205 156', 'm 639 479', 'm 0 0', 'p', 'r',
    'start 321 77', 'm 50 60', 'm 51 60', 'p', 'm 250 260', 'r',
  ],
  'dragging: growing, shrinking on each side, flipping over each side and corner': [
    'start 10 10', 'm 200 200', 'p', 'm 300 260', 'm 330 300', 'm 320 300', 'm 320 281', 'm 260 240',
    'm 150 240', 'm 140 250', 'm 160 230', 'm 160 150', 'm 170 160', 'm 150 140', 'm 240 140', 'm 230 150',
    'm 260 250', 'm 130 120', 'm 280 290', 'm 280 130', 'm 120 270', 'm 200 270', 'm 200 200', 'm 260 200',
    'm 260 260', 'p 3', 'm 300 100', 'm 200 320', 'r',
  ],
  // The pointer reaches the bounds, which lie a pixel beyond the picture, and a point behind them.
  'a larger window in the middle of it, and points on the bounds': [
    'start 5 6', 'm 100 100', 'p', 'm 150 160', 'resize -40 -40 720 560', 'm 90 110', 'm 600 440', 'm 601 440',
    'm 600 441', 'm 500 400', 'p 3', 'm 600 440', 'm 590 430', 'm 0 0', 'r',
  ],
};

for (const [name, story] of Object.entries(STORIES)) {
  test(`exact pixels: ${name}`, async () => {
    const { json, stderr } = await runCase(replay, { env: session.env, args: [story], timeout: 120000 });
    assert.deepStrictEqual(json, { wrong: [], steps: story.length }, stderr);
  });
}

// With two pixels to a point the picture is shown pixel for pixel, and the pointer moves over it in
// steps of the real screen's pixels.
test('GDK_SCALE=2 shows and cuts out the same pixels', async () => {
  const env = { ...session.env, GDK_SCALE: '2' };
  const { json, stderr } = await runCase(replay, { env, args: [[
    'start 300 205', 'm 101 101', 'm 205 156', 'p', 'm 320 301', 'm 301 200', 'm 103 303', 'm 639 479', 'm 411 355', 'r',
  ]] });
  assert.deepStrictEqual(json.wrong, [], stderr);
});

