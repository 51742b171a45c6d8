'use strict';

const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { after, before, test } = require('node:test');
const { startCase } = require('./helpers/case');
const { NODE, baseEnv, start, untilReady } = require('./helpers/processes');
const { sanitizerEnv } = require('./helpers/sanitizer');
const { startSession } = require('./helpers/session');
const { look } = require('./helpers/suite');
const { jpegInfo } = require('./helpers/images');

const ROOT = path.join(__dirname, '..');
let session;
before(async () => { session = await startSession({ screens: ['800x600x24'] }); });
after(() => session.stop());
const inside = (name) => path.join(session.folder, name);

// An example as a person starts it, but on the build under test. `leaks` as for a case.
function example(name, args, { env = {}, leaks = true, preload = [] } = {}) {
  const build = process.env.KIV_BUILD || 'Release';
  return start(NODE,
    ['-r', './test/helpers/use_build.js', ...preload, `examples/${name}`, ...args],
    { env: { ...baseEnv(), KIV_BUILD: build, ...sanitizerEnv({ leaks }), ...session.env, ...env }, cwd: ROOT });
}

// Signals reach an example from the moment its match rules are at the bus: they are repeated until
// the text that `seen` looks for says so.
const lock = (active, seen) => look(async (state, file, count) => {
  const { readFileSync } = require('fs');
  bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
  await until(() => {
    for (let i = 0; i < 2; ++i) bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', `(${state},)`);
    return !file || readFileSync(file, 'utf8').split(state ? '"lock"' : '"unlock"').length > count;
  }, { what: `the screen ${state ? 'locked' : 'unlocked'}` });
  report(true);
}, { env: session.env, args: [active, ...seen] });
const press = (keys, clicks) => look((letters, buttons) => {
  const client = X.open(process.env.DISPLAY);
  const both = (method, code) => { client[method](code, true); client[method](code, false); };
  for (let i = 0; i < letters; ++i) both('key', client.keycode('a'));
  for (let i = 0; i < buttons; ++i) both('button', 1);
  client.sync();
  client.close();
  report(true);
}, { env: session.env, args: [keys, clicks] });

test('activity log: every key and click once, changes of the lock once, all of it kept', async () => {
  const file = inside('activity.jsonl');
  const lines = () => fs.readFileSync(file, 'utf8').split('\n').slice(0, -1).map((line) => JSON.parse(line));
  const sum = (name) => lines().reduce((total, line) => total + line[name], 0);
  const events = () => lines().map(({ event }) => event).filter((event) => event !== 'tick');
  const runs = [[[], 'SIGTERM', [3, 2]], [['--title'], 'SIGINT', [4, 0]]];
  for (const [index, [args, signal, [keys, clicks]]] of runs.entries()) {
    const before = index === 0 ? [0, 0] : [sum('keys'), sum('clicks')];
    const log = example('activity-log.js', [file, '--every', '1', ...args]);
    await untilReady(log, () => fs.existsSync(file) && events().filter((event) => event === 'start').length > index, 'a start');
    await press(keys, clicks);
    for (const active of [true, false]) await lock(active, [file, index + 1]);
    await untilReady(log, () => sum('keys') >= before[0] + keys && sum('clicks') >= before[1] + clicks, 'the counts');
    log.child.kill(signal);
    // Until there has been a window, none is active.
    const said = () => log.output.replace(/^warn: Get Active Task info: c-error\n/gm, '');
    assert.deepStrictEqual([await log.exited, said()], [{ code: 0, signal: null }, '']);
    assert.deepStrictEqual([sum('keys'), sum('clicks')], [before[0] + keys, before[1] + clicks]);
  }
  assert.deepStrictEqual(events(), Array(2).fill(['start', 'lock', 'unlock', 'stop']).flat());
  const titled = lines().map((line) => 'title' in line);
  assert.deepStrictEqual(titled.lastIndexOf(false) + 1, titled.indexOf(true), 'titles where they were asked for');
  assert.ok(lines().every(({ time, idle }) => new Date(time).toJSON() === time && idle >= 0));
  assert.strictEqual(fs.statSync(file).mode & 0o777, 0o600);
});

test('snapshots: dated, limited in number, none while idle or locked', async () => {
  const folder = inside('pictures');
  const old = path.join(folder, '2001-02-03');
  fs.mkdirSync(old, { recursive: true });
  for (const name of ['04-05-06.789.jpg', '04-05-07.789.jpg.part']) fs.writeFileSync(path.join(old, name), '');
  fs.writeFileSync(path.join(folder, 'mine.jpg'), '');
  const pictures = () => [].concat(...fs.readdirSync(folder).filter((name) => /^2/.test(name))
    .map((day) => fs.readdirSync(path.join(folder, day)).map((name) => path.join(folder, day, name)))).sort();
  await press(1, 0);
  const taking = example('snapshot-every-minute.js', [folder, '--every', '1', '--idle', '3', '--keep', '2']);
  const said = (text) => taking.output.split(text).length - 1;
  const saying = (text, count) => untilReady(taking, () => said(text) >= count, `${text}, ${count} times`);
  // Somebody is there until that many pictures are.
  const takenWhilePressing = (count) => untilReady(taking, async () => {
    await press(1, 0);
    return said(': 800 x 600') >= count;
  }, `${count} pictures`);
  await takenWhilePressing(3);
  await saying('skipped: idle', 2);
  const kept = pictures();
  assert.strictEqual(kept.length, 2);
  for (const file of kept) {
    assert.match(path.relative(folder, file), /^20\d\d-\d\d-\d\d\/\d\d-\d\d-\d\d\.\d{3}\.jpg$/);
    const { width, height } = jpegInfo(fs.readFileSync(file));
    assert.deepStrictEqual([width, height, fs.statSync(file).mode & 0o777], [800, 600, 0o600]);
  }
  assert.deepStrictEqual([fs.existsSync(old), fs.existsSync(path.join(folder, 'mine.jpg'))], [false, true]);

  const saved = said(': 800 x 600');
  await lock(true, ['']);
  await press(1, 0);
  await saying('skipped: locked', 2);
  assert.deepStrictEqual([said(': 800 x 600'), pictures()], [saved, kept], 'nothing was taken');
  await lock(false, ['']);
  await takenWhilePressing(saved + 1);
  taking.child.kill('SIGTERM');
  assert.deepStrictEqual(await taking.exited, { code: 0, signal: null }, taking.output);
});

test('a button click, a dragged rectangle, the picture in a file and in the window', async () => {
  // What fontconfig has found out about fonts stays.
  const window = example('snapshot-every-minute.js', [session.folder, '--every', '1', '--idle', '9999'],
    { leaks: false, preload: ['-r', './examples/selection-button'] });
  const started = startCase(async (pid, folder) => {
    const { existsSync, readdirSync, readFileSync } = require('fs');
    const { ESCAPE, act, bgrx, crop, key } = require('./overlay');
    const client = X.open(process.env.DISPLAY);
    const root = client.rootWindow(0);
    const beneath = (id) => [].concat(...client.children(id).map((child) => [child, ...beneath(child)]));
    const own = (wanted) => {
      try {
        return beneath(root).find((id) => {
          const property = client.getProperty(id, '_NET_WM_PID');
          const { width, viewable } = client.geometry(id);
          return property && property.data.readUInt32LE(0) === pid && viewable && (width === 800) === wanted;
        });
      } catch (error) {
        return undefined; // a window died meanwhile
      }
    };
    const whole = () => client.getImage(root, 0, 0, 800, 600);
    const green = client.createWindow({ x: 500, y: 300, width: 200, height: 200, color: 0x20c040 });
    client.map(green);
    const button = await until(() => own(false), { what: 'the window' });
    client.moveResize(button, 20, 20, 400, 400);
    await until(() => client.geometry(button).height === 400, { what: 'the window in its place' });
    client.moveResize(green, 500, 300, 200, 200);
    const greens = (bytes) => {
      let count = 0;
      for (let i = 0; i < bytes.length; i += 4) count += bytes.readUInt32LE(i) % 0x1000000 === 0x20c040 ? 1 : 0;
      return count;
    };
    const shown = () => greens(client.getImage(button, 0, 0, 400, 400));
    const endOf = async (steps, what) => {
      const { x, y } = client.geometry(button);
      await until(() => !own(true) && greens(whole()) > 30000, { what: 'a desktop without an overlay' });
      // A second click would hit the overlay.
      for (let i = 0; i < 5 && !own(true); ++i) {
        act(client, `m ${x + 200} ${y + 370}`, 'p', 'r');
        await until(() => own(true), { timeout: 2000 }).catch(() => {});
      }
      await until(() => greens(whole()) < 1000, { what: 'a dimmed desktop' });
      report('open');
      await until(() => existsSync(`${folder}/skipped`), { what: 'a snapshot that was skipped' });
      steps();
      await until(what);
    };
    const saved = () => readdirSync(folder).filter((name) => /^rectangle-.*png$/.test(name));
    const before = whole();
    await endOf(() => act(client, 'm 560 350', 'p', 'm 640 400', 'm 660 420', 'r'), () => saved().length === 1 && shown() > 1000);
    const picture = bgrx(readFileSync(`${folder}/${saved()[0]}`));
    const same = picture.equals(crop(before, 800, 560, 350, 100, 70));
    await endOf(() => key(client, ESCAPE), () => shown() === 0);
    client.closeWindow(button);
    report({ same, length: picture.length, saved: saved().length });
    client.close();
  }, { env: session.env, args: [window.pid, session.folder] });
  await started.reported();
  await untilReady(window, () => /skipped: a selection is open/.test(window.output), 'a snapshot that is skipped');
  fs.writeFileSync(inside('skipped'), '');
  const { json, stderr } = await started.done;
  assert.deepStrictEqual(json, { same: true, length: 100 * 70 * 4, saved: 1 }, `${stderr}\n${window.output}`);
  assert.deepStrictEqual(await window.exited, { code: 0, signal: null }, window.output);
  const said = window.output.replace(/^(skipped|.*\.jpg): .*\n/gm, '');
  assert.match(said, /^100 × 70, saved as .*\/rectangle-\d+\.png\nCancelled\n$/);
});

test('what goes wrong is told', async () => {
  const blocked = inside('blocked');
  fs.writeFileSync(blocked, '');
  const nowhere = { DISPLAY: '' };
  // [example, arguments, env, status or null for one that goes on, what it says]
  const table = [
    ['activity-log.js', [], {}, 2, /^usage: /],
    ['activity-log.js', [blocked, '--every', '0'], {}, 2, /^usage: /],
    ['activity-log.js', [blocked], nowhere, 1, /^no display/],
    ['activity-log.js', [path.join(blocked, 'log')], {}, 1, /^ENOTDIR/],
    ['activity-log.js', [blocked, '--title'], { XDG_SESSION_TYPE: 'wayland' }, 1, /^titles need/],
    ['activity-log.js', ['/dev/full', '--every', '1'], {}, null, /^(\/dev\/full: ENOSPC.*\n){2}/],
    ['snapshot-every-minute.js', [blocked, '--keep', '1.5'], {}, 2, /^usage: /],
    ['snapshot-every-minute.js', [blocked], nowhere, 1, /^no display/],
    ['snapshot-every-minute.js', [blocked, '--every', '1', '--idle', '9999'], {}, null, /^(E[A-Z]+: .*mkdir.*\n){2}/],
    ['snapshot-every-minute.js', [blocked], { XDG_SESSION_TYPE: 'wayland' }, null, /^no picture: Snap desktop error\n/],
    ['selection-button', [], nowhere, 1, /^no display/],
  ];
  await Promise.all(table.map(async ([name, args, env, status, says]) => {
    const label = `${name} ${args.join(' ')}`;
    const running = example(name, args, { env, leaks: status === null });
    if (status === null) {
      await untilReady(running, () => says.test(running.output), label);
      running.child.kill('SIGTERM');
    }
    assert.deepStrictEqual(await running.exited, { code: status || 0, signal: null }, `${label}\n${running.output}`);
    assert.match(running.output, says, label);
  }));
});
