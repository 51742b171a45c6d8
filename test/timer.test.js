'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

const { look, run } = share({ wm: false, bus: false });

test('ticks come at the period, without arguments, as the runtime calls a callback', async () => {
  const { ticks, seen, resource } = await look(async () => {
    const types = new Set();
    require('async_hooks').createHook({ init(id, type) { types.add(type); } }).enable();
    kiv.init();
    const start = Date.now();
    const times = [];
    let call;
    kiv.setInterval(function tick() {
      call = [arguments.length, this === global];
      times.push(Date.now() - start);
    }, 150);
    await until(() => times.length === 4, { what: 'four ticks' });
    report({ ticks: times, seen: call, resource: types.has('nan:Callback:Call') });
    kiv.teardown();
  });
  assert.deepStrictEqual([seen, resource], [[0, true], true]);
  // Early never; how late is the machine's affair.
  ticks.forEach((at, i) => assert.ok(at >= 150 * (i + 1) - 2, String(ticks)));
});

test('a new interval replaces the old one and starts afresh; a blocked thread gets one tick', async () => {
  assert.deepStrictEqual(await look(async () => {
    kiv.init();
    const calls = [];
    kiv.setInterval(() => calls.push('f'), 100);
    await new Promise((resolve) => kiv.setInterval(() => { calls.push('g'); resolve(); }, 50));
    const at = calls.length;
    Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, 300);
    await new Promise(setImmediate);
    await new Promise(setImmediate);
    report([calls.slice(0, at), calls.length - at]);
    kiv.teardown();
  }), [['g'], 1]);
});

test('periods: stopped by 0, negative, NaN, missing and 2^31; low 32 bits; fractions dropped', async () => {
  assert.deepStrictEqual(await look(async () => {
    kiv.init();
    const ticked = {};
    // Every period in turn; the next one is given a tick to show that the last one has stopped.
    for (const [name, args] of Object.entries({
      zero: [0], negative: [-5], nan: [NaN], missing: [], half: [2 ** 31], low: [2 ** 32 + 5], fraction: [2.9],
    })) {
      ticked[name] = await new Promise((resolve) => {
        kiv.setInterval(() => resolve(true), ...args);
        setTimeout(() => resolve(false), 120);
      });
    }
    try { kiv.setInterval(() => {}, Symbol('period')); } catch (error) { ticked.thrown = error.name; }
    report(ticked);
    kiv.teardown();
  }), { zero: false, negative: false, nan: false, missing: false, half: false, low: true, fraction: true,
    thrown: 'TypeError' });
});

test('a child of the host inherits none of the descriptors that init opened', async () => {
  assert.deepStrictEqual(await look(() => {
    const fs = require('fs');
    kiv;
    const closing = () => fs.readdirSync('/proc/self/fdinfo').map((fd) => {
      const file = `/proc/self/fdinfo/${fd}`;
      return fs.existsSync(file) && [fd, (parseInt(/flags:\s+(\d+)/.exec(fs.readFileSync(file))[1], 8) & 0o2000000) !== 0];
    }).filter(Boolean);
    const before = new Map(closing());
    kiv.init();
    report([...new Set(closing().filter(([fd]) => !before.has(fd)).map(([, closes]) => closes))]);
    kiv.teardown();
  }), [true]);
});

test('what is no function is never called; before init and after teardown nothing ticks', async () => {
  assert.deepStrictEqual(await look(async () => {
    let ticks = 0;
    const counts = [];
    const quiet = async (prepare) => {
      const before = ticks;
      prepare();
      await new Promise((resolve) => setTimeout(resolve, 60));
      counts.push(ticks - before);
    };
    await quiet(() => kiv.setInterval(() => ++ticks, 5));
    // A new init makes a new, disarmed timer.
    await quiet(() => kiv.init());
    kiv.setInterval(() => ++ticks, 5);
    await until(() => ticks > 2, { what: 'ticks' });
    await quiet(() => kiv.setInterval({}, 5));
    kiv.setInterval(() => ++ticks, 5);
    await quiet(() => kiv.teardown());
    report(counts);
  }), [0, 0, 0, 0]);
});

test('a callback that sets intervals, tears down, starts over, collects garbage or throws', async () => {
  assert.deepStrictEqual(await look(async () => {
    const seen = [];
    process.on('uncaughtException', (error) => seen.push(error.message));
    kiv.init();
    const next = (label, action) => new Promise((resolve) => {
      let done = false;
      kiv.setInterval(() => {
        if (done) return;
        done = true;
        seen.push(label);
        setImmediate(resolve);
        action();
      }, 5);
    });
    await next('itself', () => { kiv.setInterval(() => {}, 5); global.gc(); });
    await next('throws', () => { throw new Error('from the tick'); });
    await next('down and up', () => { kiv.teardown(); global.gc(); kiv.init(); });
    await next('down', () => kiv.teardown());
    report(seen);
  }, { nodeArgs: ['--expose-gc'] }), ['itself', 'throws', 'from the tick', 'down and up', 'down']);
});

test('an exception without a handler ends the process as any callback\'s does', async () => {
  const { code, stderr } = await run(async () => {
    kiv.init();
    kiv.setInterval(() => { throw new Error('nobody catches this'); }, 5);
  }, { leaks: false });
  assert.deepStrictEqual([code, stderr.match(/Error: nobody catches this/g).length], [1, 1]);
});
