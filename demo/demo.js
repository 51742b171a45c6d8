'use strict';

// Takes snapshots of a real desktop and writes demo-output/index.html. Uses the display of the
// person who runs it, else a private one with a window manager and a few windows.

const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const { runCase } = require('../test/helpers/case');
const { startSession } = require('../test/helpers/session');
const { writePage } = require('./page');

const output = path.join(__dirname, '..', 'demo-output');
const say = (text) => console.log(`-- ${text}`);

function usable(display) {
  try {
    execFileSync('xdpyinfo', ['-display', display], { stdio: 'ignore', timeout: 5000 });
    return true;
  } catch (error) {
    return false;
  }
}

async function openDesktop() {
  if (process.env.DISPLAY && usable(process.env.DISPLAY)) {
    say(`using your display ${process.env.DISPLAY}`);
    return { env: { ...process.env, KIV_BUILD: 'Release' }, own: false, stop() {} };
  }
  say('no display at hand: starting a private one with a window manager and a message bus');
  const session = await startSession({ screens: ['1920x1080x24'] });
  return { env: session.env, own: true, stop: session.stop };
}

(async () => {
  fs.rmSync(output, { recursive: true, force: true });
  fs.mkdirSync(output, { recursive: true });
  const desktop = await openDesktop();
  try {
    say('taking snapshots');
    const { json, stderr, code } = await runCase('demo/snapshots.js', {
      env: { ...desktop.env, KIV_DEMO_WINDOWS: desktop.own ? '1' : '' },
      args: [output],
    });
    if (code !== 0) throw new Error(stderr);
    for (const snap of json.snapshots) {
      say(`${snap.call}: ${snap.width} x ${snap.height}, ${snap.file}, "${snap.title}"`);
    }
    say(`done; open ${writePage(output, json)}`);
  } finally {
    await desktop.stop();
  }
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
