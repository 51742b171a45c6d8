'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

/* global act, client, openSelection, settle */
const shared = share({ screens: ['640x480x24'], wm: false, bus: false });

// Replays a story on the real overlay and on the reference and compares the screen after each step.
const replay = async (story) => {
  const { crop, difference } = require('./overlay');
  const { OverlayReference } = require('./overlay_reference');
  const { paint } = require('../../bench/pictures');
  const [width, height] = [640, 480];
  const background = paint('busy', width, height);
  const screen = (w = width, h = height) => client.getImage(client.rootWindow(0), 0, 0, w, h);
  let reference = new OverlayReference(screen(), width, height);
  let selection;
  // Where the overlay's corner stands on the screen.
  let corner = { x: 0, y: 0 };
  const steps = {
    async start(x, y) {
      act(client, `m ${x} ${y}`);
      if (selection) reference = reference.next(screen());
      selection = await openSelection(client);
      corner = { x: 0, y: 0 };
      reference.configure(width, height, x, y);
    },
    m(x, y) {
      act(client, `m ${x} ${y}`);
      reference.motion(x - corner.x, y - corner.y);
    },
    p(button = 1) {
      const { x, y } = client.pointer();
      act(client, `p ${button}`);
      reference.press(x - corner.x, y - corner.y);
    },
    resize(x, y, w, h) {
      client.moveResize(selection.id, x, y, w, h);
      corner = { x, y };
      const pointer = client.pointer();
      reference.configure(w, h, pointer.x, pointer.y);
    },
    async r() {
      act(client, 'r', 'r 3');
      await settle(selection);
    },
  };
  const wrong = [];
  for (const step of story) {
    const [what, ...numbers] = step.split(' ');
    await steps[what](...numbers.map(Number));
    if (what === 'r') continue;
    // What a larger window shows beyond the picture is not drawn anew.
    const shown = [width + corner.x, height + corner.y];
    const wanted = crop(reference.pixels, reference.surface.width, -corner.x, -corner.y, ...shown);
    let pixels = null;
    const same = () => (pixels = difference(screen(...shown), wanted)) === 0;
    await until(same, { timeout: 30000 }).catch(() => wrong.push(`${wrong.length}: ${step}: ${pixels} pixels, ${JSON.stringify(selection.results)}`));
    if (wrong.length > 0) break;
  }
  // A button that stays pressed would spoil the next story.
  act(client, 'r', 'r 3');
  report(wrong);
  background.close();
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
  // Two pixels to a point: the picture is shown pixel for pixel, and the pointer moves over it in
  // steps of the real screen's pixels.
  'GDK_SCALE=2': [
    'start 300 205', 'm 101 101', 'm 205 156', 'p', 'm 320 301', 'm 301 200', 'm 103 303', 'm 639 479', 'm 411 355', 'r',
  ],
};

for (const [name, story] of Object.entries(STORIES)) {
  test(`exact pixels: ${name}`, async () => {
    const env = { ...shared.session.env, GDK_SCALE: name === 'GDK_SCALE=2' ? '2' : '1' };
    assert.deepStrictEqual(await shared.hosted(replay, { env, args: [story] }), []);
  });
}
