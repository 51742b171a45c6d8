'use strict';

const assert = require('node:assert');
const { test } = require('node:test');
const { useSession } = require('../lib/session');
const { until } = require('../lib/processes');

const shared = useSession({ screens: ['640x480', '320x240'], bus: false });
const counts = (app) =>
  app.run(() => {
    const { keyboardActivity, mouseActivity } = kiv.getInputInfo();
    return [keyboardActivity, mouseActivity];
  });

test('keys and clicks count once', () =>
  shared.withApp(async (app) => {
    const { x } = shared;
    assert.deepStrictEqual(await counts(app), [0, 0]);
    for (let i = 0; i < 3; ++i) x.key();
    x.click(1);
    x.click(3);
    await until(async () => (await counts(app))[1] === 2);
    assert.deepStrictEqual(await counts(app), [3, 2]);
  }));
