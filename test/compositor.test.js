'use strict';

// Stand-ins answer what a real compositor cannot be made to answer.

const assert = require('assert');
const fs = require('fs');
const { after, before, describe, test } = require('node:test');
const { runCase, startCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

const CANCELLED = 'org.gtk.GDBus.UnmappedGError.Quark._g_2dio_2derror_2dquark.Code19';
const FAILED = 'org.freedesktop.DBus.Error.Failed';

let session;
let env;
before(async () => {
  session = await startSession({ display: false });
  env = { ...session.env, XDG_SESSION_TYPE: 'wayland' };
});
after(() => session.stop());

const SETUP = fs.readFileSync(require.resolve('./helpers/stand-in.js'), 'utf8');
/** Arguments of runCase for a case that sees what helpers/stand-in.js defines. */
const options = (source, more) => [`${SETUP}\nawait (${source})(...args);`, { env, ...more }];
const run = async (source, more) => {
  const result = await runCase(...options(source, more));
  assert.ok(result.code === 0 && result.json !== undefined, `${result.code} ${result.signal}\n${result.stderr}`);
  return result.json;
};

describe('choice of the backend', () => {
  test('no known compositor: one probe, an error line for each capture', async () => {
    const json = await run(() => {
      probeFails('gnome');
      probeFails('kwin');
      const sizes = ['desktop', 'display', 'desktop'].map((type) => kiv.getScreenSnap(type).width);
      const probes = [probesOf('gnome'), probesOf('kwin')];
      serve('gnome');
      report({ sizes, probes, late: kiv.getScreenSnap('desktop').width, probed: probesOf('gnome'), log });
    });
    const [desktop, display] = ['error Snap desktop error', 'error Snap display error'];
    assert.deepStrictEqual(json, { sizes: [0, 0, 0], probes: [1, 1], late: 0, probed: 0,
      log: [desktop, display, desktop, desktop] });
  });

  test('both are probed once, and GNOME Shell wins', async () => {
    const json = await run(() => {
      serve('gnome', { copy: keep(png(64, 48)) });
      serve('kwin');
      const sizes = ['desktop', 'display'].map((type) => kiv.getScreenSnap(type).width);
      report({ sizes, probes: [probesOf('gnome'), probesOf('kwin')], asked: argumentsOf('gnome', 'Screenshot'),
        kwin: argumentsOf('kwin', 'screenshotFullscreen'), log });
    });
    assert.deepStrictEqual({ ...json, asked: json.asked.length },
      { sizes: [64, 64], probes: [1, 1], asked: 2, kwin: [], log: [] });
    for (const call of json.asked) {
      assert.ok(call.startsWith(`(false, true, '${env.TMPDIR}/`), call);
      assert.match(call, /\/brenik\.[A-Za-z0-9]{10}'\)$/);
    }
  });

  test('a bus that cannot be reached is tried again', async () => {
    const json = await run(() => {
      serve('gnome', { copy: keep(png(64, 48)) });
      const address = process.env.DBUS_SESSION_BUS_ADDRESS;
      process.env.DBUS_SESSION_BUS_ADDRESS = 'unix:path=/nonexistent';
      const lost = [kiv.getScreenSnap('desktop').width, kiv.getScreenSnap('display').width];
      const probes = probesOf('gnome');
      process.env.DBUS_SESSION_BUS_ADDRESS = address;
      report({ lost, probes, found: kiv.getScreenSnap('desktop').width, log });
    });
    const [cannot, error] = [json.log[0], 'error Snap desktop error'];
    assert.match(cannot, /^error DBUS Screenshot: ./);
    assert.deepStrictEqual(json, { lost: [0, 0], probes: 0, found: 64,
      log: [cannot, error, cannot, 'error Snap display error'] });
  });
});

test('temporary names follow TMPDIR, never repeat and are nobody\'s file', async () => {
  const json = await run(() => {
    serve('gnome');
    internals.createBackend();
    const own = process.env.TMPDIR;
    const names = new Set(Array.from({ length: 2000 }, () => internals.temporaryName()));
    const letters = new Set([...names].map((name) => name.slice(own.length + 8)).join(''));
    const like = (value) => {
      if (value === null) delete process.env.TMPDIR;
      else process.env.TMPDIR = value;
      return internals.temporaryName().slice(0, -10);
    };
    const files = fs.readdirSync(own);
    const prefixes = [like(`${own}/`), like(''), like('/no/such'), like(null)].map((name) => name.replace(own, 'OWN'));
    report({ names: names.size, letters: letters.size, files, prefixes });
  });
  assert.deepStrictEqual(json, { names: 2000, letters: 62, files: [],
    prefixes: ['OWN//brenik.', '/brenik.', '/no/such/brenik.', '/tmp/brenik.'] });
});

describe('replies and files', () => {
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
      fs.symlinkSync(inTmp('fifo'), inTmp('link'));
      const bodies = [...Object.keys(files), 'folder', 'fifo', 'link', 'absent'].map((name) => [name, `('${inTmp(name)}',)`])
        .concat([['nothing', '()'], ['number', '(1,)'], ['two', "('a', 'b')"], ['bytes', "(b'/etc/passwd',)"]]);
      const highest = () => Number(/VmHWM:\s+(\d+)/.exec(fs.readFileSync('/proc/self/status', 'utf8'))[1]);
      serve('kwin');
      kiv.getScreenSnap('desktop');
      const before = highest();
      const seen = bodies.map(([name, body]) => {
        log.length = 0;
        serve('kwin', { body });
        const snap = kiv.getScreenSnap('desktop');
        return [name, snap.width, snap.data.length > 0, log.slice()];
      });
      report({ seen, grown: highest() - before, left: fs.readdirSync(inTmp('')) });
    });
    const seen = Object.fromEntries(json.seen.map(([name, ...rest]) => [name, rest]));
    assert.deepStrictEqual(seen.whole, [640, true, []]);
    delete seen.whole;
    for (const [name, [width, bytes, log]] of Object.entries(seen)) {
      assert.deepStrictEqual([name, width, bytes, log.length], [name, 0, false, 1]);
      assert.match(log[0], /^error DBUS Screenshot: ./, name);
      assert.ok(!log[0].includes(env.TMPDIR), log[0]);
    }
    assert.match(seen.folder[2][0], /not a regular file/);
    for (const name of ['huge', 'bitmap']) assert.match(seen[name][2][0], /30000 x 30000/);
    assert.deepStrictEqual(['nothing', 'number', 'two', 'bytes'].map((name) => seen[name][2][0].replace(/.*type /, '')),
      ['(), wanted (s)', '(i), wanted (s)', '(ss), wanted (s)', '(ay), wanted (s)']);
    assert.ok(json.grown < 200000, `${json.grown} kB more at the peak`);
    // Unlinking deletes no folder.
    assert.deepStrictEqual(json.left, ['folder']);
    fs.rmdirSync(`${env.TMPDIR}/folder`);
  });

  test('GNOME Shell writes nothing, refuses, or cannot be told the path', async () => {
    const json = await run(() => {
      serve('gnome');
      const nothing = kiv.getScreenSnap('desktop').width;
      serve('gnome', { error: 'org.example.No', body: 'not today' });
      const refused = kiv.getScreenSnap('desktop').width;
      report({ nothing, refused, calls: argumentsOf('gnome', 'Screenshot').length, log });
    });
    assert.match(json.log.shift(), /^error DBUS Screenshot: .*No such file/);
    assert.deepStrictEqual(json, { nothing: 0, refused: 0, calls: 1,
      log: ['error DBUS Screenshot: GDBus.Error:org.example.No: not today'] });

    const nameless = await run(() => {
      serve('gnome');
      report({ width: kiv.getScreenSnap('desktop').width, calls: argumentsOf('gnome', 'Screenshot'), log });
    }, { node: 'sh', nodeArgs: ['-c', 'TMPDIR=$(printf "/tmp/\\377") exec "$0" "$@"', process.execPath] });
    assert.deepStrictEqual(nameless, { width: 0, calls: [],
      log: ['error DBUS Screenshot: no usable name for a temporary file'] });
  });

  test('a service that never answers costs the bus\'s default time-out, no more', async () => {
    const { took, ...json } = await run(() => {
      serve('kwin', { hang: true });
      const start = Date.now();
      const { width } = kiv.getScreenSnap('desktop');
      report({ width, log, took: Date.now() - start });
    }, { timeout: 60000 });
    assert.deepStrictEqual(json, { width: 0, log: ['error DBUS Screenshot: Timeout was reached'] });
    assert.ok(took < 30000, `${took} ms`);
  });

  test('two hundred captures leave no file, descriptor or connection', async () => {
    const json = await run(async () => {
      serve('gnome', { copy: keep(png(64, 48)) });
      const descriptors = () => fs.readdirSync('/proc/self/fd').length;
      kiv.getScreenSnap('desktop', true);
      const before = descriptors();
      const widths = new Set();
      for (let i = 0; i < 200; ++i) widths.add(kiv.getScreenSnap(i % 2 ? 'display' : 'desktop', true).width);
      // GDBus closes a connection from its own thread.
      await until(() => descriptors() <= before, { what: 'the descriptors to be closed' });
      report({ widths: [...widths], files: fs.readdirSync(inTmp('')), log });
    });
    assert.deepStrictEqual(json, { widths: [64], files: [], log: [] });
  });
});

describe('area selection', () => {
  // [SelectArea's answer, ScreenshotArea's answer, result, lines beyond the completion's].
  const AREA = '(5, 6, 70, 80)';
  const outcomes = {
    success: [{ body: AREA }, { body: "(true, '')", copy: true }, [0, 70, 80], []],
    unloadable: [{ body: AREA }, { body: "(true, '')" }, [0, 0, 0], [/No such file/]],
    'area refused': [{ body: AREA }, { error: FAILED, body: 'no area' }, [102003, 0, 0], [/no area$/]],
    cancelled: [{ error: CANCELLED, body: 'Operation was cancelled' }, {}, [102005, 0, 0], []],
    refused: [{ error: FAILED, body: 'no' }, {}, [102003, 0, 0], [/Failed: no$/]],
    'another type': [{ body: "('area',)" }, {}, [102003, 0, 0], [/unexpected reply of type \(s\), wanted \(iiii\)$/]],
    'service dies': [{ hang: true }, {}, [102003, 0, 0], [/disconnected/]],
  };

  test('every outcome completes once, and lets go of everything', async () => {
    const json = await run(async (cases) => {
      host.startLoop();
      const source = keep(png(70, 80));
      const seen = {};
      for (const [name, area, shot] of cases) {
        serve('gnome');
        answer('gnome', 'SelectArea', area);
        answer('gnome', 'ScreenshotArea', Object.assign({}, shot, shot.copy ? { copy: source } : {}));
        log.length = 0;
        const results = [];
        internals.selectArea((result) => results.push([Object.keys(result).join(), result.errorCode, result.width,
          result.height, result.data.length > 0, internals.guardIsFree(), internals.selectionBackendAlive()]));
        const pending = [results.length, internals.guardIsFree(), internals.selectionBackendAlive()];
        if (area.hang) {
          await until(() => argumentsOf('gnome', 'SelectArea').length > 0);
          bus.close();
        }
        await until(() => results.length > 0);
        await until(() => !internals.selectionBackendAlive());
        seen[name] = { pending, results, free: internals.guardIsFree(), log: log.slice(),
          asked: area.hang ? [] : argumentsOf('gnome', 'ScreenshotArea') };
        if (area.hang) bus.connect(process.env.DBUS_SESSION_BUS_ADDRESS);
      }
      report({ seen, files: fs.readdirSync(inTmp('')) });
    }, { args: [Object.entries(outcomes).map(([name, [area, shot]]) => [name, area, shot])] });
    const KEYS = 'width,height,activeWindowTitle,activeProcessName,filename,data,dataThumbnail,errorCode';
    for (const [name, [, , [code, width, height], lines]] of Object.entries(outcomes)) {
      const { pending, results, free, log } = json.seen[name];
      assert.deepStrictEqual([name, pending, results, free],
        [name, [0, false, true], [[KEYS, code, width, height, width > 0, false, true]], true]);
      assert.strictEqual(log.pop(), `debug OnScreenSnapCompleted:${code}:End`);
      assert.strictEqual(log.length, lines.length, log.join());
      lines.forEach((line, i) => assert.match(log[i], line));
    }
    assert.match(json.seen.success.asked[0], /^\(5, 6, 70, 80, true, '.*\/brenik\.\w{10}'\)$/);
    assert.deepStrictEqual(json.files, []);
  });

  test('whatever the function does, the guard is free afterwards', async () => {
    const json = await run(async () => {
      host.startLoop();
      const source = keep(png(70, 80));
      serve('gnome', { copy: source });
      answer('gnome', 'SelectArea', { body: '(1, 2, 70, 80)' });
      answer('gnome', 'ScreenshotArea', { body: '(true,)', copy: source });
      const thrown = [];
      process.on('uncaughtException', (error) => thrown.push(error.message));
      const calls = [];
      const deeds = {
        throws: () => { throw new Error('mine'); },
        snaps: () => calls.push(kiv.getScreenSnap('desktop').data.length > 0),
        'collects garbage': () => global.gc(),
        'tears down': () => { kiv.init(); kiv.teardown(); },
        'selects again': () => internals.selectArea(() => calls.push('again')),
      };
      const seen = [];
      for (const name of Object.keys(deeds)) {
        log.length = 0;
        let data = null;
        internals.selectArea((result) => {
          calls.push(name);
          data = result.data;
          deeds[name]();
        });
        await until(() => log.filter((line) => line.startsWith('debug')).length === (name === 'selects again' ? 2 : 1));
        global.gc();
        seen.push([name, internals.guardIsFree(), data.readUInt32BE(0) === 0x89504e47]);
      }
      log.length = 0;
      internals.selectArea(undefined);
      await until(() => log.length > 0);
      seen.push(['no function', internals.guardIsFree(), true]);
      report({ seen, calls, thrown, log });
    }, { nodeArgs: ['--expose-gc'] });
    assert.deepStrictEqual(json.calls, ['throws', 'snaps', true, 'collects garbage', 'tears down', 'selects again', 'again']);
    for (const [name, free, intact] of json.seen) assert.deepStrictEqual([name, free, intact], [name, true, true]);
    assert.deepStrictEqual([json.thrown, json.log], [['mine'], ['debug OnScreenSnapCompleted:0:End']]);
  });

  test('the bus dies while a selection is open, and the next one finds none', async () => {
    const own = await startSession({ display: false });
    try {
      const started = startCase(...options(async () => {
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
      }, { env: { ...env, ...own.env } }));
      await started.reported(1);
      await own.bus.stop();
      const { code, json, stderr } = await started.done;
      assert.strictEqual(code, 0, stderr);
      const failed = 'debug OnScreenSnapCompleted:102003:End';
      assert.match(json.log[0], /^error DBUS Screenshot: .*closed/);
      assert.deepStrictEqual({ ...json, log: json.log.slice(1) },
        { codes: [102003, 102003], free: true, alive: false, log: [failed, failed] });
    } finally {
      await own.stop();
    }
  });

  test('a process may end while a selection is open', async () => {
    const json = await run(async () => {
      host.startLoop();
      serve('gnome');
      answer('gnome', 'SelectArea', { hang: true });
      internals.selectArea(() => report('called'));
      await until(() => argumentsOf('gnome', 'SelectArea').length > 0);
      host.stopLoop();
      report(internals.selectionBackendAlive());
    });
    assert.strictEqual(json, true);
  });
});
