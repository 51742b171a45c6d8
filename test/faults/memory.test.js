'use strict';

const assert = require('assert');
const path = require('path');
const { test } = require('node:test');
const { inTurns } = require('../helpers/faults');
const { startCase } = require('../helpers/case');
const { inSession, withHost } = require('../helpers/suite');

const PRELOAD = path.resolve('build', process.env.KIV_BUILD || 'Release', 'kiv_allocations.node');
// The sanitizer has its own allocator in that place.
const skip = process.env.KIV_SANITIZE === '1' && 'the sanitizer brings its own allocator';

// One whole result each, a buffer, or null; `whole` is what it is with all memory.
const WORK = {
  'a PNG snapshot': 'const take = async () => kiv.getScreenSnap("display");',
  'a JPEG snapshot': 'const take = async () => kiv.getScreenSnap("desktop", true);',
  'a snapshot with a callback': `const take = () => new Promise((done) => {
    kiv.getScreenSnapAsync('desktop', done);
    setImmediate(done, { width: 0, height: 0, data: Buffer.alloc(0) });
  });`,
  'a selection': `const screen = () => client.getImage(client.rootWindow(0), 0, 0, 200, 160);
  const bare = screen();
  const take = async () => {
    let result = null;
    await until(() => screen().equals(bare), { what: 'a screen without the last overlay' });
    kiv.getScreenSnapAsync('selection', (snap) => { result = snap; });
    const free = () => { let busy = true; kiv.getScreenSnapAsync('display', () => { busy = false; }); return !busy; };
    const id = await until(() => result || findOverlay(client));
    if (!result) {
      await until(() => client.focusedWindow() === id, { timeout: 2000 }).catch(() => {});
      // GDK may have found no memory to ask for the pointer; there is still Escape.
      act(client, 'm 100 60', 'p', 'm 140 90', 'm 150 100', 'r');
      const over = () => result || (!findOverlay(client) && free());
      await until(over, { timeout: 2000 }).catch(() => { key(client, ESCAPE); return until(over); });
    }
    return result || { width: 0, height: 0, data: Buffer.alloc(0) };
  };`,
};
// What ends the process for want of memory and says so: GLib, the runtime, C++, GTK's and X's own
// checks. GDK does not check everything; the module has to.
const REFUSALS = /failed to allocate|out of memory|bad_alloc|ENOMEM|Fatal|terminate called|insufficient|memory|assertion/i;

// Every `step`-th allocation from the first on fails, in as many processes as it takes.
async function sweep({ env }, work, { whose, step, most }) {
  const counts = { whole: 0, none: 0, ended: 0 };
  const source = withHost(`
    const faults = require(require('path').resolve('build', process.env.KIV_BUILD, 'kiv_faults.node'));
    const [start, step, most, whose] = args;
    ${WORK[work]}
    const same = (a, b) => a.data.equals(b.data) && a.width === b.width && a.height === b.height;
    for (let i = 0; i < 3; ++i) await take();
    const whole = await take();
    let unused = 0;
    for (let n = start; n <= most; n += step) {
      report({ n });
      faults.failAllocation(n, whose);
      const snap = await take();
      const used = faults.allocationFailed();
      faults.failAllocation(0, whose);
      unused = used ? 0 : unused + 1;
      if (unused > 3) break; // it takes fewer, not always the same number
      // What an encoder had made when it failed is kept, and the failure is told.
      const none = snap.data.length === 0 || log.some((line) => /^error Fetch image error:/.test(line));
      log.length = 0;
      if (!none && !same(snap, whole)) { report({ n, wrong: [snap.width, snap.height, snap.data.length] }); return; }
      const next = await take();
      if (!same(next, whole)) { report({ n, next: [next.width, next.height, next.data.length] }); return; }
      report({ n, result: none ? 'none' : 'whole' });
    }
    report({ over: true });`);
  for (let start = 1; ;) {
    const { code, signal, reports, stderr } = await startCase(source, {
      env: { ...env, LD_PRELOAD: PRELOAD }, args: [start, step, most, whose], leaks: false,
    }).done;
    for (const { result } of reports) if (result) ++counts[result];
    const last = reports[reports.length - 1];
    assert.ok(last, stderr);
    if (last.over) return counts;
    const label = `${work}, allocation ${last.n}: ${JSON.stringify(last)} ${code} ${signal}\n${stderr}`;
    assert.ok(last.wrong === undefined && last.next === undefined, label);
    if (signal === 'SIGSEGV') {
      assert.match(stderr, /crash in .*\/lib(gdk|gtk|X|cairo|pixman)/, label);
    } else {
      assert.ok(['SIGABRT', 'SIGTRAP'].includes(signal) || (code > 0 && code < 128), label);
      // GDK does not say why when it loses its server.
      if (code !== 1 || stderr !== '') assert.match(stderr, REFUSALS, label);
    }
    ++counts.ended;
    start = last.n + step;
  }
}

// Whose allocations fail: kAll, kLibraries and kNotXlib of test/native/allocations.cpp.
const [ALL, LIBRARIES, NOT_XLIB] = [0, 1, 2];
// [work, whose, every which one]
const ROWS = [
  ['a PNG snapshot', LIBRARIES, 1],
  ['a JPEG snapshot', LIBRARIES, 1],
  ['a snapshot with a callback', LIBRARIES, 1],
  ['a selection', NOT_XLIB, 1],
  ['a JPEG snapshot', ALL, 7],
];

test('no memory for one allocation: a result or an end, never a wrong picture', { skip }, async () => {
  await inSession({ screens: ['200x160x24'] }, (session) => inTurns(ROWS, async ([work, whose, step]) => {
    const counts = await sweep(session, work, { whose, step, most: 1000 });
    assert.ok(whose === ALL ? counts.ended > 0 : counts.none > 0, `${work}: nothing failed in ${JSON.stringify(counts)}`);
  }, 1));
});
