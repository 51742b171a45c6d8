'use strict';

// Loads the module and does what the test runner says. Keep to the syntax of the oldest Node.
const path = require('path');
const vm = require('vm');

delete process.env.LD_PRELOAD; // what this process starts does not want the sanitizer
const lazy = (name, load) =>
  Object.defineProperty(global, name, {
    configurable: true,
    get() {
      Object.defineProperty(global, name, { value: load(), writable: true });
      return global[name];
    },
  });
const addon = (name) => path.join(process.env.KIV_BUILD_FOLDER, `${name}.node`);
lazy('kiv', () => require(addon('kiv_native')));
lazy('internals', () => require(addon('kiv_internals')));
// Stands in front of the libraries, so it has to be loaded before the module.
lazy('faults', () => {
  const holder = { exports: {} };
  const { RTLD_NOW, RTLD_GLOBAL } = require('os').constants.dlopen;
  process.dlopen(holder, addon('kiv_faults'), RTLD_NOW | RTLD_GLOBAL);
  return holder.exports;
});
lazy('host', () => require('../../host'));
/** What it returns, or the message of what it throws. */
function attempt(f, ...values) {
  try {
    return f(...values);
  } catch (error) {
    return error.message;
  }
}
Object.assign(global, { attempt, log: [], require });

const bytes = (key, value) =>
  value && value.type === 'Buffer' && Array.isArray(value.data)
    ? { base64: Buffer.from(value.data).toString('base64') }
    : value;

process.on('message', (request) => {
  const answer = (result) => {
    if (process.connected)
      process.send(JSON.stringify(Object.assign({ id: request.id }, result), bytes));
  };
  new Promise((resolve) =>
    resolve(vm.runInThisContext(`(${request.source})`)(...request.values)),
  ).then(
    (value) => answer({ value: value === undefined ? null : value }),
    (error) => answer({ error: String((error && error.stack) || error) }),
  );
});
