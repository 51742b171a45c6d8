'use strict';

const assert = require('assert');
const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { test } = require('node:test');
const { needBox } = require('../helpers/box');
const { nothingLeft, standing, whatIsThere } = require('../helpers/faults');
const { NODE } = require('../helpers/processes');
const { inSession, withHost, withStandIn } = require('../helpers/suite');

// Descriptors that are left beyond the highest that is open.
const limit = (pid, left) => {
  const used = Math.max(...fs.readdirSync(`/proc/${pid}/fd`).map(Number));
  execFileSync('prlimit', ['--pid', String(pid), `--nofile=${used + 1 + left}:`], { timeout: 10000 });
};

test('a hundred descriptors last for ever; none are missed by no call', () => inSession({}, async (session) => {
  const before = await whatIsThere(session);
  // Holes below the highest would be descriptors, too.
  const source = withHost(`
    const fill = () => { const taken = []; try { for (;;) taken.push(fs.openSync('/dev/null')); } catch (error) { return taken; } };
    const free = (taken) => taken.forEach((fd) => fs.closeSync(fd));
    const monitor = new kiv.ScreenLockMonitor();
    const round = async () => {
      kiv.init();
      kiv.setInterval(() => {}, 100);
      const { width } = kiv.getScreenSnap('display', true);
      kiv.getInputInfo();
      kiv.getScreenSnapAsync('selection', () => {});
      kiv.teardown();
      await new Promise(setImmediate);
      return width;
    };
    await round();
    await fault();
    const before = held();
    for (let i = 0; i < 150; ++i) await round();
    await released(before);
    const results = [];
    for (let left = 0; left <= 12; ++left) {
      const taken = fill();
      free(taken.splice(0, left));
      kiv.init();
      kiv.setInterval(() => {}, 100);
      results.push([kiv.getScreenSnap('desktop', true).width, kiv.upgrade('/nonexistent/brenik.deb', false)]);
      kiv.getInputInfo();
      kiv.teardown();
      free(taken);
      await new Promise(setImmediate);
    }
    // A teardown that frees no descriptor before it closes the bus.
    const { DISPLAY } = process.env;
    process.env.DISPLAY = ':99999';
    kiv.init();
    const taken = fill();
    kiv.teardown();
    free(taken);
    process.env.DISPLAY = DISPLAY;
    report([results, await round()]);
    await released(before);`);
  const started = await standing(source, { env: session.env });
  limit(started.pid, 100);
  started.go();
  const { code, json, stderr } = await started.done;
  assert.deepStrictEqual([code, json], [0, [Array(13).fill([1280, -1]), 1280]], stderr);
  await nothingLeft(session, before);
}));

// A program in whose view of the machine a folder has room for a page or two.
function withFullFolder(session, folder) {
  fs.mkdirSync(folder, { recursive: true });
  const script = path.join(session.folder, 'full');
  fs.writeFileSync(script, `#!/bin/sh
exec unshare --mount --propagation private sh -c 'mount -t tmpfs -o size=8k none "${folder}" && exec "$0" "$@"' "${NODE}" "$@"
`, { mode: 0o755 });
  return script;
}

const FILL = `const fill = (folder) => {
  const taken = fs.openSync(folder + '/taken', 'w');
  try { for (;;) fs.writeSync(taken, Buffer.alloc(512)); } catch (error) { report(error.code); }
  fs.closeSync(taken);
};`;
const skip = needBox();

test('a full temporary folder: no picture, a reason, no file', { skip }, () => inSession({ wm: false }, async (session) => {
  const started = await standing(withStandIn(`
    serve('gnome', { copy: keep(png(400, 300)), body: "(true, '')" });
    await fault();
    ${FILL}
    fill(process.env.TMPDIR);
    const { width, data } = kiv.getScreenSnap('desktop');
    const left = fs.readdirSync(process.env.TMPDIR);
    fs.unlinkSync(inTmp('taken'));
    report([width, data.length, left, kiv.getScreenSnap('desktop').width, log.map((line) => line.slice(0, 24))]);`),
  { env: { ...session.env, XDG_SESSION_TYPE: 'wayland' }, node: withFullFolder(session, session.env.TMPDIR) });
  started.go();
  const { code, reports, stderr } = await started.done;
  assert.deepStrictEqual([code, reports[1]], [0, 'ENOSPC'], stderr);
  const [width, length, left, later, log] = reports[2];
  assert.deepStrictEqual([width, length, left, later], [0, 0, ['taken'], 400], String(log));
  assert.match(log.join(), /error DBUS Screenshot: /);
}));

test('a full folder of the host: the snapshot stays in memory', { skip }, () => inSession({ wm: false }, async (session) => {
  const folder = path.join(session.folder, 'pictures');
  const started = await standing(withHost(`
    host.loadUtilities();
    await fault();
    ${FILL}
    const folder = ${JSON.stringify(folder)};
    fill(folder);
    const { width, data, ScreenFullPath } = kiv.getScreenSnap('desktop', false, folder);
    report([width, data.length > 0, ScreenFullPath === undefined, fs.readdirSync(folder)]);`),
  { env: session.env, node: withFullFolder(session, folder) });
  started.go();
  const { code, json, stderr } = await started.done;
  assert.deepStrictEqual([code, json], [0, [1280, true, true, ['taken']]], stderr);
}));
