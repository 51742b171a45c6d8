'use strict';

const { spawn } = require('child_process');
const { once } = require('events');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '../..');
const NODE = process.env.KIV_NODE || process.execPath;
const BUILD = path.resolve(ROOT, 'build', process.env.KIV_BUILD || 'Release');
const CI = Boolean(process.env.CI || process.env.KIV_CI);
/** What every process gets: nothing of the user's session. */
const ENV = { PATH: process.env.PATH, LANG: 'C.UTF-8' };

/** Polls until `condition` gives something. The limit is that of a hang, not of a slow machine. */
async function until(condition, what = String(condition), limit = 60000) {
  for (const end = Date.now() + limit; ; ) {
    const value = await condition();
    if (value) return value;
    if (Date.now() > end) throw new Error(`waited in vain: ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 10));
  }
}

const running = new Set();
const folders = [];

/**
 * Starts a process that ends with this one. `stdout`, `stderr` and `text[fd]` collect its output;
 * `ended` resolves to { code, signal } once it has ended and its output is complete.
 */
function start(command, args = [], { env = ENV, cwd, stdio = ['pipe', 'pipe', 'pipe'] } = {}) {
  const child = spawn('setpriv', ['--pdeathsig', 'KILL', command, ...args], { env, cwd, stdio });
  const started = { child, pid: child.pid, text: {}, result: null };
  running.add(started);
  const read = child.stdio.map((stream, fd) => {
    started.text[fd] = '';
    stream?.on?.('error', () => {});
    if (fd === 0 || !stream?.setEncoding) return null;
    stream.setEncoding('utf8').on('data', (piece) => {
      started.text[fd] += piece;
    });
    return once(stream, 'close');
  });
  started.ended = new Promise((resolve) => {
    child.on('error', (error) => resolve({ code: 127, signal: error.message }));
    // "close" does not come once the channel between the two was closed from here.
    child.on('exit', (code, signal) => Promise.all(read).then(() => resolve({ code, signal })));
  }).then((result) => {
    running.delete(started);
    started.result = result;
    return result;
  });
  started.output = () => `${started.text[1]}${started.text[2]}`;
  started.stop = async (patience = 5000) => {
    child.kill('SIGTERM');
    const timer = setTimeout(() => child.kill('SIGKILL'), patience);
    await started.ended;
    clearTimeout(timer);
  };
  /** Waits for what the process brings about; fails at once when it ends. */
  started.ready = (condition, what) =>
    until(() => {
      if (!started.result) return condition();
      throw new Error(
        `${command} ended with ${JSON.stringify(started.result)}\n${started.output()}`,
      );
    }, what).catch(async (error) => {
      await started.stop();
      throw new Error(`${error.message}\n${started.output()}`);
    });
  return started;
}

/** A folder that goes with this process. */
function temporaryFolder() {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kiv-'));
  folders.push(folder);
  return folder;
}

/** For a test's `skip`: why it cannot run here, or false. On a build server that is a failure. */
function lacking(...tools) {
  const there = (tool) =>
    (tool.includes('/')
      ? [tool]
      : ENV.PATH.split(':').map((folder) => path.join(folder, tool))
    ).some(fs.existsSync);
  const missing = tools.filter((tool) => !there(tool));
  if (missing.length > 0 && CI) throw new Error(`not installed: ${missing}`);
  return missing.length > 0 && `not installed: ${missing}`;
}

process.on('exit', () => {
  for (const { child } of running) child.kill('SIGKILL');
  for (const folder of folders) fs.rmSync(folder, { recursive: true, force: true });
});

module.exports = { BUILD, CI, ENV, NODE, ROOT, lacking, start, temporaryFolder, until };
