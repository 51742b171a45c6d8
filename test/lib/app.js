'use strict';

const { execFileSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { BUILD, ENV, NODE, ROOT, start } = require('./processes');

const SANITIZED = process.env.KIV_SANITIZE === '1';

function sanitizerEnv(leaks) {
  const library = execFileSync('g++', ['-print-file-name=libasan.so'], { encoding: 'utf8' }).trim();
  return {
    LD_PRELOAD: fs.realpathSync(library),
    ASAN_OPTIONS: `detect_leaks=${leaks ? 1 : 0}:exitcode=99:fast_unwind_on_malloc=0`,
    UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1',
  };
}

const revive = (key, value) =>
  value?.base64 === undefined ? value : Buffer.from(value.base64, 'base64');

/**
 * A process that loads the module, as an application would. `run(f, ...args)` calls a function
 * there, which sees `kiv`, `host`, `log` (what the logger heard) and whatever others left in
 * `global`, and resolves to its result. `end()` tears down, lets the process end by itself and
 * checks that it did so without a word. A function that ends it in another way wants `leaks: false`.
 */
function startApp(session, { env = {}, node = NODE, args = [], leaks = true, setUp = true } = {}) {
  const app = start(node, ['--expose-gc', ...args, path.join(__dirname, 'child.js')], {
    env: {
      ...ENV,
      KIV_BUILD_FOLDER: BUILD,
      ...(SANITIZED ? sanitizerEnv(leaks) : {}),
      ...session.env,
      ...env,
    },
    cwd: ROOT,
    stdio: ['pipe', 'pipe', 'pipe', 'ipc'],
  });
  const waiting = new Map();
  let last = 0;
  app.child.on('message', (text) => {
    const { id, value, error } = JSON.parse(text, revive);
    const { resolve, reject } = waiting.get(id);
    waiting.delete(id);
    if (error === undefined) resolve(value);
    else reject(new Error(error));
  });
  app.ended.then((result) => {
    const error = new Error(`the process ended with ${JSON.stringify(result)}\n${app.output()}`);
    for (const { reject } of waiting.values()) reject(error);
  });
  app.run = (f, ...values) =>
    new Promise((resolve, reject) => {
      // A process that hangs is ended, and says so.
      const limit = setTimeout(() => app.child.kill('SIGKILL'), 60000);
      const done = (f) => (value) => {
        clearTimeout(limit);
        f(value);
      };
      waiting.set(++last, { resolve: done(resolve), reject: done(reject) });
      if (app.child.connected) app.child.send({ id: last, source: String(f), values });
      else reject(new Error(`the process has ended\n${app.output()}`));
    });
  app.log = () => app.run(() => log.splice(0));
  app.end = async () => {
    await app.run(() => {
      kiv.teardown();
    });
    app.child.disconnect();
    const { code, signal } = await app.ended;
    if (code !== 0 || app.output() !== '')
      throw new Error(`ended with ${code} ${signal}\n${app.output()}`);
  };
  const ready = setUp
    ? app.run(() => {
        host.startLoop();
        kiv.setupLogger((...line) => log.push(line.join(' ')));
        kiv.init();
      })
    : app.run(() => {});
  return ready.then(() => app);
}

module.exports = { SANITIZED, startApp };
