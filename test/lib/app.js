'use strict';

const { execFileSync } = require('child_process');
const path = require('path');
const { BUILD, ENV, NODE, PATIENCE, ROOT, start } = require('./processes');

const sanitizer = (leaks) => ({
  LD_PRELOAD: execFileSync('g++', ['-print-file-name=libasan.so'], { encoding: 'utf8' }).trim(),
  ASAN_OPTIONS: `detect_leaks=${leaks ? 1 : 0}:exitcode=99:fast_unwind_on_malloc=0`,
  UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1',
});
const revive = (key, value) =>
  value?.base64 === undefined ? value : Buffer.from(value.base64, 'base64');

function setUpThere(faulty) {
  if (faulty) faults;
  host.startLoop();
  kiv.setupLogger((...line) => log.push(line.join(' ')));
  kiv.init();
}

/**
 * Starts a process that loads the module, as an application would. `run(f, ...args)` calls `f`
 * there, which sees `kiv`, `host`, `log` (the logger's lines) and what earlier calls put in
 * `global`. `end()` tears down and checks that the process exits by itself and wrote nothing; pass
 * `leaks: false` if it exits otherwise. `under` is a tool to run it with.
 */
async function startApp(session, options = {}) {
  const { env: more, under = [], leaks = true, setUp = true, faulty = false } = options;
  const [command, ...args] = [...under, NODE, '--expose-gc', path.join(__dirname, 'child.js')];
  const checks = process.env.KIV_SANITIZE && sanitizer(leaks);
  // host/ accepts only names below build/.
  const build = { KIV_BUILD_FOLDER: BUILD, KIV_BUILD: path.relative(`${ROOT}/build`, BUILD) };
  const env = { ...ENV, ...checks, ...session.env, ...more, ...build };
  const app = start(command, args, { env, cwd: ROOT, stdio: ['pipe', 'pipe', 'pipe', 'ipc'] });
  session.stops?.push(app.stop);
  const waiting = new Map();
  let last = 0;
  app.child.on('message', (text) => {
    const { id, value, error } = JSON.parse(text, revive);
    const { resolve, reject } = waiting.get(id);
    waiting.delete(id);
    if (error === undefined) resolve(value);
    else reject(new Error(error));
  });
  const ending = () =>
    new Error(`exited with ${app.result?.code} ${app.result?.signal}\n${app.output()}`);
  app.ended.then(() => {
    for (const { reject } of waiting.values()) reject(ending());
  });
  app.run = (f, ...values) => {
    const hang = setTimeout(() => app.child.kill('SIGKILL'), PATIENCE);
    return new Promise((resolve, reject) => {
      waiting.set(++last, { resolve, reject });
      if (app.child.connected) app.child.send({ id: last, source: String(f), values }, () => {});
      else reject(ending());
    }).finally(() => clearTimeout(hang));
  };
  app.log = () => app.run(() => log.splice(0));
  app.end = async () => {
    await app.run(() => kiv.teardown());
    app.child.disconnect();
    const { code } = await app.finished();
    if (code !== 0 || app.output() !== '') throw ending();
  };
  await app.run(setUp ? setUpThere : () => {}, faulty);
  return app;
}

module.exports = { startApp };
