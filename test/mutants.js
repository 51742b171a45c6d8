'use strict';

const { execFileSync, spawn } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '..');
const TABLE = path.join(ROOT, 'test/mutants.txt');
const COPIES = Number(process.env.KIV_MUTANT_COPIES || os.cpus().length);
// Minutes long, or not about the module's code.
const LAST = ['package', 'examples'];

function readTable(words) {
  const mutants = [];
  let file;
  for (const line of fs.readFileSync(TABLE, 'utf8').split('\n')) {
    if (/^[a-z]/.test(line)) file = `src/cpp/${line}`;
    const [, change, tests, what] = /^ {2}(.*) \| ?(.*?) \| (.*)$/.exec(line) || [];
    if (!change || !words.every((word) => `${file} ${line}`.includes(word))) continue;
    const [from, to] = change.split(/ ==> ?/).map((text) => text.replace(/⏎/g, '\n'));
    mutants.push({ file, from, to, tests: tests.split(' ').filter(Boolean), what });
  }
  return mutants;
}

const run = (command, args, cwd, env = {}) =>
  new Promise((resolve) => {
    const options = {
      cwd,
      env: { ...process.env, ...env },
      timeout: 600000,
      killSignal: 'SIGKILL',
    };
    const child = spawn(command, args, { ...options, stdio: ['ignore', 'pipe', 'pipe'] });
    let output = '';
    for (const stream of [child.stdout, child.stderr])
      stream.on('data', (piece) => (output += piece));
    child.on('close', (code) => resolve({ code, output }));
  });

// Mistakes may leave something unused.
const QUICK = { CXXFLAGS: '-Wno-error -O0 -g0' };
const build = (copy) => run('make', ['-C', 'build', 'tests', 'BUILDTYPE=Release'], copy, QUICK);

async function judge(copy, { file, from, to, tests }) {
  const target = path.join(copy, file);
  const source = fs.readFileSync(target, 'utf8');
  if (source.split(from).length !== 2) return 'NOT IN ONE PLACE';
  fs.writeFileSync(
    target,
    source.replace(from, () => to),
  );
  try {
    const built = await build(copy);
    if (built.code !== 0) return `DOES NOT BUILD ${/error: .*/.exec(built.output) || ''}`;
    const all = execFileSync('find', ['test', '-name', '*.test.js'], {
      cwd: copy,
      encoding: 'utf8',
    })
      .match(/(?<=^test\/).*(?=\.test\.js$)/gm)
      .filter((name) => !LAST.includes(name));
    for (const name of new Set([...tests.filter((one) => all.includes(one)), ...all])) {
      const { code, output } = await run('node', ['--test', `test/${name}.test.js`], copy);
      const title = (/^ *not ok \d+ - (.*)/m.exec(output) || [])[1];
      if (code !== 0) return `caught by ${name}: ${title}`;
    }
    return 'SURVIVED';
  } finally {
    fs.writeFileSync(target, source);
  }
}

async function main() {
  const mutants = readTable(process.argv.slice(2));
  const total = mutants.length;
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kiv-mutants-'));
  const copies = Array.from({ length: Math.min(COPIES, total) }, (_, i) =>
    path.join(folder, String(i)),
  );
  let caught = 0;
  try {
    const work = async (copy) => {
      fs.mkdirSync(copy);
      const parts = fs
        .readdirSync(ROOT)
        .filter((name) => !['.git', '.cache', 'build'].includes(name));
      execFileSync('cp', ['-r', ...parts, copy], { cwd: ROOT });
      await run('scripts/build', [], copy, QUICK);
      for (let mutant = mutants.shift(); mutant; mutant = mutants.shift()) {
        const verdict = await judge(copy, mutant);
        if (verdict.startsWith('caught')) caught += 1;
        console.log(`${mutant.file.slice(8)}: ${mutant.what}: ${verdict}`);
      }
    };
    await Promise.all(copies.map(work));
  } finally {
    fs.rmSync(folder, { recursive: true, force: true });
  }
  console.log(`${caught} of ${total} caught`);
}

main();
