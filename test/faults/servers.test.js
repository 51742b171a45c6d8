'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { startBus } = require('../helpers/bus');
const { needKwin, startCompositor } = require('../helpers/compositors');
const { startXvfb } = require('../helpers/display');
const { HELD, inTurns, nothingLeft, standing, whatIsThere } = require('../helpers/faults');
const { inSession, look, withHost } = require('../helpers/suite');
const { startWindowManager } = require('../helpers/wm');

// Each is made in the moment of the fault, and what it gives when there is none.
const CALLS = {
  nothing: ['null', null],
  init: ['kiv.init()', null],
  teardown: ['kiv.teardown()', null],
  getInputInfo: ['kiv.getInputInfo().keyboardActivity', 0],
  setInterval: ['kiv.setInterval(() => {}, 50)', null],
  ScreenLockMonitor: ['typeof new kiv.ScreenLockMonitor()', 'object'],
  'getScreenSnap, desktop': ['kiv.getScreenSnap("desktop", true).width', 1280],
  'getScreenSnap, display': ['kiv.getScreenSnap("display").width', 1280],
  'getScreenSnapAsync, display': ['await new Promise((done) => kiv.getScreenSnapAsync("display", ({ width }) => done(width)))', 1280],
  'getScreenSnapAsync, selection': ['kiv.getScreenSnapAsync("selection", () => {})', null],
};
// What is under way when the fault happens.
const STATES = {
  'a timer': 'kiv.setInterval(() => {}, 20);',
  'a selection': 'await openSelection(client);',
};
const ROWS = [
  ...Object.entries(CALLS).map(([name, [call, usual]]) => ({ name, prepare: '', call, usual })),
  ...Object.entries(STATES).map(([name, prepare]) => ({ name, prepare, call: 'null', usual: null })),
];
const at = (row, then) => withHost(`${row.prepare} await fault(); report('calling'); const value = ${row.call}; ${then}`);

// Brings all rows to where they call, makes the fault with `break`, and resolves to the ended cases.
async function during({ env }, sources, { hold, wreck, timeout }) {
  const cases = [];
  await inTurns(sources, async (source) => {
    cases[sources.indexOf(source)] = await standing(source, { env, leaks: false, timeout });
  });
  if (hold) hold();
  for (const one of cases) one.go();
  // A loop that waits for the server already does not get as far as its call.
  await Promise.race([Promise.all(cases.map((one) => one.reported(2))), pause(1000)]);
  await wreck();
  return Promise.all(cases.map((one) => one.done));
}

const endings = (results) => results.map(({ code, signal }) => ({ code, signal }));
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

test('an X server that stands still for five seconds delays every call, and that is all', () => inSession({}, async (session) => {
  const before = await whatIsThere(session);
  const server = Number(session.serverPid);
  const results = await during(session, ROWS.map((row) => at(row, 'report(value);')), {
    hold: () => process.kill(server, 'SIGSTOP'),
    wreck: async () => {
      await pause(5000);
      process.kill(server, 'SIGCONT');
    },
  });
  assert.deepStrictEqual(results.map(({ json }, i) => [ROWS[i].name, json]), ROWS.map(({ name, usual }) => [name, usual]));
  assert.deepStrictEqual(endings(results), ROWS.map(() => ({ code: 0, signal: null })), results.map(({ stderr }) => stderr).join(''));
  await nothingLeft(session, before);
}));

test('GDK ends the process with its X server, in every call, and nothing stays', () => inSession({}, async (session) => {
  const before = { ...await whatIsThere(session), processes: 0 }; // the window manager goes, too
  const results = await during(session, ROWS.map((row) => at(row, 'setInterval(() => {}, 1000); await new Promise(() => {});')), {
    hold: () => process.kill(session.serverPid, 'SIGSTOP'),
    wreck: () => process.kill(session.serverPid, 'SIGKILL'),
  });
  assert.deepStrictEqual(endings(results), ROWS.map(() => ({ code: 1, signal: null })), results.map(({ stderr }) => stderr).join(''));
  // A case that throws would say so.
  assert.deepStrictEqual(results.map(({ stdout, stderr }) => stdout + stderr).join(''), '');
  await nothingLeft(session, { ...before, names: 2 });
}));

test('the agent alone loses its X server: every call goes on, and the server that comes after is used', () => inSession({}, async (session) => {
  const before = await whatIsThere(session);
  const rows = Object.entries(CALLS);
  const other = await startXvfb();
  const again = [];
  try {
    const results = await during(session, rows.map(([, [call]]) => `
      const own = process.env.DISPLAY;
      host.startLoop();
      kiv.setupLogger(() => {});
      kiv.init();
      // GTK makes a window of its own for the first of its windows, and keeps it.
      kiv.getScreenSnapAsync('selection', () => {});
      kiv.teardown();
      const before = held();
      process.env.DISPLAY = '${other.display}';
      kiv.init();
      await fault();
      report('calling');
      const value = ${call};
      await until(() => fs.existsSync('${session.folder}/again'));
      kiv.init();
      const keys = () => kiv.getInputInfo().keyboardActivity;
      const counted = keys();
      const client = X.open(process.env.DISPLAY);
      client.key(38, true);
      client.key(38, false);
      await until(() => keys() > counted, { what: 'a key that is counted' });
      client.close();
      process.env.DISPLAY = own;
      if (${/selection/.test(call)}) report(value);
      else report([value, kiv.getScreenSnap('desktop').width]);
      kiv.teardown();
      await released(before);`), {
      hold: () => process.kill(other.pid, 'SIGSTOP'),
      wreck: async () => {
        process.kill(other.pid, 'SIGKILL');
        await other.stop();
        again.push(await startXvfb({ extraArgs: [other.display] }));
        require('fs').writeFileSync(`${session.folder}/again`, '');
      },
    });
    const usual = rows.map(([name, [, value]]) => (/selection/.test(name) ? value : [value, 1280]));
    assert.deepStrictEqual(results.map(({ json, stderr }, i) => [rows[i][0], json, stderr]), rows.map(([name], i) => [name, usual[i], '']));
    await nothingLeft(session, before);
  } finally {
    for (const { stop } of [other, ...again]) await stop();
  }
}));

test('an X server out of connections: init goes without, and finds one later', () => inSession({ extraArgs: ['-maxclients', '64'] }, async ({ env }) => {
  assert.deepStrictEqual(await look(`${HELD}
    const { activeWindow } = require('./windows');
    host.startLoop();
    kiv.setupLogger(() => {});
    kiv.init();
    kiv.teardown();
    await activeWindow({ title: 'there' });
    const results = [];
    const look = () => { const { width, activeWindowTitle } = kiv.getScreenSnap('display', true); results.push([width, activeWindowTitle]); };
    const clients = [];
    try {
      for (;;) clients.push(X.open(process.env.DISPLAY));
    } catch (error) {
      results.push(error.message);
    }
    const before = held();
    for (let i = 0; i < 3; ++i) kiv.init();
    look();
    kiv.teardown();
    await released(before);
    for (const client of clients) client.close();
    await until(() => { kiv.init(); results.length = 2; look(); return results[2][1] === 'there'; });
    report(results);
    kiv.teardown();`, { env }), ['cannot open the display', [1280, 'Undefined'], [1280, 'there']]);
}));

// A lock signal from the daemon that answers now reaches the monitor.
const LISTEN = `
  let locks = 0;
  host.startLoop();
  kiv.setupLogger(() => {});
  const monitor = new kiv.ScreenLockMonitor();
  monitor.emit = () => { ++locks; };
  const hears = async () => {
    bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
    const known = locks;
    await until(() => {
      bus.emit('/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged', '(true,)');
      return locks > known;
    }, { what: 'a lock that is heard' });
  };
  const calls = async () => {
    const { width } = kiv.getScreenSnap('desktop');
    const late = await new Promise((done) => kiv.getScreenSnapAsync('display', (snap) => done(snap.width)));
    return [width, late, kiv.getInputInfo().keyboardActivity];
  };`;

test('a session bus that dies and comes back', () => inSession({}, async (session) => {
  const { address } = session.bus;
  const started = await standing(`${LISTEN}
    kiv.init();
    await hears();
    await fault();
    const lost = await calls();
    kiv.teardown();
    kiv.init();
    report([lost, await calls()]);
    await until(() => fs.existsSync('${session.folder}/again'));
    kiv.init();
    await hears();
    const before = held();
    for (let i = 0; i < 5; ++i) kiv.init();
    await released(before);
    kiv.teardown();
    report(await calls());`, { env: session.env });
  process.kill(session.bus.pid, 'SIGKILL');
  await session.bus.exited;
  started.go();
  assert.deepStrictEqual(await started.reported(2), [[1280, 1280, 0], [1280, 1280, 0]]);
  const next = await startBus({ address });
  try {
    require('fs').writeFileSync(`${session.folder}/again`, '');
    const { code, json, stderr } = await started.done;
    assert.deepStrictEqual([code, json], [0, [1280, 1280, 0]], stderr);
  } finally {
    await next.stop();
  }
}));

test('a session bus that never answers', () => inSession({}, async (session) => {
  const wayland = { XDG_SESSION_TYPE: 'wayland' };
  // [environment, before the bus stands still, afterwards, what the last report is]
  const rows = [
    [{}, '', 'kiv.init(); report(await calls()); kiv.teardown();', [1280, 1280, 0]],
    [{}, 'kiv.init();', 'report(await calls()); kiv.teardown();', [1280, 1280, 0]],
    [{}, 'kiv.init();', 'kiv.init(); kiv.teardown(); kiv.init(); report(await calls());', [1280, 1280, 0]],
    [wayland, 'kiv.init();', 'report(kiv.getInputInfo().last.input); kiv.teardown();', -1],
  ];
  const started = [];
  for (const [env, before, then] of rows) {
    started.push(await standing(`${LISTEN} ${before} await fault(); ${then} if (${JSON.stringify(then)}.endsWith('calls());')) kiv.teardown();`,
      { env: { ...session.env, ...env } }));
  }
  process.kill(session.bus.pid, 'SIGSTOP');
  try {
    for (const one of started) one.go();
    const results = await Promise.all(started.map((one) => one.done));
    assert.deepStrictEqual(results.map(({ code, json }) => [code, json]), rows.map(([, , , usual]) => [0, usual]),
      results.map(({ stderr }) => stderr).join(''));
  } finally {
    process.kill(session.bus.pid, 'SIGCONT');
  }
}));

test('KWin dies while it takes the picture', { skip: needKwin() }, async () => {
  const session = await startCompositor('kwin', { trusting: true });
  try {
    const started = await standing(`
      const log = [];
      kiv.setupLogger((level, text) => log.push(text));
      kiv.init();
      const before = held();
      const { width } = kiv.getScreenSnap('desktop');
      await fault();
      report('calling');
      const { width: lost, data } = kiv.getScreenSnap('desktop');
      const late = await new Promise((done) => kiv.getScreenSnapAsync('desktop', (snap) => done([snap.width, snap.errorCode])));
      report({ width, lost, data: data.length, late, log: log.filter((text) => /^DBUS/.test(text)) });
      kiv.teardown();
      await released(before);`, { env: session.env });
    process.kill(session.compositorPid, 'SIGSTOP');
    started.go();
    await started.reported(2);
    process.kill(session.compositorPid, 'SIGKILL');
    const { code, json: { log, ...json }, stderr } = await started.done;
    assert.deepStrictEqual([code, json], [0, { width: 1280, lost: 0, data: 0, late: [0, 0] }], stderr);
    assert.match(log[0], /^DBUS Screenshot: .*(NoReply|ServiceUnknown|disconnected)/);
  } finally {
    await session.stop();
  }
});

test('the window manager dies and is replaced while a selection is open', () => inSession({}, async (session) => {
  const started = await standing(withHost(`
    kiv.getScreenSnapAsync('selection', () => {});
    kiv.teardown();
    kiv.init();
    const before = held();
    const selection = await openSelection(client);
    await fault();
    await until(() => fs.existsSync('${session.folder}/again'));
    if (!selection.results[0]) act(client, 'm 300 300', 'p', 'm 400 380', 'm 420 400', 'r');
    const first = await settle(selection);
    const next = await openSelection(client);
    act(client, 'm 300 300', 'p', 'm 400 380', 'm 420 400', 'r');
    report([first, await settle(next)]);
    await released(before);`), { env: session.env });
  await session.wm.stop();
  started.go();
  const next = await startWindowManager(session.env);
  try {
    require('fs').writeFileSync(`${session.folder}/again`, '');
    const { code, json, stderr } = await started.done;
    assert.deepStrictEqual(code, 0, stderr);
    const [[first], second] = json;
    assert.ok([0, 102003].includes(first[0]), String(first));
    assert.deepStrictEqual(second, [[0, 120, 100, true]]);
  } finally {
    await next.stop();
  }
}));
