'use strict';

const { spawn } = require('child_process');
const fs = require('fs');
const { until } = require('./until');

const running = new Set();
/** What loads the module: a runtime that may be older than the test runner's. */
const NODE = process.env.KIV_NODE || process.execPath;

/** What every child gets; nothing of the user's session. */
function baseEnv() {
  return { PATH: process.env.PATH, LANG: 'C.UTF-8' };
}

/**
 * Starts a process. `stdio` as for spawn; piped streams are collected: `output` is stdout and
 * stderr together, `text[fd]` each on its own. `exited` resolves to { code, signal } once the
 * streams have ended as well. Unless somebody asks for `exited`, a process left over does not keep
 * a failed test file from ending.
 */
function start(command, args = [], { env = baseEnv(), cwd, stdio = ['ignore', 'pipe', 'pipe'] } = {}) {
  // The kernel stops the child even if this process is killed outright.
  const child = spawn('setpriv', ['--pdeathsig', 'TERM', command, ...args], { env, cwd, stdio });
  const started = { pid: child.pid, child, command, output: '', text: {}, result: null };
  running.add(started);
  child.stdio.forEach((stream, fd) => {
    if (!stream || !stream.readable || fd === 0) return;
    started.text[fd] = '';
    stream.setEncoding('utf8');
    stream.on('data', (piece) => {
      started.text[fd] += piece;
      if (fd <= 2) started.output += piece;
    });
    stream.on('error', () => {});
  });
  const gone = new Promise((resolve) => {
    child.once('exit', resolve);
    child.once('error', resolve);
  }).then(() => running.delete(started));
  const ended = new Promise((resolve) => {
    const end = (result) => resolve((started.result = result));
    child.once('close', (code, signal) => end({ code, signal }));
    child.once('error', (error) => {
      started.output += error.message;
      end({ code: 127, signal: null });
    });
  });
  const handles = [child, ...child.stdio.filter(Boolean)];
  for (const handle of handles) handle.unref();
  Object.defineProperty(started, 'exited', {
    get() {
      for (const handle of handles) handle.ref();
      return ended;
    },
  });
  started.stop = async (grace = 5000) => {
    if (!running.has(started)) return;
    // Else nothing might keep the caller alive until then.
    child.ref();
    child.kill('SIGTERM');
    const timer = setTimeout(() => child.kill('SIGKILL'), grace);
    await gone;
    clearTimeout(timer);
  };
  return started;
}

/** Waits for a condition a started process brings about; fails at once when the process ends. */
async function untilReady(started, condition, what, timeout = 60000) {
  const explain = (reason) => new Error(`${started.command}: ${reason}\n${started.output}`);
  try {
    return await until(() => {
      if (started.result) throw new Error(`ended with ${JSON.stringify(started.result)}`);
      return condition();
    }, { timeout, what });
  } catch (error) {
    await started.stop();
    throw explain(error.message);
  }
}

function alive(pid) {
  try {
    return !/^\d+ \(.*\) [ZX]/s.test(fs.readFileSync(`/proc/${pid}/stat`, 'utf8'));
  } catch (error) {
    return false;
  }
}

// Nothing asynchronous runs any more when the process exits.
process.on('exit', () => {
  const left = [...running].filter(({ pid }) => pid);
  for (const { child } of left) child.kill('SIGTERM');
  const end = Date.now() + 3000;
  const clock = new Int32Array(new SharedArrayBuffer(4));
  while (Date.now() < end && left.some(({ pid }) => alive(pid))) Atomics.wait(clock, 0, 0, 20);
  for (const { child } of left) child.kill('SIGKILL');
});
for (const [signal, code] of [['SIGINT', 130], ['SIGTERM', 143], ['SIGHUP', 129]]) {
  process.once(signal, () => process.exit(code));
}

module.exports = { NODE, baseEnv, start, untilReady, alive };
