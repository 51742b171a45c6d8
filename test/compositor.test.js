'use strict';

// Stand-ins answer what a real compositor cannot be made to answer.

const assert = require('assert');
const { describe, test } = require('node:test');
const { startCase } = require('./helpers/case');
const { NODE } = require('./helpers/processes');
const { inSession, share, withStandIn } = require('./helpers/suite');
const { startSession } = require('./helpers/session');

/* global answer, argumentsOf, bitmap, inTmp, keep, log, png, probeFails, probesOf, serve */
async function startWayland(options) {
  const session = await startSession({ display: false, ...options });
  session.env.XDG_SESSION_TYPE = 'wayland';
  return session;
}
const shared = share(null, startWayland);
const run = (...args) => shared.standIn(...args);
const [DESKTOP, DISPLAY] = ['desktop', 'display'].map((type) => `error Snap ${type} error`);

describe('choice of the backend', () => {
  test('no known compositor: one probe, an error line for each capture', async () => {
    assert.deepStrictEqual(await run(() => {
      probeFails('gnome');
      probeFails('kwin');
      const sizes = ['desktop', 'display'].map((type) => kiv.getScreenSnap(type).width);
      const probes = [probesOf('gnome'), probesOf('kwin')];
      serve('gnome');
      report({ sizes, probes, late: [kiv.getScreenSnap('desktop').width, probesOf('gnome')], log });
    }), { sizes: [0, 0], probes: [1, 1], late: [0, 0], log: [DESKTOP, DISPLAY, DESKTOP] });
  });

  test('both are probed once, GNOME Shell wins, and nothing is left after two hundred captures', async () => {
    const { asked, ...json } = await run(async () => {
      serve('gnome', { copy: keep(png(64, 48)) });
      serve('kwin');
      const descriptors = () => fs.readdirSync('/proc/self/fd').length;
      kiv.getScreenSnap('desktop', true);
      const before = descriptors();
      const widths = new Set();
      for (let i = 0; i < 200; ++i) widths.add(kiv.getScreenSnap(i % 2 ? 'display' : 'desktop', true).width);
      // GDBus closes a connection from its own thread.
      await until(() => descriptors() <= before, { what: 'the descriptors to be closed' });
      report({ widths: [...widths], probes: [probesOf('gnome'), probesOf('kwin')], files: fs.readdirSync(inTmp('')),
        asked: argumentsOf('gnome', 'Screenshot'), kwin: argumentsOf('kwin', 'screenshotFullscreen'), log });
    });
    assert.deepStrictEqual(json, { widths: [64], probes: [1, 1], files: [], kwin: [], log: [] });
    const wanted = `(false, true, '${shared.session.env.TMPDIR}/brenik.`;
    assert.ok(asked.every((call) => call.startsWith(wanted) && /\.[A-Za-z0-9]{10}'\)$/.test(call)), asked[0]);
    assert.strictEqual(new Set(asked).size, 201);
  });

  test('a bus that cannot be reached is tried again', async () => {
    const { log: [cannot, ...lines], ...json } = await run(() => {
      serve('gnome', { copy: keep(png(64, 48)) });
      const address = process.env.DBUS_SESSION_BUS_ADDRESS;
      process.env.DBUS_SESSION_BUS_ADDRESS = 'unix:path=/nonexistent';
      const lost = kiv.getScreenSnap('desktop').width;
      const probes = probesOf('gnome');
      process.env.DBUS_SESSION_BUS_ADDRESS = address;
      report({ lost, probes, found: kiv.getScreenSnap('desktop').width, log });
    });
    assert.match(cannot, /^error DBUS Screenshot: ./);
    assert.deepStrictEqual({ ...json, lines }, { lost: 0, probes: 0, found: 64, lines: [DESKTOP] });
  });
});

test('whatever KWin says or wrote: a line, no picture, its file gone', async () => {
  const json = await run(() => {
    const { execFileSync } = require('child_process');
    const whole = png(640, 480);
    const files = {
      text: Buffer.from('not a picture'), empty: Buffer.alloc(0), cut: whole.slice(0, whole.length / 2),
      huge: png(30000, 30000, 1000), broad: png(1 << 30, 1, 1000), bitmap: bitmap(30000, 30000), whole,
    };
    for (const name of Object.keys(files)) fs.writeFileSync(inTmp(name), files[name]);
    fs.mkdirSync(inTmp('folder'));
    execFileSync('mkfifo', [inTmp('fifo')]);
    const bodies = [...Object.keys(files), 'folder', 'fifo', 'absent'].map((name) => [name, `('${inTmp(name)}',)`])
      .concat([['nothing', '()'], ['number', '(1,)'], ['two', "('a', 'b')"], ['bytes', "(b'/etc/passwd',)"]]);
    const highest = () => Number(/VmHWM:\s+(\d+)/.exec(fs.readFileSync('/proc/self/status', 'utf8'))[1]);
    serve('kwin');
    kiv.getScreenSnap('desktop');
    const before = highest();
    const seen = {};
    for (const [name, body] of bodies) {
      log.length = 0;
      serve('kwin', { body });
      const snap = kiv.getScreenSnap('desktop');
      seen[name] = [snap.width, snap.data.length > 0, log.join('\n')];
    }
    report({ seen, grown: highest() - before, left: fs.readdirSync(inTmp('')) });
  });
  const { whole, ...seen } = json.seen;
  assert.deepStrictEqual(whole, [640, true, '']);
  const type = (text) => new RegExp(`unexpected reply of type \\${text.replace(')', '\\)')}, wanted \\(s\\)$`);
  const reasons = { folder: /not a regular file/, fifo: /not a regular file/, huge: /30000 x 30000/,
    bitmap: /30000 x 30000/, nothing: type('()'), number: type('(i)'), two: type('(ss)'), bytes: type('(ay)') };
  for (const [name, [width, bytes, line]] of Object.entries(seen)) {
    assert.deepStrictEqual([width, bytes], [0, false], name);
    assert.match(line, /^error DBUS Screenshot: .+$/, name);
    assert.match(line, reasons[name] || /./, name);
    assert.ok(!line.includes(shared.session.env.TMPDIR), line);
  }
  assert.ok(json.grown < 200000, `${json.grown} kB more at the peak`);
  // Unlinking deletes no folder.
  assert.deepStrictEqual(json.left, ['folder']);
});

test('GNOME Shell writes nothing, refuses, or cannot be told the path; KWin never answers', async () => {
  const json = await run(() => {
    serve('gnome');
    const seen = [kiv.getScreenSnap('desktop').width];
    serve('gnome', { error: 'org.example.No', body: 'not today' });
    seen.push(kiv.getScreenSnap('desktop').width, argumentsOf('gnome', 'Screenshot').length);
    report({ seen, log });
  });
  assert.match(json.log.shift(), /^error DBUS Screenshot: .*No such file/);
  assert.deepStrictEqual(json, { seen: [0, 0, 1], log: ['error DBUS Screenshot: GDBus.Error:org.example.No: not today'] });

  assert.deepStrictEqual(await run(() => {
    serve('gnome');
    report([kiv.getScreenSnap('desktop').width, argumentsOf('gnome', 'Screenshot'), log]);
  }, { node: 'sh', nodeArgs: ['-c', 'TMPDIR=$(printf "/tmp/\\377") exec "$0" "$@"', NODE] }),
  [0, [], ['error DBUS Screenshot: no usable name for a temporary file']]);

  const [width, lines, time] = await run(() => {
    serve('kwin', { hang: true });
    const start = Date.now();
    report([kiv.getScreenSnap('desktop').width, log, Date.now() - start]);
  });
  assert.deepStrictEqual([width, lines], [0, ['error DBUS Screenshot: Timeout was reached']]);
  assert.ok(time < 30000, `${time} ms`);
});

describe('area selection', () => {
  const FAILED = 'org.freedesktop.DBus.Error.Failed';
  const AREA = '(5, 6, 70, 80)';
  // SelectArea's answer, ScreenshotArea's answer, result, line beyond the completion's.
  const OUTCOMES = {
    success: [{ body: AREA }, { body: "(true, '')", copy: true }, [0, 70, 80], null],
    unloadable: [{ body: AREA }, { body: "(true, '')" }, [0, 0, 0], /No such file/],
    'area refused': [{ body: AREA }, { error: FAILED, body: 'no area' }, [102003, 0, 0], /no area$/],
    cancelled: [{ error: 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code19', body: 'Operation was cancelled' },
      {}, [102005, 0, 0], null],
    refused: [{ error: FAILED, body: 'no' }, {}, [102003, 0, 0], /Failed: no$/],
    'another type': [{ body: "('area',)" }, {}, [102003, 0, 0], /unexpected reply of type \(s\), wanted \(iiii\)$/],
  };

  test('every outcome completes once, and lets go of everything', async () => {
    const { seen, asked, files } = await run(async (cases) => {
      host.startLoop();
      const source = keep(png(70, 80));
      const all = {};
      serve('gnome');
      for (const name of Object.keys(cases)) {
        const [area, shot] = cases[name];
        answer('gnome', 'SelectArea', area);
        answer('gnome', 'ScreenshotArea', Object.assign({}, shot, shot.copy ? { copy: source } : {}));
        log.length = 0;
        const results = [];
        const state = () => [internals.guardIsFree(), internals.selectionBackendAlive()];
        internals.selectArea(({ errorCode, width, height, data }) =>
          results.push([errorCode, width, height, data.length > 0, ...state()]));
        const pending = [results.length, ...state()];
        await until(() => results.length > 0 && !internals.selectionBackendAlive());
        all[name] = { pending, results, free: internals.guardIsFree(), log: log.slice() };
        if (name === 'success') all.asked = argumentsOf('gnome', 'ScreenshotArea');
      }
      report({ seen: all, asked: all.asked, files: fs.readdirSync(inTmp('')).filter((name) => name !== 'folder') });
    }, { args: [OUTCOMES] });
    for (const [name, [, , [code, width, height], line]] of Object.entries(OUTCOMES)) {
      const { pending, results, free, log: lines } = seen[name];
      assert.deepStrictEqual({ pending, results, free },
        { pending: [0, false, true], results: [[code, width, height, width > 0, false, true]], free: true }, name);
      assert.strictEqual(lines.pop(), `debug OnScreenSnapCompleted:${code}:End`);
      assert.match(lines.join(), line || /^$/, name);
    }
    assert.match(asked[0], /^\(5, 6, 70, 80, true, '.*\/brenik\.\w{10}'\)$/);
    assert.deepStrictEqual(files, []);
  });

  test('the bus dies with an open selection, and the next one finds none', () => inSession(null, async ({ env, bus }) => {
    const started = startCase(withStandIn(async () => {
      host.startLoop();
      serve('gnome');
      answer('gnome', 'SelectArea', { hang: true });
      const codes = [];
      internals.selectArea(({ errorCode }) => codes.push(errorCode));
      await until(() => argumentsOf('gnome', 'SelectArea').length > 0);
      report('open');
      await until(() => codes.length === 1);
      internals.selectArea(({ errorCode }) => codes.push(errorCode));
      report({ codes, free: internals.guardIsFree(), alive: internals.selectionBackendAlive(), log });
    }), { env });
    await started.reported();
    await bus.stop();
    const { code, json, stderr } = await started.done;
    assert.strictEqual(code, 0, stderr);
    const failed = 'debug OnScreenSnapCompleted:102003:End';
    assert.match(json.log.shift(), /^error DBUS Screenshot: .*closed/);
    assert.deepStrictEqual(json, { codes: [102003, 102003], free: true, alive: false, log: [failed, failed] });
  }, startWayland));

  test('a process may end while a selection is open', async () => {
    assert.strictEqual(await run(async () => {
      host.startLoop();
      serve('gnome');
      answer('gnome', 'SelectArea', { hang: true });
      internals.selectArea(() => report('called'));
      await until(() => argumentsOf('gnome', 'SelectArea').length > 0);
      host.stopLoop();
      report(internals.selectionBackendAlive());
    }), true);
  });
});
