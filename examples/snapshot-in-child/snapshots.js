'use strict';

// Snapshots that never hold this process's event loop: a child takes them and writes the files.
//   const snapshots = openSnapshots('/some/folder');
//   const { ScreenFullPath, width, height } = await snapshots.take('desktop', true);
//   snapshots.close();
// Files, not buffers: the channel between the two speaks JSON, and a picture of 3 MB in it would
// stall this process for a third of a second.

const { fork } = require('child_process');
const path = require('path');

// Milliseconds; a compositor may take 25 seconds to answer.
const PATIENCE = 60000;

function startChild(folder) {
  const waiting = new Map();
  const child = fork(path.join(__dirname, 'child.js'), [folder]);
  const started = { running: true, stop: () => child.disconnect() };
  let last = 0;

  function settle({ id, snap, error }) {
    const { resolve, reject, timer } = waiting.get(id);
    waiting.delete(id);
    clearTimeout(timer);
    if (error) reject(new Error(error));
    else resolve(snap);
  }
  function end(error) {
    started.running = false;
    for (const id of waiting.keys()) settle({ id, error });
  }
  child.on('message', settle);
  child.on('error', ({ message }) => end(message));
  child.on('exit', (code, signal) => end(`the snapshot process ended with ${signal || code}`));

  started.request = (type, jpeg) =>
    new Promise((resolve, reject) => {
      const id = ++last;
      const timer = setTimeout(() => child.kill('SIGKILL'), PATIENCE);
      waiting.set(id, { resolve, reject, timer });
      child.send({ id, type, jpeg }, () => {}); // a failure is followed by the exit
    });
  return started;
}

/**
 * Starts the child, which needs a moment and memory of its own: open it once, early. It keeps this
 * process alive until `close()`, and ends with it.
 */
function openSnapshots(folder) {
  let child = startChild(folder);
  return {
    /**
     * Resolves to a snapshot in files, as `getScreenSnap(type, jpeg, folder)` returns it. Rejects
     * when none could be taken or the child ended; the next request starts another child, so that
     * one that always fails is not started over and over.
     */
    take(type, jpeg) {
      if (!child.running) child = startChild(folder);
      return child.request(type, jpeg);
    },
    /** Open requests reject; a later one would start another child. */
    close() {
      if (child.running) child.stop();
    },
  };
}

module.exports = { openSnapshots };
