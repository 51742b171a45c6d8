'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase, startCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

let session;
before(async () => { session = await startSession({ wm: false, bus: false }); });
after(() => session.stop());
const run = (source, options) => runCase(source, { env: session.env, ...options });

test('ticks come at the period, without arguments, as the runtime calls a callback', async () => {
  const { json } = await run(async () => {
    const types = new Set();
    require('async_hooks').createHook({ init(id, type) { types.add(type); } }).enable();
    kiv.init();
    const start = Date.now();
    const ticks = [];
    let seen;
    kiv.setInterval(function tick() {
      seen = [arguments.length, this === global];
      ticks.push(Date.now() - start);
    }, 150);
    await until(() => ticks.length === 4, { what: 'four ticks' });
    report({ ticks, seen, resource: types.has('nan:Callback:Call') });
    kiv.teardown();
  });
  assert.deepStrictEqual([json.seen, json.resource], [[0, true], true]);
  // Early never; how late is the machine's affair.
  json.ticks.forEach((at, i) => assert.ok(at >= 150 * (i + 1) - 2, JSON.stringify(json.ticks)));
});

test('a new interval replaces the old one and starts afresh; a blocked thread gets one tick', async () => {
  const { json } = await run(async () => {
    kiv.init();
    const calls = [];
    kiv.setInterval(() => calls.push('f'), 100);
    kiv.setInterval(() => calls.push('g'), 100);
    await until(() => calls.length >= 2, { what: 'two ticks' });
    const wait = (ms) => Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, ms);
    calls.length = 0;
    await new Promise((resolve) => kiv.setInterval(() => { calls.push('h'); resolve(); }, 50));
    const at = calls.length;
    wait(300);
    await new Promise(setImmediate);
    await new Promise(setImmediate);
    report([[...new Set(calls.slice(0, at))], calls.length - at]);
    kiv.teardown();
  });
  assert.deepStrictEqual(json, [['h'], 1]);
});

test('periods: stopped by 0, negative, NaN, missing and 2^31; low 32 bits; fractions dropped', async () => {
  const { json } = await run(async () => {
    kiv.init();
    const ticked = {};
    // Every period in turn; the next one is given a tick to show that the last one has stopped.
    for (const [name, args] of Object.entries({
      zero: [0], negative: [-5], nan: [NaN], text: ['soon'], missing: [], half: [2 ** 31], low: [2 ** 32 + 5], fraction: [2.9],
    })) {
      ticked[name] = await new Promise((resolve) => {
        kiv.setInterval(() => resolve(true), ...args);
        setTimeout(() => resolve(false), 120);
      });
    }
    let thrown;
    try { kiv.setInterval(() => {}, Symbol('period')); } catch (error) { thrown = error.name; }
    report({ ...ticked, thrown });
    kiv.teardown();
  });
  assert.deepStrictEqual(json, { zero: false, negative: false, nan: false, text: false, missing: false, half: false,
    low: true, fraction: true, thrown: 'TypeError' });
});

test('what is no function is never called; before init and after teardown nothing ticks', async () => {
  const { json } = await run(async () => {
    let ticks = 0;
    const quiet = async (prepare) => {
      const before = ticks;
      prepare();
      await new Promise((resolve) => setTimeout(resolve, 60));
      return ticks - before;
    };
    const counts = [
      await quiet(() => kiv.setInterval(() => ++ticks, 5)),
      // A new init makes a new, disarmed timer.
      await quiet(() => kiv.init()),
      await quiet(() => kiv.setInterval({}, 5)),
      await quiet(() => kiv.setInterval(undefined, 5)),
    ];
    kiv.setInterval(() => ++ticks, 5);
    await until(() => ticks > 2, { what: 'ticks' });
    counts.push(await quiet(() => kiv.teardown()));
    report(counts);
  });
  assert.deepStrictEqual(json, [0, 0, 0, 0, 0]);
});

test('a callback that sets intervals, tears down, starts over, collects garbage or throws', async () => {
  const { json, code, stderr } = await run(async () => {
    const seen = [];
    process.on('uncaughtException', (error) => seen.push(error.message));
    kiv.init();
    const next = (label, action) => new Promise((resolve) => {
      let done = false;
      kiv.setInterval(() => { if (!done) { done = true; seen.push(label); setImmediate(resolve); action(); } }, 5);
    });
    await next('itself', () => { kiv.setInterval(() => {}, 5); global.gc(); });
    await next('throws', () => { throw new Error('from the tick'); });
    await next('down and up', () => { kiv.teardown(); global.gc(); kiv.init(); });
    await next('down', () => kiv.teardown());
    report(seen);
  }, { nodeArgs: ['--expose-gc'] });
  assert.deepStrictEqual(json, ['itself', 'throws', 'from the tick', 'down and up', 'down'], stderr);
  assert.strictEqual(code, 0);
});

test('an exception without a handler ends the process as any callback\'s does', async () => {
  const { code, stderr } = await run(async () => {
    kiv.init();
    kiv.setInterval(() => { throw new Error('nobody catches this'); }, 5);
  }, { leaks: false });
  assert.strictEqual(code, 1);
  assert.strictEqual(stderr.match(/Error: nobody catches this/g).length, 1);
});

test('a suspended process gets one tick when it goes on', async () => {
  const running = startCase(async () => {
    kiv.init();
    let ticks = 0;
    kiv.setInterval(() => ++ticks, 100);
    await until(() => ticks === 1, { what: 'a tick' });
    report('ready');
    // The parent stops and continues this process within the next second.
    const before = Date.now();
    let last = before;
    await until(() => { const now = Date.now(); const gap = now - last; last = now; return gap > 400; }, { what: 'a gap' });
    report(ticks);
    kiv.teardown();
  }, { env: session.env });
  await running.reported(1);
  process.kill(running.pid, 'SIGSTOP');
  await new Promise((resolve) => setTimeout(resolve, 700));
  process.kill(running.pid, 'SIGCONT');
  const { json } = await running.done;
  assert.ok(json >= 1 && json <= 4, `${json} ticks`);
});
