'use strict';

// A private desktop with two monitors and a few windows, and the person at it: xdotool and a screen
// saver's signals.

const { execFile } = require('child_process');
const fs = require('fs');
const { promisify } = require('util');
const { start, until } = require('../test/lib/processes');
const { startSession } = require('../test/lib/session');
const { paint } = require('./painting');
const { STYLE, WINDOWS, describe } = require('./windows');

const MONITORS = [
  { width: 1280, height: 1024 },
  { width: 1280, height: 1024, x: 1280 },
];
const ONE_SCREEN = ['2560x1024'];

const SIGNAL = ['--signal', 'org.gnome.ScreenSaver.ActiveChanged'];
const LOCK = ['--session', '--object-path', '/org/gnome/ScreenSaver', ...SIGNAL];
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/** Xvfb has one monitor only. Xorg without a graphics card is not to be had everywhere. */
async function startMonitors() {
  const options = { person: false };
  try {
    return { session: await startSession({ monitors: MONITORS, ...options }), monitors: 2 };
  } catch (error) {
    const [reason] = error.message.split('\n');
    return {
      session: await startSession({ screens: ONE_SCREEN, ...options }),
      monitors: 1,
      reason,
    };
  }
}

async function openDesktop() {
  const { session, monitors, reason } = await startMonitors();
  const { env, inside, stops } = session;
  const run = async (name, ...args) =>
    (await promisify(execFile)(name, args.map(String), { env, timeout: 120000 })).stdout;
  const hand = (...args) => run('xdotool', ...args);

  /** Resolves to the window's id once the window manager has it. */
  async function show(window, i, attempts = 4) {
    const file = inside(`window${i}.ui`);
    fs.writeFileSync(file, describe(window));
    const options = ['preview', `--css=${inside('style.css')}`, file];
    const tool = start('gtk-builder-tool', options, { env });
    stops.push(tool.stop);
    const find = async () => {
      const id = (await hand('search', '--all', '--onlyvisible', '--pid', tool.pid)).trim();
      return /state:/.test(await run('xprop', '-id', id, 'WM_STATE')) && id;
    };
    const id = await until(() => !tool.result && find().catch(() => ''), '', 15000).catch(() => '');
    if (id) return id;
    if (attempts === 1) throw new Error(`no window "${window.title}"\n${tool.output()}`);
    // openbox misses what is mapped in a certain moment of its start.
    await tool.stop();
    return show(window, i, attempts - 1);
  }

  try {
    const manager = start('openbox', [], { env });
    stops.push(manager.stop);
    paint(inside('wallpaper.png'), 2560, 1024, 1);
    paint(inside('photo.png'), 660, 440, 5);
    fs.writeFileSync(inside('style.css'), STYLE);
    const there = () => run('xprop', '-root', '_NET_SUPPORTING_WM_CHECK');
    await manager.ready(async () => /#/.test(await there()), 'a window manager');
    const ids = await Promise.all(WINDOWS.map((window, i) => show(window, i)));
    for (const [i, { place, kind }] of WINDOWS.entries()) {
      if (kind === 'desktop') continue;
      await hand('windowmove', ids[i], place[0], place[1], 'windowactivate', '--sync', ids[i]);
    }
  } catch (error) {
    await session.stop();
    throw error;
  }
  const lock = (active) => run('gdbus', 'emit', ...LOCK, active);

  return {
    env,
    monitors,
    reason,
    stop: session.stop,
    hand,
    /** Typing, clicks, a turn of the wheel, and a locked screen before the rest of the typing. */
    async work(times) {
      const type = () => hand('type', '--delay', 120, 'what people type at work '.repeat(times));
      const click = (button, count, delay) =>
        hand('click', '--repeat', count * times, '--delay', delay, button);
      await type();
      await hand('mousemove', 2300, 300); // the photo, which minds no click
      await click(1, 5, 200);
      await click(3, 2, 200);
      await click(5, 10, 50);
      await lock(true);
      await sleep(2500 * times);
      await lock(false);
      await type();
    },
  };
}

module.exports = { openDesktop };
