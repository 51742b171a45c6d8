'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { look } = require('./helpers/suite');

test('size, format and quality of the picture and of its thumbnail', async () => {
  // [pattern, target, jpeg, scale] and what comes out.
  const cases = [
    [[1280, 800, 0, 0, true, false], 'screen.jpg', { width: 1280, height: 800, quality: 25 }],
    [[1280, 800, 1000, 625, true, true], 'screen.jpg', { width: 1000, height: 625, quality: 50 }],
    [[1280, 800, 1000, 625, false, true], 'screen.png', { width: 1000, height: 625 }],
    [[10, 10, 0, 0, false, false], 'screen.png', { width: 10, height: 10 }],
    [[0, 0, 5, 5, true, true], 'untouched', null],
  ];
  const json = await look((inputs) => {
    const { decodePng, jpegInfo } = require('./images');
    const describe = (bytes) => {
      if (bytes.length === 0 || bytes[0] === 0xff) return bytes.length ? jpegInfo(bytes) : null;
      const { width, height } = decodePng(bytes);
      return { width, height };
    };
    report(inputs.map((input) => {
      const { filename, image, thumbnail } = internals.encode(...input);
      return [filename, describe(image), describe(thumbnail)];
    }));
  }, { args: [cases.map(([input]) => input)] });
  cases.forEach(([, filename, picture], i) => {
    assert.deepStrictEqual(json[i], [filename, picture, picture && { ...picture, width: 620, height: 320 }]);
  });
});

test('a sink keeps every byte, whatever the pieces; the encoder appends to what a block holds', async () => {
  assert.deepStrictEqual(await look(() => {
    const all = Buffer.alloc(5000000, Uint8Array.from({ length: 251 }, (_, i) => i));
    const pieces = (size) => {
      const cut = [];
      for (let at = 0; at < all.length; at += size) cut.push(all.slice(at, at + size));
      return cut;
    };
    const [plain, after] = [0, 100].map((prefix) => internals.encode(64, 64, 0, 0, false, false, prefix).image);
    report({
      sinks: [8192, 65536, 65537, all.length].map((size) => internals.sink(pieces(size)).equals(all)),
      empty: internals.sink([Buffer.alloc(0)]).length,
      appended: after.equals(Buffer.concat([Buffer.alloc(100), plain])),
    });
  }), { sinks: [true, true, true, true], empty: 0, appended: true });
});
