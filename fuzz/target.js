'use strict';

// Runs one target in its own process: target.js TARGET LIBFUZZER-ARGUMENTS…
delete process.env.LD_PRELOAD; // preloads the sanitizer; child processes must not inherit it
const addon = require('../.cache/fuzz/build/Release/kiv_fuzz.node');
const { run, pictures, properties, ...kiv } = addon;

let input;
const next = (limit) => (input.length > 0 ? input.shift() : 0) % limit;
const pick = (list) => list[next(list.length)];
const refuse = () => JSON.parse('no JSON');
// An exhausted input selects the first kind; the later ones need more input.
const kinds = [
  () => pick(['desktop', 'display', 'selection', 'desktop\0', '', 'x'.repeat(65536)]),
  () => pick([0, 1, -1, 0.5, 1e3, 2 ** 31, 2 ** 53, 1e308, NaN, Infinity, 10n ** 30n]),
  () => pick([undefined, null, true, Symbol('any'), kiv, ...Object.values(kiv)]),
  () => Buffer.from(input.splice(0, next(64))).toString(pick(['latin1', 'utf16le', 'utf8'])),
  () => () => pick([call, value, refuse])(),
  () => ({ toString: value, valueOf: value }),
  () => new Proxy(Object(value()), { get: () => (next(3) ? undefined : refuse()) }),
];
const value = () => pick(kinds)();

function call() {
  const name = pick(Object.keys(kiv));
  const args = Array.from({ length: next(5) }, value);
  // A path that does not exist, so that nothing is ever installed.
  if (name === 'upgrade') args[0] = `/nonexistent/${typeof args[0] === 'string' ? args[0] : ''}`;
  if (next(3)) Reflect.apply(kiv[name], next(2) ? kiv : value(), args);
  else Reflect.construct(kiv[name], args);
}

function check(error) {
  if (error instanceof Error) return;
  console.error('thrown:', error);
  process.abort();
}

function calls(bytes) {
  input = [...bytes];
  kiv.setupLogger(() => {});
  kiv.init();
  while (input.length > 0) {
    try {
      call();
    } catch (error) {
      check(error);
    }
  }
  kiv.teardown();
}

process.on('uncaughtException', check);
const [name, ...args] = process.argv.slice(2);
run({ arguments: calls, pictures, properties }[name], ['fuzz', ...args].join(' '));
