'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { startCase } = require('./helpers/case');
const { need } = require('./helpers/need');
const { inSession, look, withHost } = require('./helpers/suite');

/* global ESCAPE, act, activeWindow, client, key, openSelection, settle */
const LEFT = { width: 640, height: 480, x: 0, y: 0 };
const RIGHT = { width: 800, height: 600, x: 640, y: 0 };
const BOTH = { monitors: [LEFT, RIGHT] };

// One selection on a monitor: what the overlay covers, what it shows, and how a drag and Escape end it.
const select = async ({ x, y, width, height }, active) => {
  const { bgrx, crop, difference } = require('./overlay');
  const { OverlayReference } = require('./overlay_reference');
  const root = client.rootWindow(0);
  if (active) await activeWindow({ x: x + 40, y: y + 60 });
  act(client, `m ${x + 100} ${y + 100}`);
  const shown = () => client.getImage(root, x, y, width, height);
  // A compositing window manager fades windows in.
  const color = Buffer.from([0x99, 0x66, 0x33, 0]);
  const colored = () => difference(client.getImage(root, x + 100, y + 100, 1, 1), color) === 0;
  if (active) await until(colored, { what: 'the window in its colour' });
  let base = null;
  await until(() => { const before = base; base = shown(); return before && difference(before, base) === 0; });
  const selection = await openSelection(client);
  const reference = new OverlayReference(base, width, height);
  reference.configure(width, height, x + 100, y + 100);
  const wrong = [];
  const compare = async (what) => {
    let pixels = null;
    await until(() => (pixels = difference(shown(), reference.pixels)) === 0, { timeout: 30000 })
      .catch(() => wrong.push(`${what}: ${pixels} pixels`));
  };
  await compare('start');
  for (const [px, py] of [[110, 110], [201, 151]]) {
    act(client, `m ${x + px} ${y + py}`);
    reference.motion(px, py);
    await compare('hovering');
  }
  // A window manager that lets GDK take the focus gives it to a window of GDK's within.
  const focused = () => [selection.id, ...client.children(selection.id)].includes(client.focusedWindow());
  await until(focused, { what: 'the focus' });
  const area = client.geometry(selection.id);
  act(client, 'p', `m ${x + 300} ${y + 203}`);
  reference.press(201, 151);
  reference.motion(300, 203);
  await compare('dragging');
  act(client, 'r');
  const { data } = await selection.finished();
  const cut = difference(bgrx(data), crop(base, width, 201, 151, 99, 52));
  const ended = await settle(selection);
  const second = await openSelection(client);
  key(client, ESCAPE);
  report({ area: [area.x, area.y, area.width, area.height], wrong, cut, ended: ended.concat(await settle(second)) });
};

const ONE = { screens: ['640x480x24'] };
for (const [wm, options, monitor] of [
  [false, { ...ONE, bus: false }, LEFT], ['mutter', ONE, LEFT],
  ['openbox', BOTH, RIGHT], ['metacity', BOTH, LEFT], ['metacity', BOTH, RIGHT], ['xfwm4', BOTH, RIGHT],
]) {
  const name = `${wm || 'no window manager'}, ${options.monitors ? 'two monitors' : 'one'}, active at ${monitor.x}`;
  test(name, { skip: need(...(wm ? [wm] : []), ...(options.monitors ? ['Xorg'] : [])) }, () =>
    inSession({ ...options, wm }, async ({ env }) => {
      const json = await look(withHost(select), { env, args: [monitor, Boolean(wm)] });
      assert.deepStrictEqual(json, { area: [monitor.x, monitor.y, monitor.width, monitor.height], wrong: [], cut: 0,
        ended: [[0, 99, 52, true], [102005, 0, 0, false]] });
    }));
}

test('presses and releases beyond the overlay', { skip: need('Xorg') }, () => inSession(BOTH, async ({ env }) => {
  assert.deepStrictEqual(await look(withHost(async () => {
    await activeWindow({ x: 500, y: 300, width: 120, height: 160 });
    const outcomes = [];
    const shows = (color) => client.getImage(client.rootWindow(0), 610, 420, 1, 1).readUIntLE(0, 3) === color;
    // The implicit grab delivers the release of a drag that ends on the other monitor.
    for (const inside of [true, false]) {
      act(client, 'm 300 300');
      const selection = await openSelection(client);
      await until(() => shows(0x1e3c5a), { what: 'the dimmed window' });
      act(client, 'm 301 300', 'm 600 400', 'p');
      if (inside) {
        // GDK hands on the last of the motions that it finds together.
        act(client, 'm 630 470');
        await until(() => shows(0x336699), { what: 'the rectangle' });
      }
      act(client, 'm 900 500', 'r');
      outcomes.push(...await settle(selection));
    }
    report(outcomes);
  }), { env }), [[0, 30, 70, true], [0, 0, 0, false]]);
}));

// The layout changes while the overlay of the left monitor is open.
for (const [what, layout, code] of [
  ['its monitor unplugged', [{ ...RIGHT, x: 0 }], 102003],
  ['its monitor resized', [{ ...LEFT, width: 800, height: 600 }, { ...RIGHT, x: 800 }], 102003],
  ['the other monitor resized', [LEFT, { ...RIGHT, width: 640, height: 480 }], 102005],
]) {
  test(what, { skip: need('Xorg') }, () => inSession({ ...BOTH, bus: false }, async ({ env, layOut }) => {
    const hovering = startCase(withHost(async (survives, wide) => {
      await activeWindow({ x: 40, y: 60, width: 100, height: 100 });
      const selection = await openSelection(client);
      const { width, height } = client.geometry(selection.id);
      report([width, height]);
      await new Promise((resolve) => process.stdin.once('data', resolve));
      // An unchanged monitor's overlay stays, and Escape ends it.
      if (survives) {
        await until(() => kiv.getScreenSnap('desktop').width === wide, { what: 'the layout in GDK' });
        key(client, ESCAPE);
      }
      report(await settle(selection));
      process.stdin.unref();
    }), { env, args: [code === 102005, layout.reduce((sum, { width }) => sum + width, 0)] });
    assert.deepStrictEqual(await hovering.reported(1), [640, 480]);
    layOut(layout);
    hovering.child.stdin.end('changed\n');
    const { json, stderr } = await hovering.done;
    assert.deepStrictEqual(json, [[code, 0, 0, false]], stderr);
  }));
}
