'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { need } = require('./helpers/need');
const { startSession } = require('./helpers/session');

/* global internals */
const DUMMY = '/usr/lib/xorg/modules/drivers/dummy_drv.so';
let session;
before(async () => { session = await startSession({ bus: false }); });
after(() => session.stop());
const run = async (source, options) => {
  const { json, stderr } = await runCase(source, { env: session.env, ...options });
  assert.ok(json, stderr);
  return json;
};

test('items of every width, and what is not there', async () => {
  const json = await run(() => {
    internals.xOpen(process.env.DISPLAY);
    const client = X.open(process.env.DISPLAY);
    const id = client.createWindow({});
    const set = (name, format, data) => client.setProperty(id, name, 'CARDINAL', format, data);
    set('KIV_8', 8, Buffer.from('a\0b'));
    set('KIV_16', 16, Buffer.from(new Uint16Array([1, 0xffff, 3]).buffer));
    set('KIV_32', 32, Buffer.from(new Uint32Array([1, 0xffffffff, 0x80000000]).buffer));
    set('KIV_EMPTY', 32, Buffer.alloc(0));
    set('KIV_LONG', 8, Buffer.alloc(300000, 7));
    client.sync();
    const read = (property, window = id) => {
      const { items, count, format, type } = internals.xProperty(window, property);
      return [items.toString('latin1'), count, format, type];
    };
    const cardinal = client.atom('CARDINAL');
    const seen = ['KIV_8', 'KIV_16', 'KIV_32', 'KIV_EMPTY'].map((name) => {
      const values = read(name);
      return [...values.slice(0, 3), values[3] === cardinal, String(values) === String(read(client.atom(name)))];
    });
    const long = read('KIV_LONG');
    const missing = read(client.atom('KIV_NOTHING'));
    const before = internals.xState().requests;
    const none = read(cardinal, 0);
    const sent = internals.xState().requests - before;
    client.destroy(id);
    client.sync();
    const dead = read('KIV_8');
    report({ seen, missing, none, sent, dead, long: [long[0].length, long[1]], state: internals.xState() });
    client.close();
    internals.xClose();
  });
  const bytes = (array) => Buffer.from(array.buffer).toString('latin1');
  assert.deepStrictEqual(json.seen, [
    ['a\0b', 3, 8, true, true],
    [bytes(new Uint16Array([1, 0xffff, 3])), 3, 16, true, true],
    [bytes(new Uint32Array([1, 0xffffffff, 0x80000000])), 3, 32, true, true],
    ['', 0, 32, true, true],
  ]);
  assert.deepStrictEqual(json.long, [300000, 300000]);
  assert.deepStrictEqual(json.missing, ['', 0, 0, 0]);
  assert.deepStrictEqual([json.none, json.sent], [['', 0, 0, 77], 0]);
  // The error is the process's to handle: each of the two reads raised one.
  assert.deepStrictEqual(json.dead, ['', 0, 77, 77]);
  assert.deepStrictEqual([json.state.errors, json.state.inPlace], [2, true]);
});

test('a name is looked up once, also when the server does not know it', async () => {
  const json = await run(() => {
    internals.xOpen(process.env.DISPLAY);
    const client = X.open(process.env.DISPLAY);
    const id = client.createWindow({});
    client.sync();
    const requests = (f) => {
      const before = internals.xState().requests;
      f();
      return internals.xState().requests - before;
    };
    const name = `KIV_LATE_${process.pid}`;
    // With the window None only the look-up is sent.
    const counts = [0, 0, 0].map(() => requests(() => internals.xProperty(0, name)));
    client.setProperty(id, name, 'CARDINAL', 8, Buffer.from('x'));
    client.sync();
    const late = internals.xProperty(id, name).items.length;
    report({ counts, late, byAtom: internals.xProperty(id, client.atom(name)).items.toString() });
    client.close();
    internals.xClose();
  });
  assert.deepStrictEqual(json, { counts: [1, 0, 0], late: 0, byAtom: 'x' });
});

const activeCase = async () => {
  const { activeWindow } = require('./windows');
  internals.xOpen(process.env.DISPLAY);
  const seen = [];
  for (const properties of [[], [['WM_NAME', 'STRING', 8, Buffer.from('old')]]]) {
    const window = await activeWindow({ properties, title: properties.length ? '' : 'Grüße', pid: properties.length ? undefined : process.pid });
    const { client, id } = window;
    if (properties.length) {
      client.deleteProperty(id, '_NET_WM_PID');
      client.sync();
    }
    const found = internals.xTopLevel(true);
    const root = client.rootWindow(0);
    let top = id;
    while (client.parent(top) !== root) top = client.parent(top);
    seen.push({ ...found, window: found.window === top, framed: top !== id });
    window.close();
  }
  report({ seen, commandLine: require('fs').readFileSync('/proc/self/cmdline', 'utf8').split('\n')[0].replace(/[ \t\n]+$/, '') });
  internals.xClose();
};

function checkActive({ seen, commandLine }, framed) {
  assert.deepStrictEqual(seen, [
    { window: true, framed, title: 'Grüße', process: commandLine },
    { window: true, framed, title: 'old', process: 'Undefined' },
  ]);
}

test('under a reparenting window manager the top-level window is the frame', async () => {
  checkActive(await run(activeCase), true);
});

test('without frames it is the client', { skip: need('dwm') }, async () => {
  const other = await startSession({ bus: false, wm: 'dwm' });
  try {
    checkActive(await run(activeCase, { env: other.env }), false);
  } finally {
    await other.stop();
  }
});

test('no active window, dead ones, the root, and ends of the walk', async () => {
  const bare = await startSession({ bus: false, wm: false, extraArgs: ['-extension', 'RANDR', '-extension', 'XINERAMA'] });
  try {
    const json = await run(() => {
      internals.xOpen(process.env.DISPLAY);
      const client = X.open(process.env.DISPLAY);
      const root = client.rootWindow(0);
      const outer = client.createWindow({});
      const middle = client.createWindow({ parent: outer });
      const inner = client.createWindow({ parent: middle });
      const dead = client.createWindow({});
      client.destroy(dead);
      const claim = (window, ...values) => {
        client.setProperty(window, '_NET_ACTIVE_WINDOW', 'WINDOW', 32, Buffer.from(new Uint32Array(values).buffer));
        client.sync();
      };
      const names = { [root]: 'root', [outer]: 'outer', [middle]: 'middle', [inner]: 'inner', 0: 'none' };
      const find = (guarded = true) => {
        const { window, title } = internals.xTopLevel(guarded);
        return [names[window], title];
      };
      const seen = {};
      claim(root, 0);
      seen.none = find();
      claim(root, 0, inner);
      seen.second = find();
      claim(middle, inner);
      seen.marked = find();
      claim(root, root);
      seen.root = find();
      claim(root, dead);
      seen.dead = find();
      seen.handled = internals.xState().errors;
      find(false);
      seen.unguarded = internals.xState().errors > 0;
      seen.screens = internals.xScreens();
      report(seen);
      client.close();
      internals.xClose();
    }, { env: bare.env });
    assert.deepStrictEqual(json, {
      none: ['none', 'before'],
      second: ['outer', ''],
      marked: ['middle', ''],
      root: ['root', ''],
      dead: ['none', ''],
      handled: 0,
      unguarded: true,
      screens: [],
    });
  } finally {
    await bare.stop();
  }
});

test('Xinerama screens', { skip: need('Xorg', DUMMY, 'xrandr') }, async () => {
  const wide = await startSession({
    bus: false, wm: false, monitors: [{ width: 640, height: 480 }, { width: 800, height: 600, x: 640, y: 100 }],
  });
  try {
    const screens = await run(() => {
      internals.xOpen(process.env.DISPLAY);
      report(internals.xScreens());
      internals.xClose();
    }, { env: wide.env });
    assert.deepStrictEqual(screens, [[0, 0, 0, 640, 480], [1, 640, 100, 800, 600]]);
  } finally {
    await wide.stop();
  }
});
