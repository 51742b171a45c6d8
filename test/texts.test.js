'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

/* global activeWindow, client, log */
const { hosted } = share();
const NAME = '_NET_WM_NAME';
const PID = '_NET_WM_PID';
const U = 'Undefined';
const NO_PID = 'warn XGetWP2r1:0:0';
const cardinals = (...values) => [...Buffer.from(new Int32Array(values).buffer)];
// What windows claim, and what the snapshot and the log say of it.
const CLAIMS = [
  ['nothing at all', [], U, U, [NO_PID, 'warn XGetWP4r1:0']],
  ['a title', [[NAME, 'UTF8_STRING', 8, [...Buffer.from('Grüße — 日本')]]], 'Grüße — 日本', U, [NO_PID]],
  ['an empty title', [[NAME, 'UTF8_STRING', 8, []]], '', U, [NO_PID]],
  ['a title with a NUL', [[NAME, 'UTF8_STRING', 8, [...Buffer.from('one\0two')]]], 'one', U, [NO_PID]],
  ['a title that is not UTF-8', [[NAME, 'STRING', 8, [0x41, 0xff, 0xc3, 0x42]]], 'A��B', U, [NO_PID]],
  ['a title of 32-bit items', [[NAME, 'CARDINAL', 32, cardinals(0x41424344)]], 'DCBA', U, [NO_PID, 'warn XGetWP4r1:32']],
  ['its process', [[PID, 'CARDINAL', 32, 'own']], U, 'own', ['warn XGetWP4r1:0']],
  ['a pid of nobody', [[PID, 'CARDINAL', 32, cardinals(2147483647)]], U, U, ['warn XGetWP4r1:0']],
  ['a pid of one byte', [[PID, 'CARDINAL', 8, [255]]], U, null, ['warn XGetWP2r1:8:1', 'warn XGetWP4r1:0']],
  ['two pids', [[PID, 'CARDINAL', 32, cardinals(-1, 1)]], U, U, ['warn XGetWP2r1:32:2', 'warn XGetWP4r1:0']],
];

test('titles and command lines of active windows, lies included', async () => {
  const { seen, own, long, command } = await hosted(async (claims) => {
    const results = [];
    for (const properties of claims) {
      const self = Buffer.from(new Int32Array([process.pid]).buffer);
      const window = await activeWindow({ properties: properties.map(([name, type, format, bytes]) =>
        [name, type, format, bytes === 'own' ? self : Buffer.from(bytes)]) });
      // A window manager may fill in what is missing.
      for (const name of ['_NET_WM_NAME', '_NET_WM_PID']) {
        if (!properties.some(([given]) => given === name)) client.deleteProperty(window.id, name);
      }
      log.length = 0;
      const snap = kiv.getScreenSnap('desktop', true);
      results.push([snap.activeWindowTitle, snap.activeProcessName, log.slice()]);
      window.close();
    }
    // A client may store gigabytes.
    const lengthy = require('child_process').spawn('sh', ['-c', 'read x', ...Array(15).fill('y'.repeat(100000))]);
    await activeWindow({ title: 'x'.repeat((1 << 20) + 5), pid: lengthy.pid });
    const { activeWindowTitle, activeProcessName } = kiv.getScreenSnap('desktop', true);
    lengthy.stdin.end('\n');
    report({ seen: results, long: activeWindowTitle, command: activeProcessName.length,
      own: require('fs').readFileSync('/proc/self/cmdline', 'utf8').split('\n')[0].replace(/[ \t\n]+$/, '') });
  }, { args: [CLAIMS.map(([, properties]) => properties)] });
  CLAIMS.forEach(([what, , title, process, lines], i) => {
    const wanted = process === null ? seen[i][1] : process;
    assert.deepStrictEqual(seen[i], [title, wanted === 'own' ? own : wanted, lines], what);
  });
  assert.ok(own.includes('\0') && long === 'x'.repeat(1 << 20), `${long.length} bytes of a title`);
  assert.strictEqual(command, 1 << 20, 'bytes of a command line');
});

test('a root window that lies, and windows that die while they are read', async () => {
  assert.deepStrictEqual(await hosted(() => {
    const claim = (type, format, data) => {
      log.length = 0;
      client.setProperty(client.rootWindow(0), '_NET_ACTIVE_WINDOW', type, format, data);
      const snap = kiv.getScreenSnap('desktop', true);
      return [snap.activeWindowTitle, snap.activeProcessName, ...log];
    };
    const dead = client.createWindow({});
    client.destroy(dead);
    report([claim('WINDOW', 32, Buffer.from(new Uint32Array([dead]).buffer)),
      claim('WINDOW', 32, Buffer.from(new Uint32Array(100000).fill(dead).buffer)),
      claim('STRING', 8, Buffer.from('x')), claim('WINDOW', 32, Buffer.alloc(0))]);
  }), [[U, U], [U, U, 'warn XGetWP1r4:32:100000'], [U, U, 'warn XGetWP1r4:8:1'], [U, U, 'warn Get Active Task info: c-error']]);
});

test('the helpers: items of every width, and what is not there', async () => {
  assert.deepStrictEqual(await hosted(() => {
    internals.xOpen(process.env.DISPLAY);
    const id = client.createWindow({});
    const bytes = { 8: Buffer.from('a\0b'), 16: Buffer.from(new Uint16Array([1, 0xffff, 3]).buffer),
      32: Buffer.from(new Uint32Array([1, 0xffffffff, 0x80000000]).buffer) };
    const read = (property, window = id) => {
      const { items, count, format } = internals.xProperty(window, property);
      return [items.toString('latin1'), count, format];
    };
    const wrong = Object.keys(bytes).filter((format) => {
      client.setProperty(id, `KIV_${format}`, 'CARDINAL', Number(format), bytes[format]);
      const wanted = [bytes[format].toString('latin1'), 3, Number(format)];
      return [read(`KIV_${format}`), read(client.atom(`KIV_${format}`))].some((seen) => String(seen) !== String(wanted));
    });
    const absent = [read(client.atom('KIV_NOTHING')), read('KIV_8', 0)];
    client.destroy(id);
    // An error is the process's to handle.
    report([wrong, ...absent, read('KIV_8'), internals.xErrors()]);
  }), [[], ['', 0, 0], ['', 0, 0], ['', 0, 77], 1]);
});

test('the helpers: under a reparenting window manager the top-level window is the frame', async () => {
  const { title, command, isFrame, ends } = await hosted(async () => {
    internals.xOpen(process.env.DISPLAY);
    const root = client.rootWindow(0);
    const { id } = await activeWindow({ title: 'Grüße', pid: process.pid });
    const found = internals.xTopLevel(true);
    const dead = client.createWindow({});
    client.destroy(dead);
    const find = (guarded, ...values) => {
      client.setProperty(root, '_NET_ACTIVE_WINDOW', 'WINDOW', 32, Buffer.from(new Uint32Array(values).buffer));
      const { window, title: name } = internals.xTopLevel(guarded);
      return [window, name, internals.xErrors() > 0];
    };
    report({ title: found.title, command: [found.process, require('fs').readFileSync('/proc/self/cmdline', 'utf8')],
      isFrame: found.window !== id && client.parent(found.window) === root,
      ends: [find(true, 0), find(true, dead), find(false, dead)] });
  });
  const own = command[1].split('\n')[0].replace(/[ \t\n]+$/, '');
  assert.deepStrictEqual([title, command[0], isFrame], ['Grüße', own, true]);
  assert.deepStrictEqual(ends, [[0, 'before', false], [0, '', false], [0, '', true]]);
});
