'use strict';

// Just enough of two formats to look at what the module encoded. Runs inside cases: old syntax.
const zlib = require('zlib');

function paeth(a, b, c) {
  const p = a + b - c;
  const [pa, pb, pc] = [Math.abs(p - a), Math.abs(p - b), Math.abs(p - c)];
  if (pa <= pb && pa <= pc) return a;
  return pb <= pc ? b : c;
}

const PREDICTORS = [() => 0, (a) => a, (a, b) => b, (a, b) => (a + b) >> 1, paeth];

/** { width, height, channels, pixels } of an 8-bit RGB or RGBA PNG without interlacing. */
function decodePng(file) {
  if (file.readUInt32BE(0) !== 0x89504e47) throw new Error('not a PNG');
  const width = file.readUInt32BE(16);
  const height = file.readUInt32BE(20);
  const channels = { 2: 3, 6: 4 }[file[25]];
  if (file[24] !== 8 || !channels || file[28] !== 0) throw new Error('a PNG of another kind');
  const parts = [];
  for (let at = 8; at < file.length;) {
    const length = file.readUInt32BE(at);
    if (file.toString('latin1', at + 4, at + 8) === 'IDAT') parts.push(file.slice(at + 8, at + 8 + length));
    at += 12 + length;
  }
  const raw = zlib.inflateSync(Buffer.concat(parts));
  const stride = width * channels;
  const pixels = Buffer.alloc(stride * height);
  for (let y = 0; y < height; ++y) {
    const predict = PREDICTORS[raw[y * (stride + 1)]];
    const row = y * stride;
    for (let x = 0; x < stride; ++x) {
      const left = x >= channels ? pixels[row + x - channels] : 0;
      const up = y > 0 ? pixels[row - stride + x] : 0;
      const corner = x >= channels && y > 0 ? pixels[row - stride + x - channels] : 0;
      pixels[row + x] = raw[y * (stride + 1) + 1 + x] + predict(left, up, corner);
    }
  }
  return { width, height, channels, pixels };
}

/** [red, green, blue] at a point of a decoded picture. */
function pixelAt({ width, channels, pixels }, x, y) {
  const at = (y * width + x) * channels;
  return [...pixels.slice(at, at + 3)];
}

/** { width, height, quality } of a JPEG of a quality up to 50, as its luminance table tells. */
function jpegInfo(file) {
  if (file.readUInt16BE(0) !== 0xffd8) throw new Error('not a JPEG');
  const info = {};
  for (let at = 2; at < file.length && !info.width;) {
    const marker = file[at + 1];
    const body = at + 4;
    if (marker === 0xdb && (file[body] & 0x0f) === 0 && !info.quality) {
      // The standard table begins with 16; libjpeg scales it by 50 / quality.
      info.quality = 800 / file[body + 1];
    } else if (marker >= 0xc0 && marker <= 0xc2) {
      info.height = file.readUInt16BE(body + 1);
      info.width = file.readUInt16BE(body + 3);
    }
    at = body - 2 + file.readUInt16BE(body - 2);
  }
  return info;
}

module.exports = { decodePng, jpegInfo, pixelAt };
