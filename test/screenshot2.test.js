'use strict';

const assert = require('node:assert');
const path = require('node:path');
const { test } = require('node:test');
const { PNG } = require('pngjs');
const { lacking, start, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ display: false, env: { XDG_SESSION_TYPE: 'wayland' } });
const skip = lacking('gjs');
const take = () => kiv.getScreenSnap('desktop').data;

/** Runs `work` with an application and a stand-in for KWin that gives these answers. */
const withAnswers = (answers, work) =>
  shared.withApp(async (app) => {
    const script = path.join(__dirname, 'lib/screenshot2.mjs');
    const kwin = start('gjs', ['-m', script, JSON.stringify(answers)], { env: shared.env });
    try {
      await kwin.ready(() => kwin.output().includes('ready'), 'the stand-in');
      await work(app, () => kwin.output().match(/Capture.*/g) || []);
    } finally {
      await kwin.stop();
    }
  });

// Without the line about the older service, which does not exist here.
const news = async (app) => (await app.log()).filter((line) => !line.includes('“/Screenshot”'));

const RAW = { type: 'raw', width: 2, height: 2, stride: 12, format: 4 };
const ROWS = [1, 2, 3, 0, 4, 5, 6, 0, 99, 99, 99, 99, 7, 8, 9, 0, 10, 11, 12, 0, 99, 99, 99, 99];
const but = (changes) => ({ ...RAW, ...changes });

test('the picture has the colours that KWin sends, in either byte order, without padding', {
  skip,
}, () => {
  const answers = [4, 5, 6, 16, 17, 18].map((format) => ({
    description: but({ format }),
    bytes: ROWS,
  }));
  return withAnswers(answers, async (app) => {
    const seen = [];
    for (const _answer of answers)
      seen.push(PNG.sync.read(await app.run(take)).data.toString('hex'));
    const [BLUE_FIRST, RED_FIRST] = [
      '030201ff060504ff090807ff0c0b0aff',
      '010203ff040506ff070809ff0a0b0cff',
    ];
    const three = (text) => [text, text, text];
    assert.deepStrictEqual(seen, [...three(BLUE_FIRST), ...three(RED_FIRST)]);
    assert.deepStrictEqual(await news(app), []);
  });
});

test('each invalid picture of KWin logs one line and leaks no descriptor', { skip }, () => {
  const CLAIMS = 'The picture claims';
  const table = [
    [{ description: but({ format: 7 }) }, 'The picture has an unknown format'],
    [{ description: but({ type: 'png' }) }, 'The picture has an unknown format'],
    [{ description: but({ stride: 7 }) }, CLAIMS],
    [{ description: but({ height: 0 }) }, CLAIMS],
    [{ description: but({ width: 1 << 24, height: 1 << 24, stride: 1 << 26 }) }, CLAIMS],
    [{ description: but({ stride: 8 + 4097 }) }, CLAIMS],
    [{ description: RAW, bytes: ROWS.slice(1) }, 'The picture ends early'],
    [{ description: RAW, bytes: ROWS.slice(1), open: true }, 'The picture does not arrive'],
    [{ hang: true }, 'Timeout was reached'],
    [{}, 'unexpected reply of type .s., wanted .a.sv..'],
    [{ error: 'org.kde.KWin.ScreenShot2.Error.NoAuthorized' }, 'GDBus.Error:.*NoAuthorized'],
  ];
  return withAnswers(
    table.map(([answer]) => answer),
    async (app) => {
      const descriptors = () => require('fs').readdirSync('/proc/self/fd').length;
      const before = await app.run(descriptors);
      for (const [, reason] of table) {
        assert.strictEqual((await app.run(take)).length, 0, reason);
        const lines = (await news(app)).join('\n');
        assert.match(lines, new RegExp(`^error DBUS Screenshot: ScreenShot2: ${reason}.*$`));
      }
      assert.strictEqual(await app.run(descriptors), before);
    },
  );
});

test('a missing ScreenShot2 is asked once, and none while the screen is locked', { skip }, () => {
  const UNKNOWN = { error: 'org.freedesktop.DBus.Error.UnknownMethod' };
  return withAnswers([UNKNOWN], async (app, calls) => {
    const tell = async (locked) => {
      const SAVER = ['/org/gnome/ScreenSaver', 'org.gnome.ScreenSaver', 'ActiveChanged'];
      shared.peer.emit(...SAVER, 'b', [locked]);
      await until(() => app.run(() => log.splice(0).length), 'the lock signal');
    };
    await tell(true);
    await app.run(take);
    assert.deepStrictEqual(await news(app), ['error DBUS Screenshot: the screen is locked']);
    assert.deepStrictEqual(calls(), []);
    await tell(false);
    await app.run(take);
    await app.run(take);
    const OPTIONS = '{"native-resolution":true,"hide-caller-windows":false}';
    assert.deepStrictEqual(calls(), [`CaptureWorkspace ${OPTIONS}`]);
    assert.deepStrictEqual(await news(app), []);
  });
});
