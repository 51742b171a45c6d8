'use strict';

// A private desktop with a few windows, and the person at it: xdotool and a screen saver's signals.

const { execFile } = require('child_process');
const { promisify } = require('util');
const { start, until } = require('../test/lib/processes');
const { startSession } = require('../test/lib/session');

const WINDOWS = [
  {
    title: 'Quarterly figures.ods — Calc',
    place: '900x560+120+90',
    colors: ['#f4f1ea', '#2a6f4e'],
  },
  { title: 'Inbox (3)', place: '620x640+1150+200', colors: ['#ffffff', '#30589c'] },
  { title: 'notes.txt — Editor', place: '820x520+480+430', colors: ['#20242c', '#d9a441'] },
];
const line = (i) => 'work '.repeat(1 + ((i * 7) % 13));
const TEXT = Array.from({ length: 24 }, (_, i) => line(i)).join('\n');
const SIGNAL = ['--signal', 'org.gnome.ScreenSaver.ActiveChanged'];
const LOCK = ['--session', '--object-path', '/org/gnome/ScreenSaver', ...SIGNAL];
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

async function openDesktop() {
  const session = await startSession({ screens: ['1920x1080'], person: false });
  const { env, stops } = session;
  const run = async (name, ...args) =>
    (await promisify(execFile)(name, args.map(String), { env, timeout: 120000 })).stdout;
  const hand = (...args) => run('xdotool', ...args);
  const show = async (args, name, attempts = 5) => {
    const window = start('xmessage', args, { env });
    const find = () => hand('search', '--onlyvisible', '--classname', name).catch(() => '');
    const id = await until(find, 'a window', 10000).catch(() => '');
    if (id || attempts === 1) return { id: id.trim(), window };
    // openbox misses what is mapped in a certain moment of its start.
    await window.stop();
    return show(args, name, attempts - 1);
  };
  const open = async ({ title, place, colors: [background, foreground] }, i) => {
    const name = `window${i}`;
    const look = ['-geometry', place, '-bg', background, '-fg', foreground, '-buttons', ''];
    const { id, window } = await show(['-name', name, ...look, TEXT], name);
    stops.push(window.stop);
    await run('xprop', '-id', id, '-f', '_NET_WM_NAME', '8u', '-set', '_NET_WM_NAME', title);
    await run('xprop', '-id', id, '-f', '_NET_WM_PID', '32c', '-set', '_NET_WM_PID', window.pid);
    await hand('windowactivate', '--sync', id);
  };
  try {
    const manager = start('openbox', [], { env });
    stops.push(manager.stop);
    const there = () => run('xprop', '-root', '_NET_SUPPORTING_WM_CHECK');
    await manager.ready(async () => /#/.test(await there()), 'a window manager');
    for (const [i, window] of WINDOWS.entries()) await open(window, i);
  } catch (error) {
    await session.stop();
    throw error;
  }
  const lock = (active) => run('gdbus', 'emit', ...LOCK, active);

  return {
    env,
    stop: session.stop,
    hand,
    /** Typing, clicks, a turn of the wheel, and a locked screen before the rest of the typing. */
    async work(times) {
      const type = () => hand('type', '--delay', 180, 'what people type at work '.repeat(times));
      const click = (button, count, delay) =>
        hand('click', '--repeat', count * times, '--delay', delay, button);
      await type();
      await hand('mousemove', 700, 1000);
      await click(1, 5, 400);
      await click(3, 2, 400);
      await click(5, 10, 50);
      await lock(true);
      await sleep(4000 * times);
      await lock(false);
      await type();
    },
  };
}

module.exports = { openDesktop };
