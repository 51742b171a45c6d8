'use strict';

const fs = require('fs');
const { parseArgs } = require('util');
const { start } = require('../test/lib/processes');
const { startSession } = require('../test/lib/session');

const { values, positionals } = parseArgs({
  allowPositionals: true,
  options: { seconds: { type: 'string', default: '60' }, merge: { type: 'boolean' } },
});
const time = `-max_total_time=${values.seconds}`;
const limits = '-timeout=20 -rss_limit_mb=4096 -max_len=2048 -detect_leaks=0';

async function fuzz(target) {
  const session = await startSession({ screens: ['64x48'] });
  const [kept, found] = [`fuzz/corpus/${target}`, `.cache/fuzz/corpus/${target}`];
  const aim = values.merge ? `-merge=1 ${kept} ${found}` : `${time} ${found} ${kept}`;
  const args = `${target} ${aim} -artifact_prefix=fuzz/findings/${target}- ${limits}`.split(' ');
  const env = {
    ...session.env,
    LD_PRELOAD: process.env.KIV_FUZZ_SANITIZER,
    ASAN_OPTIONS: 'handle_segv=2:detect_leaks=0:allocator_may_return_null=1:detect_odr_violation=0',
  };
  const child = start(process.execPath, ['fuzz/target.js', ...args], { env });
  const timer = setTimeout(child.stop, values.seconds * 1000 + 120000);
  const { code, signal } = await child.ended;
  clearTimeout(timer);
  await session.stop();
  const said = child.output();
  const end = said.match(/^(Done|MERGE-OUTER:) .*/gm);
  console.log(target, code === 0 && end ? end.pop() : `${said.slice(-5000)}${code} ${signal}`);
  if (code !== 0 || !end) process.exitCode = 1;
}

(positionals.length > 0 ? positionals : fs.readdirSync('fuzz/corpus')).forEach(fuzz);
