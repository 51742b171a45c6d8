'use strict';

const assert = require('assert');
const { describe, test } = require('node:test');
const { runCase, startCase } = require('./helpers/case');
const { need } = require('./helpers/need');
const { startSession } = require('./helpers/session');

const LEFT = { width: 640, height: 480, x: 0, y: 0 };
const RIGHT = { width: 800, height: 600, x: 640, y: 0 };

async function inSession(options, body) {
  const session = await startSession({ bus: false, ...options });
  try {
    await body(session);
  } finally {
    await session.stop();
  }
}

// One selection on the monitor given: what the overlay covers, what it shows while hovering, and
// whether a drag and Escape end it. `scale` is GDK's.
const select = async (monitor, scale, active) => {
  const { ESCAPE, act, bgrx, crop, difference, key, openSelection, settle } = require('./overlay');
  const { OverlayReference } = require('./overlay_reference');
  const { activeWindow } = require('./windows');
  const { x, y, width, height } = monitor;
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const client = X.open(process.env.DISPLAY);
  const root = client.rootWindow(0);
  const other = active ? await activeWindow({ x: x + 40, y: y + 60 }) : null;
  act(client, `m ${x + 100} ${y + 100}`);
  // A compositing window manager fades windows in.
  const color = Buffer.from([0x99, 0x66, 0x33, 0]);
  if (other) await until(() => difference(client.getImage(root, x + 100, y + 100, 1, 1), color) === 0, { what: 'the window in its colour' });
  const shown = () => client.getImage(root, x, y, width, height);
  const still = async () => {
    let last = null;
    await until(() => { const before = last; last = shown(); return before && difference(before, last) === 0; });
    return last;
  };
  const base = await still();
  const selection = await openSelection(client);
  const reference = new OverlayReference(base, width, height);
  reference.configure(width, height, x + 100, y + 100);
  const area = () => { const { x: ax, y: ay, width: w, height: h } = client.geometry(selection.id); return [ax, ay, w, h]; };
  const wanted = [x, y, width, height];
  await until(() => String(area()) === String(wanted), { timeout: 5000 }).catch(() => {});
  const result = { area: area(), wanted };
  const compare = async () => {
    let pixels = null;
    await until(() => (pixels = difference(shown(), reference.pixels)) === 0, { timeout: 5000 }).catch(() => {});
    return pixels;
  };
  result.hover = [await compare()];
  for (const [px, py] of [[110, 110], [201, 151]]) {
    act(client, `m ${x + px} ${y + py}`);
    reference.motion(px, py);
    result.hover.push(await compare());
  }
  // A window manager that lets GDK take the focus gives it to a window of GDK's within.
  const focus = () => [selection.id, ...client.children(selection.id)].includes(client.focusedWindow());
  result.focus = await until(focus, { timeout: 2000 }).catch(() => false);
  act(client, 'p', `m ${x + 300} ${y + 203}`);
  reference.press(201, 151);
  reference.motion(300, 203);
  result.drag = await compare();
  act(client, 'r');
  const { data, errorCode } = await selection.finished();
  if (data.length === 0) return report({ ...result, errorCode });
  result.cut = difference(bgrx(data), crop(base, width, 201, 151, 99, 52));
  result.results = await settle(selection);
  const second = await openSelection(client);
  key(client, ESCAPE);
  result.escape = await settle(second);
  report(result);
  if (other) other.close();
  client.close();
  kiv.teardown();
};

const outcome = (monitor) => {
  const area = [monitor.x, monitor.y, monitor.width, monitor.height];
  return { area, wanted: area, hover: [0, 0, 0], focus: true, drag: 0, cut: 0, results: [[0, 99, 52, true]], escape: [[102005, 0, 0, false]] };
};

describe('on one monitor', () => {
  const only = { ...LEFT, x: 0 };
  for (const wm of ['openbox', 'metacity', 'xfwm4', 'mutter']) {
    test(`under ${wm}`, { skip: need(wm) }, () => inSession({ screens: ['640x480x24'], wm, bus: true }, async ({ env }) => {
      const { json, stderr } = await runCase(select, { env, args: [only, 1, true] });
      assert.deepStrictEqual(json, outcome(only), stderr);
    }));
  }

  test('without a window manager', () => inSession({ screens: ['640x480x24'], wm: false }, async ({ env }) => {
    const { json, stderr } = await runCase(select, { env, args: [only, 1, false] });
    assert.deepStrictEqual(json, outcome(only), stderr);
  }));

  test('with two pixels to a point', () => inSession({ screens: ['640x480x24'] }, async ({ env }) => {
    const { json, stderr } = await runCase(select, { env: { ...env, GDK_SCALE: '2' }, args: [only, 2, true] });
    assert.deepStrictEqual(json, outcome(only), stderr);
  }));
});

describe('on two monitors', { skip: need('Xorg') }, () => {
  for (const wm of ['openbox', 'metacity', 'xfwm4']) {
    for (const [name, monitor] of [['left', LEFT], ['right', RIGHT]]) {
      test(`${wm}, active window on the ${name}`, { skip: need(wm) }, () =>
        inSession({ monitors: [LEFT, RIGHT], wm, bus: true }, async ({ env }) => {
          const { json, stderr } = await runCase(select, { env, args: [monitor, 1, true] });
          assert.deepStrictEqual(json, outcome(monitor), stderr);
        }));
    }
  }

  test('presses and releases beyond the overlay', () => inSession({ monitors: [LEFT, RIGHT] }, async ({ env }) => {
    const { json, stderr } = await runCase(async () => {
      const { act, openSelection, settle } = require('./overlay');
      const { activeWindow } = require('./windows');
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
      const other = await activeWindow({ x: 40, y: 60 });
      const { client } = other;
      const outcomes = [];
      // The implicit grab delivers the release of a drag that ends on the other monitor.
      for (const steps of [['m 600 400', 'p', 'm 630 470', 'm 900 500', 'r'], ['m 600 400', 'p', 'm 900 500', 'r']]) {
        act(client, 'm 300 300');
        const selection = await openSelection(client);
        act(client, 'm 301 300', ...steps);
        outcomes.push(...await settle(selection));
      }
      report(outcomes);
      other.close();
      kiv.teardown();
    }, { env });
    assert.deepStrictEqual(json, [[0, 30, 70, true], [0, 0, 0, false]], stderr);
  }));

  // The layout changes while the overlay of the left monitor is open.
  const CHANGES = {
    'its monitor unplugged': [[{ ...RIGHT, x: 0 }], 102003],
    'its monitor resized': [[{ ...LEFT, width: 800, height: 600 }, { ...RIGHT, x: 800 }], 102003],
    'the other monitor resized': [[LEFT, { ...RIGHT, width: 640, height: 480 }], 102005],
  };
  for (const [name, [layout, code]] of Object.entries(CHANGES)) {
    test(name, () => inSession({ monitors: [LEFT, RIGHT], wm: false }, async ({ env, layOut }) => {
      const hovering = startCase(async () => {
        const { ESCAPE, key, openSelection, settle } = require('./overlay');
        host.startLoop();
        kiv.setupLogger(() => {});
        kiv.init();
        const client = X.open(process.env.DISPLAY);
        // Without a window manager this names the active window, and with it the monitor.
        const id = client.createWindow({ x: 40, y: 60, width: 100, height: 100 });
        client.map(id);
        const supported = ['_NET_ACTIVE_WINDOW', '_NET_SUPPORTING_WM_CHECK'].map((atom) => client.atom(atom));
        const root = client.rootWindow(0);
        const longs = (...values) => Buffer.from(new Int32Array(values).buffer);
        client.setProperty(root, '_NET_SUPPORTED', 'ATOM', 32, longs(...supported));
        client.setProperty(root, '_NET_SUPPORTING_WM_CHECK', 'WINDOW', 32, longs(id));
        client.setProperty(id, '_NET_SUPPORTING_WM_CHECK', 'WINDOW', 32, longs(id));
        client.setProperty(root, '_NET_ACTIVE_WINDOW', 'WINDOW', 32, longs(id));
        client.sync();
        const selection = await openSelection(client);
        const { width, height } = client.geometry(selection.id);
        report([width, height]);
        await new Promise((resolve) => process.stdin.once('data', resolve));
        // An unchanged monitor's overlay stays, and Escape ends it.
        for (let i = 0; i < 20 && selection.results.length === 0; ++i) await new Promise((resolve) => setTimeout(resolve, 10));
        key(client, ESCAPE);
        report(await settle(selection));
        process.stdin.unref();
        client.close();
        kiv.teardown();
      }, { env });
      assert.deepStrictEqual(await hovering.reported(1), [640, 480]);
      layOut(layout);
      hovering.child.stdin.end('changed\n');
      const { json, stderr } = await hovering.done;
      assert.deepStrictEqual(json, [[code, 0, 0, false]], stderr);
    }));
  }
});
