'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

// Without a window manager every snapshot logs one line.
const LINE = 'Get Active Task info: c-error';
const { look, run } = share({ wm: false });

test('standard error without a logger, and again after anything but a function', async () => {
  const { stderr, stdout } = await run(() => {
    kiv.init();
    kiv.getScreenSnap('desktop');
    for (const none of [undefined, {}]) {
      kiv.setupLogger((...args) => process.stdout.write(`${JSON.stringify(args)}\n`));
      kiv.getScreenSnap('desktop');
      kiv.setupLogger(none);
      kiv.getScreenSnap('desktop');
    }
    kiv.teardown();
  });
  assert.strictEqual(stderr, `[warn] ${LINE}\n`.repeat(3));
  assert.strictEqual(stdout, `["warn","${LINE}"]\n`.repeat(2));
});

test('a logger that replaces itself, logs again, collects garbage or throws', async () => {
  const seen = await look(() => {
    const events = [];
    kiv.init();
    const snap = () => {
      try { return kiv.getScreenSnap('desktop').height; } catch (error) { return error.message; }
    };
    kiv.setupLogger(() => {
      kiv.setupLogger((level, text) => events.push(text));
      global.gc();
      events.push(kiv.getScreenSnap('desktop').width);
    });
    events.push(snap());
    kiv.setupLogger(() => { throw new Error('from the logger'); });
    events.push(snap());
    let depth = 0;
    kiv.setupLogger(() => { ++depth; kiv.getScreenSnap('desktop'); });
    events.push(/call stack/.test(snap()), depth > 10);
    kiv.setupLogger(() => { kiv.teardown(); kiv.init(); });
    events.push(snap());
    report(events);
    kiv.teardown();
  }, { nodeArgs: ['--expose-gc'] });
  assert.deepStrictEqual(seen, [LINE, 0, 0, 'from the logger', true, true, 0]);
});
