'use strict';

const assert = require('assert');
const { test } = require('node:test');
const { runCase } = require('./helpers/case');

const run = async (source, args) => {
  const { json, stderr } = await runCase(source, { args });
  assert.ok(json, stderr);
  return json;
};

test('size, format and quality of the picture and of its thumbnail', async () => {
  // [pattern, target, jpeg, scale] and what comes out.
  const cases = [
    [[1280, 800, 0, 0, true, false], 'screen.jpg', [1280, 800, 25]],
    [[1280, 800, 1000, 625, true, true], 'screen.jpg', [1000, 625, 50]],
    [[1280, 800, 1000, 625, false, true], 'screen.png', [1000, 625]],
    [[10, 10, 0, 0, false, false], 'screen.png', [10, 10]],
  ];
  const json = await run((inputs) => {
    const { decodePng, jpegInfo } = require('./images');
    const { encode } = require(require('path').join(process.cwd(), 'build', process.env.KIV_BUILD, 'kiv_internals.node'));
    const look = (bytes) => {
      if (bytes[0] === 0xff) return jpegInfo(bytes);
      const { width, height } = decodePng(bytes);
      return { width, height };
    };
    report(inputs.map((input) => {
      const { filename, image, thumbnail } = encode(...input);
      return [filename, look(image), look(thumbnail)];
    }).concat([encode(0, 0, 5, 5, true, true)].map(({ filename, image, thumbnail }) =>
      [filename, image.length, thumbnail.length])));
  }, [cases.map(([input]) => input)]);
  cases.forEach(([, filename, [width, height, quality]], i) => {
    const sized = (w, h) => (quality ? { quality, width: w, height: h } : { width: w, height: h });
    assert.deepStrictEqual(json[i], [filename, sized(width, height), sized(620, 320)]);
  });
  assert.deepStrictEqual(json[cases.length], ['untouched', 0, 0]);
});

test('the encoder appends to what a block holds', async () => {
  const json = await run(() => {
    const { encode } = require(require('path').join(process.cwd(), 'build', process.env.KIV_BUILD, 'kiv_internals.node'));
    const plain = encode(64, 64, 0, 0, false, false, 0).image;
    const after = encode(64, 64, 0, 0, false, false, 100).image;
    report([after.length - plain.length, after.slice(100).equals(plain), after.slice(0, 100).every((byte) => byte === 0)]);
  });
  assert.deepStrictEqual(json, [100, true, true]);
});

test('a sink keeps every byte, whatever the pieces', async () => {
  const json = await run(() => {
    const { sink } = require(require('path').join(process.cwd(), 'build', process.env.KIV_BUILD, 'kiv_internals.node'));
    const all = Buffer.alloc(5000000, Uint8Array.from({ length: 251 }, (_, i) => i));
    const cut = (size) => {
      const pieces = [];
      for (let at = 0; at < all.length; at += size) pieces.push(all.slice(at, at + size));
      return pieces;
    };
    report([[8192], [65536], [65537], [all.length], [1021]].map(([size]) => sink(cut(size)).equals(all))
      .concat(sink([]).length === 0, sink([Buffer.alloc(0), all]).equals(all)));
  });
  assert.deepStrictEqual(json, Array(7).fill(true));
});
