'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
let session;
before(async () => { session = await startSession({ wm: false }); });
after(() => session.stop());
const run = (source, options) => runCase(source, { env: session.env, ...options });

test('standard error without a logger, and again after anything but a function', async () => {
  const { stderr, stdout } = await run(() => {
    kiv.init();
    kiv.getScreenSnap('desktop');
    kiv.setupLogger((...args) => process.stdout.write(`${JSON.stringify(args)}\n`));
    kiv.getScreenSnap('desktop');
    for (const none of [undefined, null, 5, {}]) {
      kiv.setupLogger(none);
      kiv.getScreenSnap('desktop');
    }
    kiv.setupLogger();
    kiv.getScreenSnap('desktop');
    kiv.teardown();
  });
  assert.strictEqual(stderr, `[warn] ${LINE}\n`.repeat(6));
  assert.strictEqual(stdout, `["warn","${LINE}"]\n`);
});

test('a logger that replaces itself, logs again, collects garbage or throws', async () => {
  const { json, stderr } = await run(() => {
    const seen = [];
    kiv.init();
    const snap = () => {
      try { return kiv.getScreenSnap('desktop').height; } catch (error) { return error.message; }
    };
    kiv.setupLogger(() => {
      kiv.setupLogger((level, text) => seen.push(text));
      global.gc();
      seen.push(kiv.getScreenSnap('desktop').width);
    });
    seen.push(snap());
    kiv.setupLogger(() => { throw new Error('from the logger'); });
    seen.push(snap());
    let depth = 0;
    kiv.setupLogger(() => { ++depth; kiv.getScreenSnap('desktop'); });
    seen.push(snap(), depth > 10);
    kiv.setupLogger(() => { kiv.teardown(); kiv.init(); });
    seen.push(snap());
    kiv.setupLogger(() => {});
    report(seen);
    kiv.teardown();
  }, { nodeArgs: ['--expose-gc'] });
  assert.ok(json, stderr);
  assert.deepStrictEqual(json.slice(0, 4), [LINE, 0, 0, 'from the logger']);
  assert.match(json[4], /call stack/);
  assert.deepStrictEqual(json.slice(5), [true, 0]);
});

test('the logger is called as the runtime calls a callback', async () => {
  const { json } = await run(() => {
    const types = [];
    require('async_hooks').createHook({ init(id, type) { types.push(type); } }).enable();
    kiv.init();
    let receiver;
    kiv.setupLogger(function logger() { receiver = this === global; });
    kiv.getScreenSnap('desktop');
    report({ receiver, types: types.filter((type) => type.startsWith('nan:')) });
    kiv.teardown();
  });
  assert.deepStrictEqual(json, { receiver: true, types: ['nan:Callback:Call'] });
});
