'use strict';

const path = require('path');
const { NODE, baseEnv, start } = require('./processes');
const { sanitizerEnv } = require('./sanitizer');
const { until } = require('./until');

const PRELUDE = path.join(__dirname, 'prelude.js');
// The prelude's last line when the case threw.
const FAILED = 'failed';
const ROOT = path.join(__dirname, '..', '..');

function kindOf(source) {
  if (typeof source === 'function') return 'function';
  return /^[^\n]+\.js$/.test(source) ? 'file' : 'text';
}

function reportsIn(text) {
  const lines = text.split('\n').slice(0, -1).filter((line) => line !== FAILED);
  return lines.map((line) => JSON.parse(line));
}

/**
 * Starts a case in a Node process of its own: a function (called there with `args`; it sees
 * nothing of this file), the text of an async function's body, or a path ending in .js.
 * `env` is a session's env. `done` resolves when it has ended and rejects after `timeout`. A case
 * that calls process.exit() or lets an exception end the process wants `leaks: false`: the engine's
 * own memory is not freed then.
 */
function startCase(source, {
  env, args = [], timeout = 240000, node = NODE, nodeArgs = [],
  leaks = true,
} = {}) {
  const kind = kindOf(source);
  const text = kind === 'file' ? path.resolve(ROOT, source) : String(source);
  const whole = {
    ...baseEnv(),
    KIV_BUILD: process.env.KIV_BUILD || 'Release',
    ...(process.env.KIV_SANITIZE === '1' ? { KIV_SANITIZE: '1' } : {}),
    ...sanitizerEnv({ leaks }),
    ...env,
  };
  const started = start(node, [...nodeArgs, PRELUDE, kind, text, JSON.stringify(args)], {
    env: whole,
    cwd: ROOT,
    stdio: ['pipe', 'pipe', 'pipe', 'pipe'],
  });
  started.child.stdin.on('error', () => {});
  started.reports = () => reportsIn(started.text[3]);
  /** Resolves to report number `count`, counted from one. */
  started.reported = (count = 1, options = {}) =>
    until(() => {
      const reports = started.reports();
      if (reports.length >= count) return { value: reports[count - 1] };
      if (started.result) throw new Error(`the case ended without report ${count}\n${started.output}`);
      return null;
    }, { what: `report ${count} of a case`, ...options }).then(({ value }) => value);

  let timedOut = false;
  const timer = setTimeout(() => {
    timedOut = true;
    started.stop(1000);
  }, timeout);
  started.done = started.exited.then(({ code, signal }) => {
    clearTimeout(timer);
    if (timedOut) throw new Error(`the case took more than ${timeout} ms\n${started.output}`);
    const threw = started.text[3].endsWith(`${FAILED}\n`);
    const reports = started.reports();
    return {
      ...(threw ? { code: 1, signal: null } : { code, signal }),
      stdout: started.text[1],
      stderr: started.text[2],
      reports,
      json: reports[reports.length - 1],
    };
  });
  started.done.catch(() => {});
  return started;
}

/** Runs a case to its end: { code, signal, stdout, stderr, json, reports }. */
function runCase(source, options) {
  return startCase(source, options).done;
}

module.exports = { startCase, runCase };
