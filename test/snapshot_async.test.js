'use strict';

const assert = require('assert');
const { after, before, test } = require('node:test');
const { runCase } = require('./helpers/case');
const { startSession } = require('./helpers/session');

let session;
before(async () => { session = await startSession({ screens: ['640x480x24'], wm: false, bus: false }); });
after(() => session.stop());
const run = (source) => runCase(source, { env: session.env });

test('desktop and display call back once, before the call returns', async () => {
  const { json, stderr } = await run(() => {
    const { decodePng } = require('./images');
    const log = [];
    host.startLoop();
    kiv.setupLogger((level, text) => log.push(`${level} ${text}`));
    kiv.init();
    const results = [];
    for (const type of ['desktop', 'display']) {
      let inner = 0;
      const returned = kiv.getScreenSnapAsync(type, function (result, ...more) {
        const { width, height } = decodePng(result.data);
        // A request from within is accepted: these types hold no guard.
        kiv.getScreenSnapAsync(type, () => { inner += 1; });
        results.push({ keys: Object.keys(result), size: [result.width, result.height], picture: [width, height],
          code: result.errorCode, filename: result.filename, more: more.length, global: this === globalThis });
      });
      results.push({ returned: returned === undefined, inner });
    }
    report({ results, log: log.filter((line) => !line.startsWith('warn')).slice(0, 6) });
    kiv.teardown();
  });
  const one = { keys: ['width', 'height', 'activeWindowTitle', 'activeProcessName', 'filename', 'data', 'dataThumbnail', 'errorCode'],
    size: [640, 480], picture: [640, 480], code: 0, filename: 'screen.png', more: 0, global: true };
  const back = { returned: true, inner: 1 };
  assert.deepStrictEqual(json, { results: [one, back, one, back], log: [
    'debug GetScreenSnapAsync', 'debug GetScreenSnapAsync', 'debug OnScreenSnapCompleted:0:End',
    'debug GetScreenSnapAsync:desktop:End', 'debug OnScreenSnapCompleted:0:End', 'debug GetScreenSnapAsync:desktop:End'] }, stderr);
});

test('arguments: unknown types, failing conversions, and no function to call', async () => {
  const { json, stderr } = await run(async () => {
    const { ESCAPE, findOverlay, key } = require('./overlay');
    const log = [];
    host.startLoop();
    kiv.setupLogger((level, text) => log.push(text));
    kiv.init();
    const client = X.open(process.env.DISPLAY);
    const attempt = (...args) => {
      log.length = 0;
      try {
        kiv.getScreenSnapAsync(...args);
        return [null, ...log];
      } catch (error) {
        return [`${error.name}: ${error.message}`, ...log];
      }
    };
    const never = () => report('called');
    const bad = { toString() { throw new RangeError('mine'); } };
    const outcomes = {
      unknown: [attempt('Selection', never), attempt(), attempt('desktop\0', never)],
      failing: [attempt(Symbol('type'), never), attempt(bad, never)],
      throwing: attempt('desktop', () => { throw new TypeError('from the callback'); }),
      functionless: [attempt('desktop'), attempt('display', {}), attempt('desktop', null)].map(([error, ...lines]) => [error, lines.length > 2]),
    };
    attempt('selection', 'no function');
    await until(() => findOverlay(client), { what: 'the overlay' });
    const busy = [attempt('desktop', never), attempt('unknown', never), attempt(Symbol('type'), never)];
    key(client, ESCAPE);
    await until(() => log.includes('OnScreenSnapCompleted:102005:End'), { what: 'the end of the selection' });
    report({ ...outcomes, busy, after: attempt('desktop', () => {})[0] });
    client.close();
    kiv.teardown();
  });
  assert.ok(json && json.unknown, stderr);
  const message = 'Error: Invalid snap type. Pass one of "desktop", "display" or "selection".';
  assert.deepStrictEqual(json.unknown, ['Selection', 'undefined', 'desktop\0'].map((type) =>
    [message, 'GetScreenSnapAsync', `GetScreenSnapAsync:${type}:End`]));
  assert.deepStrictEqual(json.failing, [['TypeError: Cannot convert a Symbol value to a string', 'GetScreenSnapAsync'],
    ['RangeError: mine', 'GetScreenSnapAsync']]);
  assert.strictEqual(json.throwing[0], 'TypeError: from the callback');
  assert.strictEqual(json.throwing.pop(), 'GetScreenSnapAsync:desktop:End');
  assert.deepStrictEqual(json.functionless, Array(3).fill([null, true]));
  const refusal = (type) => [null, 'GetScreenSnapAsync', `GetScreenSnapAsync:${type}:Async. ScreenSnap is already in progress, the call is ignored.`];
  assert.deepStrictEqual(json.busy, [refusal('desktop'), refusal('unknown'), json.failing[0]]);
  assert.strictEqual(json.after, null);
});
