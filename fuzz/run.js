'use strict';

// run.js [--seconds N] [--merge] [TARGET…]: every target for N seconds (60), two at a time; --merge
// keeps of the found inputs those that the corpus lacks. Ends with 1 when there are findings.

const fs = require('fs');
const path = require('path');
const { start } = require('../test/helpers/processes');
const { startSession } = require('../test/helpers/session');

const ROOT = path.join(__dirname, '..');
const FINDINGS = path.join(__dirname, 'findings');
// The longest input, and what a target needs beside its process.
const TARGETS = {
  pictures: { longest: 4096 },
  command_line: { longest: 4000 },
  properties: { longest: 512 },
  replies: { longest: 512, type: 'wayland' },
  signals: { longest: 512 },
  host_functions: { longest: 512 },
  arguments: { longest: 512 },
};

function readOptions(args) {
  const options = { seconds: 60, merge: false, targets: [] };
  for (let i = 0; i < args.length; ++i) {
    if (args[i] === '--seconds') options.seconds = Number(args[++i]);
    else if (args[i] === '--merge') options.merge = true;
    else if (TARGETS[args[i]]) options.targets.push(args[i]);
    else return null;
  }
  if (options.targets.length === 0) options.targets = Object.keys(TARGETS);
  return options.seconds >= 1 ? options : null;
}

const folderOf = (...names) => {
  const folder = path.join(...names);
  fs.mkdirSync(folder, { recursive: true });
  return folder;
};

async function fuzz(target, { seconds, merge }) {
  const { longest, type } = TARGETS[target];
  const session = await startSession({ screens: ['64x48x24'], wm: false });
  try {
    const kept = folderOf(__dirname, 'corpus', target);
    const found = folderOf(ROOT, '.cache', 'fuzz', 'corpus', target);
    const options = [`-max_len=${longest}`, `-artifact_prefix=${FINDINGS}/${target}-`, '-timeout=20',
      '-rss_limit_mb=4096', '-detect_leaks=0', '-print_final_stats=1', '-verbosity=1'];
    const args = merge ? ['-merge=1', kept, found] : [`-max_total_time=${seconds}`, found, kept];
    const child = start(process.execPath, [path.join(__dirname, 'child.js'), target, ...options, ...args], {
      cwd: ROOT,
      env: {
        ...session.env,
        ...(type ? { XDG_SESSION_TYPE: type } : {}),
        LD_PRELOAD: process.env.KIV_FUZZ_SANITIZER,
        ASAN_OPTIONS: 'detect_leaks=0:handle_segv=1:allocator_may_return_null=1:detect_odr_violation=0',
        UBSAN_OPTIONS: 'print_stacktrace=1',
      },
    });
    const timer = setTimeout(() => child.stop(), seconds * 1000 + 120000);
    const { code, signal } = await child.exited;
    clearTimeout(timer);
    const number = (pattern) => Number((pattern.exec(child.output) || [0, 0])[1]);
    const coverage = [...child.output.matchAll(/cov: (\d+)/g)].pop();
    return {
      target,
      code: signal || code,
      executions: number(/stat::number_of_executed_units:\s*(\d+)/),
      coverage: coverage ? Number(coverage[1]) : 0,
      seconds,
      output: child.output,
    };
  } finally {
    await session.stop();
  }
}

async function main() {
  const options = readOptions(process.argv.slice(2));
  if (!options) {
    console.error('usage: run.js [--seconds N] [--merge] [TARGET…]');
    process.exit(2);
  }
  folderOf(FINDINGS);
  const waiting = [...options.targets];
  const results = [];
  const worker = async () => {
    for (let target = waiting.shift(); target; target = waiting.shift()) {
      results.push(await fuzz(target, options));
      const { code, executions, coverage, output } = results[results.length - 1];
      console.log(`${target.padEnd(16)} ${String(executions).padStart(9)} executions  ${String(coverage).padStart(6)} edges  ${code === 0 ? 'nothing found' : `ended with ${code}`}`);
      if (code !== 0) console.log(output.slice(-6000));
    }
  };
  await Promise.all([worker(), worker()]);
  process.exitCode = results.some(({ code }) => code !== 0) ? 1 : 0;
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
