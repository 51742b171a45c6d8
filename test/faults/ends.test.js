'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { inTurns, nothingLeft, whatIsThere } = require('../helpers/faults');
const { startCase } = require('../helpers/case');
const { inSession, withHost } = require('../helpers/suite');

// Each is what is under way when LEAVE runs.
const STATES = {
  idle: 'LEAVE',
  'a selection that is open': 'await openSelection(client); LEAVE',
  'a timer that is armed': 'kiv.setInterval(() => { calls += 1; }, 5); await until(() => calls > 2); LEAVE',
  'a capture inside a callback': `let inside = false;
    kiv.setupLogger(() => { if (inside) { LEAVE } });
    kiv.getScreenSnapAsync('desktop', () => { inside = true; kiv.getScreenSnapAsync('display', () => {}); kiv.getScreenSnap('desktop', true); });`,
  'a completion under way': 'kiv.getScreenSnapAsync("desktop", () => { LEAVE });',
  'a tick under way': 'kiv.setInterval(() => { LEAVE }, 5);',
  'a logger that is installed': 'kiv.setupLogger((level, text) => log.push(text)); kiv.getScreenSnap("desktop"); LEAVE',
};
// [code, signal]
const WAYS = {
  'process.exit(3);': [3, null],
  'process.exitCode = 4; process.emit("exit", 4); process.reallyExit(4);': [4, null],
  'throw new Error("expected");': [1, null],
  'setImmediate(() => { throw new Error("expected"); });': [1, null],
  'process.kill(process.pid, "SIGTERM");': [null, 'SIGTERM'],
  'process.kill(process.pid, "SIGINT");': [null, 'SIGINT'],
  'process.kill(process.pid, "SIGKILL");': [null, 'SIGKILL'],
  'process.abort();': [null, 'SIGABRT'],
  // The loop runs dry: the runtime itself is taken apart.
  'setImmediate(() => { internals.unrefHandles(); kiv.teardown(); client.close(); });': [0, null],
  'setImmediate(() => { client.close(); kiv.teardown(); kiv.init(); process.exit(0); });': [0, null],
};
const ROWS = Object.entries(STATES).map(([state, text]) => Object.entries(WAYS).map(([way, end]) => ({ state, way, end, text }))).flat();

// VERSION:BINARY of each Node that has a build; the one of the other tests without.
const NODES = (process.env.KIV_FAULT_NODES || '').split(' ').filter(Boolean).map((entry) => {
  const [version, node] = entry.split(':');
  return { name: `Node ${version}`, node, build: `../.cache/runtime-${version}/build/Release` };
});

for (const { name, node, build } of NODES.length > 0 ? NODES : [{ name: 'this Node' }]) {
  test(`the process ends in every way, in every state, on ${name}`, () => inSession({}, async (session) => {
    const before = await whatIsThere(session);
    const env = { ...session.env, ...(build ? { KIV_BUILD: build } : {}) };
    const pids = [];
    await inTurns(ROWS, async ({ state, way, end, text }) => {
      // Left by way of its own: neither the case's end nor its clean-up come first.
      const source = withHost(`let calls = 0; let left = false;
        process.removeAllListeners('unhandledRejection');
        process.on('unhandledRejection', (error) => { setImmediate(() => { throw error; }); });
        ${text.replace('LEAVE', `if (!left) { left = true; ${way} }`)}
        await new Promise(() => {});`);
      const started = startCase(source, { env, leaks: false, ...(node ? { node } : {}) });
      pids.push(started.pid);
      const { code, signal, stderr } = await started.done;
      assert.deepStrictEqual([code, signal], end, `${state}, ${way}\n${stderr}`);
      assert.doesNotMatch(stderr, /CRITICAL|WARNING|Sanitizer|runtime error|FATAL ERROR|#\n# Fatal/, `${state}, ${way}`);
    });
    await nothingLeft(session, before, pids);
  }));
}
