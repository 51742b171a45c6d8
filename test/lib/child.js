'use strict';

// Loads the module and runs the test runner's functions. Keep to the syntax of the oldest Node.
const { RTLD_GLOBAL, RTLD_NOW } = require('os').constants.dlopen;
const path = require('path');
const vm = require('vm');

delete process.env.LD_PRELOAD; // child processes must not inherit the sanitizer
const addon = (name) => path.join(process.env.KIV_BUILD_FOLDER, `${name}.node`);
const lazy = (name, load) => {
  const keep = (value) => Object.defineProperty(global, name, { value, writable: true });
  Object.defineProperty(global, name, { configurable: true, get: () => keep(load())[name] });
};
lazy('kiv', () => require(addon('kiv_native')));
lazy('internals', () => require(addon('kiv_internals')));
// Overrides library functions, so it must be loaded before the module.
lazy('faults', () => {
  const holder = { exports: {} };
  process.dlopen(holder, addon('kiv_faults'), RTLD_NOW | RTLD_GLOBAL);
  return holder.exports;
});
lazy('host', () => require('../../host'));
lazy('permission', () => require('../../permission'));
/** Returns the function's result, or the message of its exception. */
function attempt(f, ...values) {
  try {
    return f(...values);
  } catch (error) {
    return error.message;
  }
}
Object.assign(global, { attempt, log: [], require });

const bytes = (key, value) =>
  value && value.type === 'Buffer' ? { base64: Buffer.from(value.data).toString('base64') } : value;
async function answer({ id, source, values }) {
  const reply = { id };
  try {
    const value = await vm.runInThisContext(`(${source})`)(...values);
    reply.value = value === undefined ? null : value;
  } catch (error) {
    reply.error = String((error && error.stack) || error);
  }
  if (process.connected) process.send(JSON.stringify(reply, bytes));
}
process.on('message', answer);
