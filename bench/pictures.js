'use strict';

/** BGRX pixels with areas, edges and gradients as a desktop has them. */
function pixels(width, height) {
  const bytes = Buffer.alloc(width * height * 4);
  const words = new Uint32Array(bytes.buffer, bytes.byteOffset, width * height);
  let state = 12345;
  const random = () => (state = (Math.imul(state, 1664525) + 1013904223) >>> 0);
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x)
      words[y * width + x] = (((x * 255) / width) << 16) | (((y * 255) / height) << 8) | 0x60;
  }
  for (let i = 0; i < 400; ++i) {
    const [left, top] = [random() % width, random() % height];
    const right = Math.min(width, left + (random() % 400));
    const bottom = Math.min(height, top + (random() % 200));
    const color = random() >>> 8;
    for (let y = top; y < bottom; ++y) words.fill(color, y * width + left, y * width + right);
  }
  // Strokes as fine as text.
  for (let i = 0; i < (width * height) / 40; ++i) {
    const at = random() % (words.length - 8);
    words.fill(0x101010, at, at + 1 + (random() % 5));
  }
  return bytes;
}

module.exports = { pixels };
