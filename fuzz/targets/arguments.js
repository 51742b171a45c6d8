'use strict';

// Calls of everything that is exported, in any order, with values of any kind.

class Bytes {
  constructor(buffer) {
    this.buffer = buffer;
    this.at = 0;
  }

  get left() { return this.buffer.length - this.at; }

  next(limit) { return (this.at < this.buffer.length ? this.buffer[this.at++] : 0) % limit; }

  text() {
    const length = Math.min(this.next(64), this.left);
    this.at += length;
    return this.buffer.toString(['latin1', 'utf16le', 'utf8'][this.next(3)], this.at - length, this.at);
  }
}

const WORDS = ['desktop', 'display', 'selection', 'Desktop', '', 'desktop\0', '/tmp/a.deb', '/tmp/a.rpm', '__proto__'];
const NUMBERS = [0, -0, 1, -1, 0.5, 1e3, 2 ** 31, -(2 ** 31), 2 ** 32, 2 ** 53, 1e308, NaN, Infinity, -Infinity];

// Thrown by a value on purpose; anything else that arrives is the module's.
const MARK = { expected: true };
const refuse = () => { throw MARK; };

// Not the fuzzer's own.
const namesOf = (kiv) => Object.keys(kiv).filter((name) => name !== 'fuzz');

function makeValues(kiv, callback) {
  const names = namesOf(kiv);
  let value;
  const deep = (bytes, depth) => value(bytes, depth + 1);
  const kinds = [
    (bytes) => WORDS[bytes.next(WORDS.length)],
    (bytes) => bytes.text(),
    (bytes) => NUMBERS[bytes.next(NUMBERS.length)],
    () => undefined,
    () => null,
    (bytes) => bytes.next(2) === 1,
    () => Symbol('any'),
    (bytes) => BigInt(bytes.next(256)) ** 20n,
    callback,
    (bytes, depth) => ({ toString: () => deep(bytes, depth), valueOf: () => deep(bytes, depth) }),
    (bytes) => ({ [bytes.next(2) ? 'toString' : 'valueOf']: refuse, [Symbol.toPrimitive]: bytes.next(2) ? refuse : undefined }),
    (bytes) => Object.defineProperty({}, bytes.next(2) ? 'toString' : 'emit', { get: refuse }),
    (bytes, depth) => {
      const target = deep(bytes, depth);
      const traps = new Proxy({}, { get: () => (bytes.next(3) ? undefined : refuse) });
      return Object(target) === target ? new Proxy(target, traps) : target;
    },
    (bytes, depth) => [deep(bytes, depth), deep(bytes, depth)],
    () => Object.create(null),
    (bytes) => Buffer.alloc(bytes.next(9)),
    () => 'x'.repeat(1 << 16),
    (bytes) => new Date(NUMBERS[bytes.next(NUMBERS.length)]),
    (bytes) => kiv[names[bytes.next(names.length)]],
    () => kiv,
  ];
  value = (bytes, depth = 0) => kinds[bytes.next(depth > 3 ? 8 : kinds.length)](bytes, depth);
  return value;
}

module.exports = (kiv) => {
  const names = namesOf(kiv);
  let depth = 0;
  let current = null;
  let value;

  function step(bytes) {
    ++depth;
    try {
      const name = names[bytes.next(names.length)];
      const args = Array.from({ length: bytes.next(5) }, () => value(bytes));
      // A name that no file has: nothing is ever installed.
      if (name === 'upgrade') args[0] = typeof args[0] === 'string' ? `/nonexistent/${args[0]}` : '/nonexistent.deb';
      if (bytes.next(3) === 0) Reflect.construct(kiv[name], args);
      else Reflect.apply(kiv[name], bytes.next(2) ? kiv : value(bytes), args);
    } catch (error) {
      // The module's own complaints, the language's, and what was thrown on purpose.
      if (error !== MARK && !(error instanceof Error)) throw new Error(`thrown: ${String(error)}`);
    } finally {
      --depth;
    }
  }

  const callback = (bytes) => () => {
    if (depth < 2) step(current || bytes);
    if (bytes.next(8) === 7) throw MARK;
    return WORDS[bytes.next(WORDS.length)];
  };
  value = makeValues(kiv, callback);
  process.on('uncaughtException', (error) => {
    if (error !== MARK && !(error instanceof Error)) throw error;
  });

  return (buffer) => {
    const bytes = new Bytes(buffer);
    current = bytes;
    for (let i = 0; i < 12 && bytes.left > 0; ++i) step(bytes);
    current = null;
    kiv.setInterval(() => {}, 0);
    kiv.setupLogger(() => {});
    kiv.teardown();
    kiv.fuzz.settle();
    kiv.init();
  };
};
