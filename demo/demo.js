'use strict';

// Takes snapshots of a real desktop, follows its input for a while and writes
// demo-output/index.html. Uses the display of the person who runs it, else a private one with a
// window manager, a few windows and input of its own. --minute makes the live part longer.

const fs = require('fs');
const path = require('path');
const { execFileSync } = require('child_process');
const { runCase, startCase } = require('../test/helpers/case');
const { startSession } = require('../test/helpers/session');
const { writePage } = require('./page');

const output = path.join(__dirname, '..', 'demo-output');
const seconds = process.argv.includes('--minute') ? 60 : 20;
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
  // On other sessions an X display shows X11 programs only, and the compositor would have to agree.
  const x11 = (process.env.XDG_SESSION_TYPE || 'x11') === 'x11';
  if (x11 && process.env.DISPLAY && usable(process.env.DISPLAY)) {
    say(`using your display ${process.env.DISPLAY}`);
    return { env: { ...process.env, KIV_BUILD: 'Release' }, own: false, stop() {} };
  }
  say('no X11 session at hand: starting a private one with a window manager and a message bus');
  const session = await startSession({ screens: ['1920x1080x24'] });
  return { env: session.env, own: true, stop: session.stop };
}

// Nothing is ever injected into the desktop of the person who watches.
async function follow(desktop, page) {
  say(
    desktop.own
      ? `${seconds} seconds of real input`
      : 'your own input for 10 seconds; nothing is injected',
  );
  const live = startCase('demo/live.js', {
    env: desktop.env,
    args: [desktop.own ? seconds : 10, desktop.own],
    timeout: (seconds + 30) * 1000,
  });
  let seen = 0;
  const show = (going) => {
    const moments = live.reports();
    if (going && moments.length === seen) return;
    for (const { second, keys, clicks, idle, ticks, event } of moments.slice(seen)) {
      say(`${second} s: ${keys} keys, ${clicks} clicks, idle ${idle} s, tick ${ticks} ${event}`);
    }
    seen = moments.length;
    writePage(output, { ...page, live: moments, going });
  };
  const timer = setInterval(show, 100, true);
  const { code, stderr } = await live.done.finally(() => clearInterval(timer));
  if (code !== 0) throw new Error(stderr);
  show(false);
}

(async () => {
  // What is there stays: another run may be writing it.
  fs.mkdirSync(output, { recursive: true });
  const desktop = await openDesktop();
  try {
    say('taking snapshots');
    const { json, stderr, code } = await runCase('demo/snapshots.js', {
      env: { ...desktop.env, KIV_DEMO_WINDOWS: desktop.own ? '1' : '' },
      args: [output],
    });
    if (code !== 0) throw new Error(stderr);
    if (json.snapshots.some(({ width }) => width === 0))
      throw new Error(`no picture: ${JSON.stringify(json.log)}`);
    for (const snap of json.snapshots) {
      say(`${snap.call}: ${snap.width} x ${snap.height}, ${snap.file}, "${snap.title}"`);
    }
    for (const { name, file } of json.selection)
      say(`getScreenSnapAsync("selection"), ${name}: ${file}`);
    say(`open ${writePage(output, json)}`);
    await follow(desktop, json);
    say('done');
  } finally {
    await desktop.stop();
  }
})().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
