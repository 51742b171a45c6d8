'use strict';

// Implements scripts/mutants.

const fs = require('fs');
const os = require('os');
const path = require('path');
const { ROOT, start, temporaryFolder } = require('./lib/processes');

const COPIES = Number(process.env.KIV_MUTANT_COPIES || os.cpus().length);
// A mutant may leave something unused.
const env = { ...process.env, CXXFLAGS: '-Wno-error -O0 -g0', KIV_PATIENCE: '40000' };
for (const name of ['KIV_BUILD', 'KIV_NODE', 'KIV_SANITIZE']) delete env[name];
const BUILD = 'make -C build tests BUILDTYPE=Release';

function readTable(words) {
  const table = fs.readFileSync(path.join(__dirname, 'mutants.txt'), 'utf8');
  const lines = table.split('\n').filter((line) => words.every((word) => line.includes(word)));
  const fields = lines.map((line) => /^(\S+): (.*) ==> ?(.*) \| ?(.*?) \| (.*)$/.exec(line));
  const code = (text) => text.replace(/⏎/g, '\n');
  return fields.filter(Boolean).map(([, file, from, to, tests, what]) => {
    return { file, from: code(from), to: code(to), tests: tests.match(/\S+/g) || [], what };
  });
}

async function run(cwd, line) {
  const [command, ...args] = line.split(' ');
  const started = start(command, args, { cwd, env });
  const timer = setTimeout(started.stop, 600000);
  const { code } = await started.ended;
  clearTimeout(timer);
  return { failed: code !== 0, output: started.output() };
}

const testsIn = (copy) =>
  fs.readdirSync(path.join(copy, 'test')).filter((name) => name.endsWith('.test.js'));

async function judge(copy, { file, from, to, tests }) {
  const target = path.join(copy, 'src/cpp', file);
  const source = fs.readFileSync(target, 'utf8');
  if (source.split(from).length !== 2) return 'NOT IN ONE PLACE';
  fs.writeFileSync(target, source.split(from).join(to));
  try {
    const built = await run(copy, BUILD);
    if (built.failed) return `DOES NOT BUILD ${/error: .*/.exec(built.output)}`;
    const hinted = tests.map((name) => `${name}.test.js`);
    for (const name of new Set([...hinted, ...testsIn(copy)])) {
      const { failed, output } = await run(copy, `node --test test/${name}`);
      if (failed) return `caught by ${name}: ${/(?<=^ *not ok \d+ - ).*/m.exec(output)}`;
    }
    return 'SURVIVED';
  } finally {
    fs.writeFileSync(target, source);
  }
}

async function main() {
  const mutants = readTable(process.argv.slice(2));
  const total = mutants.length;
  let caught = 0;
  const parts = fs.readdirSync(ROOT).filter((name) => !/^(\.git|\.cache|build)$/.test(name));
  const work = async () => {
    const copy = temporaryFolder();
    await run(ROOT, `cp -r ${parts.join(' ')} ${copy}`);
    await run(copy, 'scripts/build');
    const { failed, output } = await run(copy, `node --test test/${testsIn(copy).join(' test/')}`);
    if (failed) throw new Error(`tests fail without a mutant:\n${output}`);
    for (let mutant = mutants.shift(); mutant; mutant = mutants.shift()) {
      const verdict = await judge(copy, mutant);
      if (verdict.startsWith('caught')) caught += 1;
      console.log(`${mutant.file}: ${mutant.what}: ${verdict}`);
    }
  };
  await Promise.all(Array.from({ length: Math.min(COPIES, total) }, work));
  console.log(`${caught} of ${total} caught`);
}

main();
