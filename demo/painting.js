'use strict';

// Draws what compresses as a photograph does: hills by a lake, with haze, ripples and film grain.

const fs = require('fs');
const zlib = require('zlib');

/** A repeatable value from 0 to 1 for a place. */
function noiseAt(x, y) {
  let hash = Math.imul(x, 374761393) + Math.imul(y, 668265263);
  hash = Math.imul(hash ^ (hash >>> 13), 1274126177);
  return ((hash ^ (hash >>> 16)) >>> 0) / 4294967296;
}

function smoothNoise(x, y) {
  const [left, top] = [Math.floor(x), Math.floor(y)];
  const ease = (t) => t * t * (3 - 2 * t);
  const [across, down] = [ease(x - left), ease(y - top)];
  const mix = (row) => noiseAt(left, row) + (noiseAt(left + 1, row) - noiseAt(left, row)) * across;
  return mix(top) + (mix(top + 1) - mix(top)) * down;
}

function clouds(x, y, octaves) {
  let [sum, weight] = [0, 0.5];
  for (let i = 0; i < octaves; ++i, weight /= 2)
    sum += weight * smoothNoise(x * 2 ** i + 17 * i, y * 2 ** i);
  return sum;
}

const mixed = (a, b, share) => a.map((value, i) => value + (b[i] - value) * share);

// From far to near: where a ridge lies, how high and rough it is, and its colour.
const RIDGES = [
  { level: 0.5, height: 0.34, width: 0.42, color: [126, 132, 168] },
  { level: 0.57, height: 0.26, width: 0.3, color: [74, 92, 124] },
  { level: 0.66, height: 0.2, width: 0.2, color: [34, 58, 70] },
];
const SHORE = 0.72;

/** Writes a PNG file of that size; another `seed` gives another landscape. */
function paint(file, width, height, seed) {
  const ridges = RIDGES.map(({ level, height: high, width: wide }, i) =>
    Array.from(
      { length: width },
      (_, x) => level - high * (clouds(x / (wide * height) + 31 * seed, 7 * i + seed, 6) - 0.4),
    ),
  );
  const sky = (u, v) => {
    const glow = Math.exp(-9 * ((u - 0.9) ** 2 + (v - 0.5) ** 2));
    const base = mixed([52, 92, 158], [246, 178, 120], Math.min(1, v * 1.5));
    const cloud = Math.max(0, clouds(u * 2 + seed, v * 6, 4) - 0.46) * 2.4;
    return mixed(mixed(base, [255, 226, 170], glow), [250, 236, 228], cloud);
  };
  const land = (x, v) => {
    for (let i = ridges.length - 1; i >= 0; --i) {
      const depth = v - ridges[i][x];
      if (depth > 0) return mixed(RIDGES[i].color, [186, 176, 178], Math.min(0.5, depth * 1.5));
    }
    return sky(x / height, v);
  };
  const rows = Buffer.alloc(height * (1 + 3 * width));
  for (let y = 0, at = 0; y < height; ++y) {
    ++at; // the row's filter: none
    const v = y / height;
    const depth = v - SHORE;
    for (let x = 0; x < width; ++x) {
      let color;
      if (depth < 0) color = land(x, v);
      else {
        const ripple = (smoothNoise(x / 40, (seed + 60 * v) / (0.3 + depth)) - 0.5) * depth;
        color = mixed(land(x, Math.max(0, SHORE - depth * 1.6 + ripple)), [22, 44, 66], 0.35);
      }
      const grain = 14 * (noiseAt(x + 7919 * seed, y) - 0.5);
      for (const value of color) rows[at++] = Math.max(0, Math.min(255, value + grain));
    }
  }
  fs.writeFileSync(file, png(width, height, rows));
}

const CRC_TABLE = Int32Array.from({ length: 256 }, (_, n) => {
  let value = n;
  for (let bit = 0; bit < 8; ++bit) value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
  return value;
});

function chunk(name, data) {
  const bytes = Buffer.concat([Buffer.alloc(4), Buffer.from(name), data, Buffer.alloc(4)]);
  bytes.writeUInt32BE(data.length, 0);
  let crc = -1;
  for (let i = 4; i < bytes.length - 4; ++i) crc = (crc >>> 8) ^ CRC_TABLE[(crc ^ bytes[i]) & 255];
  bytes.writeInt32BE(~crc, bytes.length - 4);
  return bytes;
}

function png(width, height, rows) {
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, 2], 8); // eight bits each of red, green and blue
  const data = zlib.deflateSync(rows, { level: 1 });
  const signature = Buffer.from('\x89PNG\r\n\x1a\n', 'latin1');
  return Buffer.concat([
    signature,
    ...[
      ['IHDR', header],
      ['IDAT', data],
      ['IEND', Buffer.alloc(0)],
    ].map((one) => chunk(...one)),
  ]);
}

module.exports = { paint };
