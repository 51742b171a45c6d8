'use strict';

const { spawn, spawnSync } = require('child_process');
const { once } = require('events');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { setTimeout: sleep } = require('timers/promises');

const ROOT = path.join(__dirname, '../..');
const NODE = process.env.KIV_NODE || process.execPath;
const BUILD = path.resolve(ROOT, 'build', process.env.KIV_BUILD || 'Release');
const CI = Boolean(process.env.CI || process.env.KIV_CI);
/** The environment of every process, with nothing of the user's session. */
const ENV = { PATH: process.env.PATH, LANG: 'C.UTF-8' };

// For hangs, not for slow machines.
const PATIENCE = Number(process.env.KIV_PATIENCE || 60000);

/** Polls until `condition` returns something. */
async function until(condition, what = String(condition), limit = PATIENCE) {
  for (const end = Date.now() + limit; Date.now() < end; await sleep(10)) {
    const value = await condition();
    if (value) return value;
  }
  throw new Error(`timed out waiting for ${what}`);
}

/**
 * Starts a process that is killed when this one exits. `text[fd]` collects its output; `ended`
 * resolves to { code, signal } once the output has been read.
 */
function start(command, args = [], { env = ENV, cwd, stdio = 'pipe' } = {}) {
  const child = spawn('setpriv', ['--pdeathsig', 'KILL', command, ...args], { env, cwd, stdio });
  const started = { child, pid: child.pid, text: { 1: '', 2: '', 3: '' }, result: null };
  const read = child.stdio.slice(1).map((stream, i) => {
    stream?.setEncoding('utf8').on('data', (piece) => (started.text[i + 1] += piece));
    return stream && once(stream, 'close');
  });
  // "close" does not come when the channel between the two was closed from here.
  started.ended = once(child, 'exit').then(async ([code, signal]) => {
    // Other processes may hold the pipes, too.
    await Promise.race([Promise.all(read), sleep(5000, null, { ref: false })]);
    started.result = { code, signal };
    return started.result;
  });
  started.output = () => started.text[1] + started.text[2];
  /** Waits for the process to exit. Kills it if that takes too long. */
  started.finished = async (patience = PATIENCE) => {
    const timer = setTimeout(() => child.kill('SIGKILL'), patience);
    const result = await started.ended;
    clearTimeout(timer);
    return result;
  };
  started.stop = () => {
    child.kill('SIGTERM');
    return started.finished(5000);
  };
  /** Waits for a condition that the process causes. Fails at once when the process exits. */
  started.ready = (condition, what) =>
    until(() => {
      if (!started.result) return condition();
      throw new Error(`${command} exited with ${JSON.stringify(started.result)}`);
    }, what).catch(async ({ message }) => {
      await started.stop();
      throw new Error(`${message}\n${started.output()}`);
    });
  return started;
}

const folders = [];
for (const name of ['SIGINT', 'SIGTERM']) process.once(name, () => process.exit(1));
process.on('exit', () => {
  for (const folder of folders) fs.rmSync(folder, { recursive: true, force: true });
});
function temporaryFolder() {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kiv-'));
  folders.push(folder);
  return folder;
}

/** For a test's `skip`: why it cannot run here, or false. Throws on a build server. */
function lacking(...tools) {
  const missing = tools.filter((tool) => spawnSync('which', [tool]).status !== 0);
  if (missing.length > 0 && CI) throw new Error(`not installed: ${missing}`);
  return missing.length > 0 && `not installed: ${missing}`;
}

module.exports = { BUILD, ENV, NODE, PATIENCE, ROOT, lacking, start, temporaryFolder, until };
