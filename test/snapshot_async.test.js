'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { share } = require('./helpers/suite');

/* global ESCAPE, client, findOverlay, key, log */
const { hosted } = share({ screens: ['640x480x24'], wm: false, bus: false });

test('desktop and display call back once, before the call returns', async () => {
  const { results, lines } = await hosted(() => {
    const { decodePng } = require('./images');
    const seen = [];
    for (const type of ['desktop', 'display']) {
      let inner = 0;
      const returned = kiv.getScreenSnapAsync(type, function (result, ...more) {
        const { width, height } = decodePng(result.data);
        // A request from within is accepted: these types hold no guard.
        kiv.getScreenSnapAsync(type, () => { inner += 1; });
        seen.push([Object.keys(result), result.width, result.height, width, height, result.errorCode, result.filename,
          more.length, this === global]);
      });
      seen.push([returned === undefined, inner]);
    }
    report({ results: seen, lines: log.filter((line) => !line.startsWith('warn')) });
  });
  const texts = ['activeWindowTitle', 'activeProcessName', 'filename'];
  const keys = ['width', 'height', ...texts, 'data', 'dataThumbnail', 'errorCode'];
  const one = [keys, 640, 480, 640, 480, 0, 'screen.png', 0, true];
  assert.deepStrictEqual(results, [one, [true, 1], one, [true, 1]]);
  assert.deepStrictEqual(lines, ['desktop', 'display'].flatMap((type) => [
    'debug GetScreenSnapAsync', 'debug GetScreenSnapAsync', 'debug OnScreenSnapCompleted:0:End',
    `debug GetScreenSnapAsync:${type}:End`, 'debug OnScreenSnapCompleted:0:End', `debug GetScreenSnapAsync:${type}:End`]));
});

test('arguments: unknown types, failing conversions, and no function to call', async () => {
  const json = await hosted(async () => {
    const attempt = (...args) => {
      log.length = 0;
      try { kiv.getScreenSnapAsync(...args); } catch (error) { log.unshift(`${error.name}: ${error.message}`); }
      return log.slice();
    };
    const never = () => report('called');
    const bad = { toString() { throw new RangeError('mine'); } };
    const outcomes = {
      unknown: [attempt('Selection', never), attempt(), attempt('desktop\0', never)],
      failing: attempt(bad, never),
      throwing: attempt('desktop', () => { throw new TypeError('mine'); }).filter((line) => !line.startsWith('warn')),
      functionless: attempt('desktop').concat(attempt('display', {})).filter((line) => line.includes('Completed')),
    };
    attempt('selection', 'no function');
    await until(() => findOverlay(client), { what: 'the overlay' });
    outcomes.busy = [attempt('desktop', never), attempt('unknown', never), attempt(bad, never)];
    key(client, ESCAPE);
    await until(() => log.includes('debug OnScreenSnapCompleted:102005:End'), { what: 'the end of the selection' });
    report(outcomes);
  });
  const BEGIN = 'debug GetScreenSnapAsync';
  const DONE = 'debug OnScreenSnapCompleted:0:End';
  const failing = ['RangeError: mine', BEGIN];
  assert.deepStrictEqual(json, {
    unknown: ['Selection', 'undefined', 'desktop\0'].map((type) => [
      'Error: Invalid snap type. Pass one of "desktop", "display" or "selection".', BEGIN, `${BEGIN}:${type}:End`]),
    failing,
    throwing: ['TypeError: mine', BEGIN, DONE, `${BEGIN}:desktop:End`],
    functionless: [DONE, DONE],
    busy: [...['desktop', 'unknown'].map((type) => [
      BEGIN, `info GetScreenSnapAsync:${type}:Async. ScreenSnap is already in progress, the call is ignored.`]), failing],
  });
});
