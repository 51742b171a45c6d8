'use strict';

// What the overlay has to show, pixel by pixel, worked out from the rules with plain arithmetic.
// Runs inside cases: old syntax.

const ON = 4; // pixels drawn and pixels left out along a dashed line
const WHITE = 255;

/** The overlay of a captured picture (BGRX, width x height). `pixels` is what it shows. */
class OverlayReference {
  constructor(base, width, height) {
    Object.assign(this, { base, width, height, crossDrawn: false, pressed: false });
    this.dimmed = Buffer.from(base.map((value) => Math.round((value * 150) / 255)));
    this.anchor = { x: 0, y: 0 };
    this.current = { x: 0, y: 0 };
  }

  /** The window got its size; the pointer stands at (x, y) of the root window. */
  configure(width, height, x, y) {
    this.surface = { width, height };
    this.pixels = Buffer.alloc(width * height * 4);
    this.fill(this.dimmed, 0, 0, width, height);
    // Two pixels wide around the pixel's centre: the neighbours are half covered, as far as the
    // server's 17 x 15 samples of a pixel can tell (pixman 0.42, 8-bit masks).
    this.cross(x, y, [[-1, 8 / 17, 8 / 15], [0, 1, 1], [1, 9 / 17, 7 / 15]]);
  }

  press(x, y) {
    if (!this.valid(x, y)) return;
    this.pressed = true;
    this.anchor = { x, y };
    this.current = { x, y };
  }

  motion(x, y) {
    if (!this.valid(x, y)) return;
    if (this.crossDrawn) this.fill(this.dimmed, 0, 0, this.surface.width, this.surface.height);
    this.crossDrawn = true;
    const old = this.rectangle();
    const first = this.current.x === this.anchor.x && this.current.y === this.anchor.y;
    this.current = { x, y };
    if (!this.pressed) this.anchor = { x, y };
    this.cross(x, y, [[0, 1, 1]]);
    if (!this.pressed) return;
    const now = this.rectangle();
    if (!first) for (const strip of OverlayReference.strips(old, now)) this.fill(this.dimmed, ...strip);
    this.fill(this.base, now.x, now.y, now.w, now.h);
  }

  /** A new selection of the same module, over a new picture. */
  next(base) {
    const again = new OverlayReference(base, this.width, this.height);
    again.crossDrawn = this.crossDrawn;
    return again;
  }

  valid(x, y) {
    return x >= 0 && y >= 0 && x <= this.width && y <= this.height;
  }

  rectangle() {
    const { anchor: a, current: c } = this;
    return { x: Math.min(a.x, c.x), y: Math.min(a.y, c.y), w: Math.abs(a.x - c.x), h: Math.abs(a.y - c.y) };
  }

  static strips(o, n) {
    const strips = [];
    if (n.x > o.x) strips.push([o.x, n.y, n.x - o.x, n.h + 1]);
    if (n.x + n.w < o.x + o.w) {
      strips.push([n.x + n.w, n.y, o.x + o.w - (n.x + n.w) + 1, (n.y < o.y ? n.h : o.h) + 1]);
    }
    if (o.y < n.y) strips.push([o.x, o.y, o.w + 1, n.y - o.y]);
    if (n.y + n.h < o.y + o.h) strips.push([o.x, n.y + n.h, o.w + 1, o.y + o.h - (n.y + n.h) + 1]);
    return strips;
  }

  // Pixels beyond the picture stay as they are.
  fill(source, x, y, width, height) {
    const right = Math.min(x + width, this.width, this.surface.width);
    const bottom = Math.min(y + height, this.height, this.surface.height);
    for (let row = y; row < bottom; ++row) {
      for (let column = x; column < right; ++column) {
        source.copy(this.pixels, (row * this.surface.width + column) * 4,
          (row * this.width + column) * 4, (row * this.width + column) * 4 + 4);
      }
    }
  }

  cross(x, y, lines) {
    const { width, height } = this.surface;
    const cover = new Map();
    const add = (column, row, part) => {
      if (column < 0 || row < 0 || column >= width || row >= height) return;
      const at = row * width + column;
      cover.set(at, 1 - (1 - (cover.get(at) || 0)) * (1 - part));
    };
    for (const [offset, vertical, horizontal] of lines) {
      for (let row = 0; row < height; ++row) if (row % (2 * ON) < ON) add(x + offset, row, vertical);
      for (let column = 0; column < width; ++column) if (column % (2 * ON) < ON) add(column, y + offset, horizontal);
    }
    for (const [at, part] of cover) {
      for (let i = at * 4; i < at * 4 + 3; ++i) {
        this.pixels[i] = Math.round(this.pixels[i] + (WHITE - this.pixels[i]) * part);
      }
    }
  }
}

module.exports = { OverlayReference };
