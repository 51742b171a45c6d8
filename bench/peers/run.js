'use strict';

// The module beside the packages and tools that people use for the same pieces, on the same screen in
// the same run: run.js [--readme]. scripts/peers installs them first. --readme renews the README's
// table.

const { execFileSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { runCase } = require('../../test/helpers/case');
const { startSession } = require('../../test/helpers/session');

const ROOT = path.join(__dirname, '..', '..');
const PACKAGES = path.join(ROOT, '.cache', 'peers', 'node_modules');
const MARKS = ['<!-- peers -->', '<!-- /peers -->'];
const SIZES = [
  [1920, 1080],
  [3840, 2160],
];

// What a peer's call is: text of an async function's body; `load` takes a package. Bytes where there
// are any. Those that give raw pixels get sharp as their encoder.
const PICTURES = {
  'node-screenshots + sharp': (format) => `
    const image = await load('node-screenshots').Monitor.all()[0].captureImage();
    return encode(await image.toRaw(), image.width, image.height, 4, '${format}');`,
  'robotjs + sharp': (format) => `
    const { image, width, height } = load('robotjs').screen.capture();
    return encode(image, width, height, 4, '${format}');`,
  'nut-js + sharp': (format) => `
    const { data, width, height, channels } = await load('@nut-tree-fork/nut-js').screen.grab();
    return encode(data, width, height, channels, '${format}');`,
  'screenshot-desktop': (format) =>
    `return load('screenshot-desktop')({ format: '${format === 'jpeg' ? 'jpg' : 'png'}' });`,
  scrot: (format) =>
    `return tool('scrot', ['-q', '25', '-o', file('${format}')], file('${format}'));`,
  maim: (format) =>
    `return tool('maim', ['-f', '${format === 'jpeg' ? 'jpg' : 'png'}', file('${format}')], file('${format}'));`,
  import: (format) =>
    `return tool('import', ['-window', 'root', '-quality', '${format === 'jpeg' ? 25 : 75}', '${format}:' + file('${format}')], file('${format}'));`,
};
const picturesAs = (format) =>
  Object.fromEntries(Object.entries(PICTURES).map(([name, body]) => [name, body(format)]));
const FITTED = `
  const image = await load('node-screenshots').Monitor.all()[0].captureImage();
  const raw = load('sharp')(await image.toRaw(), { raw: { width: image.width, height: image.height, channels: 4 } });
  const [bytes] = await Promise.all([
    raw.clone().resize(1920, 1080, { fit: 'inside' }).jpeg({ quality: 50 }).toBuffer(),
    raw.clone().resize(620, 320, { fit: 'fill' }).jpeg({ quality: 50 }).toBuffer(),
  ]);
  return bytes;`;
const ASYNC =
  'return new Promise((done) => kiv.getScreenSnapAsync("desktop", (snap) => done(snap.data)));';

/** [piece, screen, the module's call, rounds, the peers' calls] */
const PIECES = [
  ['JPEG', SIZES[0], 'return kiv.getScreenSnap("desktop", true).data;', 15, picturesAs('jpeg')],
  ['PNG', SIZES[0], ASYNC, 5, picturesAs('png')],
  ['PNG', SIZES[1], ASYNC, 3, picturesAs('png')],
  [
    'fitted JPEG and thumbnail',
    SIZES[1],
    'return kiv.getScreenSnap("desktop", true).data;',
    9,
    { 'node-screenshots + sharp': FITTED },
  ],
  [
    'title and process',
    SIZES[0],
    'return internals.activeTask();',
    60,
    {
      '@paymoapp/active-window': `
      const { ActiveWindow } = load('@paymoapp/active-window');
      return ActiveWindow.getActiveWindow();`,
      'x-win': 'return load("@miniben90/x-win").activeWindow();',
      'get-windows': 'return (await getWindows()).activeWindow();',
    },
  ],
  [
    'idle time',
    SIZES[0],
    'return kiv.getInputInfo();',
    100,
    {
      'desktop-idle': 'return load("desktop-idle").getIdleTime();',
      xprintidle: 'return tool("xprintidle", []);',
    },
  ],
];

// In a process with the module and one peer, which may end it.
const beside = async (PACKAGES_, mine, theirs, rounds) => {
  const path_ = require('path');
  const fs_ = require('fs');
  const { execFile } = require('child_process');
  const { median } = require('../../bench/measure');
  const { paint } = require('../../bench/pictures');
  const { activeWindow } = require('./windows');
  const client = X.open(process.env.DISPLAY);
  const { width, height } = client.geometry(client.rootWindow(0));
  client.close();
  host.startLoop();
  kiv.setupLogger(() => {});
  kiv.init();
  const painted = paint('busy', width, height);
  const active = await activeWindow({ title: 'A window', pid: process.pid });
  const load = (name) => require(path_.join(PACKAGES_, name));
  const file = (format) =>
    path_.join(process.env.TMPDIR, `picture.${format === 'jpeg' ? 'jpg' : 'png'}`);
  const encode = (data, columns, lines, channels, format) =>
    load('sharp')(data, { raw: { width: columns, height: lines, channels } })
      .removeAlpha()
      [format](format === 'jpeg' ? { quality: 25 } : {})
      .toBuffer();
  const tool = (name, args, written) =>
    new Promise((resolve, reject) =>
      execFile(name, args, (error, stdout) => {
        if (error) reject(error);
        else resolve(written ? fs_.readFileSync(written) : stdout);
      }),
    );
  // It is a module of the new kind, which a case's text cannot import.
  const getWindows = () => require(path_.join(PACKAGES_, '..', 'import'))('get-windows');
  const make = (body) =>
    new Function(
      'kiv',
      'internals',
      'load',
      'encode',
      'tool',
      'file',
      'getWindows',
      `return async () => {${body}}`,
    )(kiv, internals, load, encode, tool, file, getWindows);
  const subjects = { mine: make(mine), theirs: make(theirs) };
  const times = { mine: [], theirs: [] };
  const bytes = {};
  for (let round = -1; round < rounds; ++round) {
    for (const name of Object.keys(subjects)) {
      // Until a tool's process is gone, for the server as well.
      await new Promise((resolve) => setTimeout(resolve, 50));
      painted.sync();
      const start = process.hrtime.bigint();
      const result = await subjects[name]();
      // The first round loads.
      if (round >= 0) times[name].push(Number(process.hrtime.bigint() - start) / 1e6);
      bytes[name] = result && result.length > 0 ? result.length : 0;
    }
  }
  report({ mine: median(times.mine), theirs: median(times.theirs), bytes });
  active.close();
  painted.close();
  process.exit(0);
};

// A burst of key presses of somebody else's: how many arrive, and this process's time for each.
const burst = async (PACKAGES_, peer, presses) => {
  const path_ = require('path');
  const { spawn } = require('child_process');
  let counted = 0;
  let count = () => counted;
  if (peer) {
    const { uIOhook } = require(path_.join(PACKAGES_, 'uiohook-napi'));
    uIOhook.on('keydown', () => {
      ++counted;
    });
    uIOhook.start();
  } else {
    kiv.setupLogger(() => {});
    kiv.init();
    count = () => kiv.getInputInfo().keyboardActivity;
  }
  const feed = (times) =>
    new Promise((resolve) =>
      spawn(
        process.execPath,
        [
          '-e',
          `
    const floor = require('${path_.resolve('build/Release/bench_input.node')}');
    floor.feed(${times}, 38);`,
        ],
        { stdio: 'inherit' },
      ).on('exit', resolve),
    );
  await until(() => feed(10).then(() => count() > 0), { what: 'a key that arrives' });
  await new Promise((resolve) => setTimeout(resolve, 500));
  const known = count();
  const before = process.cpuUsage();
  await feed(presses);
  // Until nothing comes any more.
  let last = -1;
  while (count() !== last) {
    last = count();
    await new Promise((resolve) => setTimeout(resolve, 500));
  }
  const { user, system } = process.cpuUsage(before);
  report({ lost: presses - (count() - known), cost: (user + system) / presses });
  process.exit(0);
};

// The reason in a few words.
function failure({ signal, code, stderr }) {
  const line =
    stderr.split('\n').find((text) => /Error|error|cannot|failed/.test(text)) ||
    stderr.split('\n')[0];
  return `fails: ${signal || `exit ${code}`} ${line.slice(0, 80)}`.trim();
}

const time = (ms) =>
  ms < 1 ? `${(ms * 1000).toFixed(0)} µs` : `${ms.toFixed(ms < 10 ? 1 : 0)} ms`;
const size = (bytes) => (bytes ? `, ${Math.round(bytes / 1024)} kB` : '');

async function inDesktop([width, height], source, args) {
  const session = await startSession({ screens: [`${width}x${height}x24`] });
  try {
    return await runCase(source, {
      env: session.env,
      args: [PACKAGES, ...args],
      timeout: 300000,
      leaks: false,
    });
  } catch (error) {
    return { code: 'none', stderr: `Error: ${error.message.split('\n')[0]}` };
  } finally {
    await session.stop();
  }
}

async function main() {
  const rows = [];
  for (const [piece, screen, mine, rounds, peers] of PIECES) {
    for (const [peer, theirs] of Object.entries(peers)) {
      const result = await inDesktop(screen, beside, [mine, theirs, rounds]);
      const { json } = result;
      const what = /title|idle/.test(piece) ? piece : `${piece}, ${screen.join(' × ')}`;
      // A capture that failed without a word is all of one colour.
      const blank = json && json.bytes.theirs > 0 && json.bytes.theirs < json.bytes.mine / 10;
      if (blank)
        rows.push([
          what,
          peer,
          time(json.mine) + size(json.bytes.mine),
          `fails: a blank picture${size(json.bytes.theirs)}`,
          '',
        ]);
      else
        rows.push(
          json
            ? [
                what,
                peer,
                time(json.mine) + size(json.bytes.mine),
                time(json.theirs) + size(json.bytes.theirs),
                (json.theirs / json.mine).toFixed(1),
              ]
            : [what, peer, '', failure(result), ''],
        );
      console.log(rows[rows.length - 1].join(' | '));
    }
  }
  const PRESSES = 50000;
  const [own, other] = [
    await inDesktop(SIZES[0], burst, ['', PRESSES]),
    await inDesktop(SIZES[0], burst, ['uiohook-napi', PRESSES]),
  ];
  const told = ({ json, ...result }) =>
    json ? `${json.cost.toFixed(0)} µs of processor, ${json.lost} lost` : failure(result);
  rows.push([
    `a key of a burst of ${PRESSES.toLocaleString('en')}`,
    'uiohook-napi',
    told(own),
    told(other),
    own.json && other.json ? (other.json.cost / own.json.cost).toFixed(1) : '',
  ]);
  console.log(rows[rows.length - 1].join(' | '));

  const line = (cells) => `| ${cells.join(' | ')} |`;
  const version = execFileSync('lsb_release', ['-ds'], { encoding: 'utf8' }).trim();
  const text = [
    MARKS[0],
    line(['Piece', 'Beside', 'This module', 'The other', 'Times the module']),
    line(['---', '---', '---', '---', '---']),
    ...rows.map(line),
    '',
    `${new Date().toISOString().slice(0, 10)}, ${os.cpus().length} shared cores (${os.cpus()[0].model.trim()}), ${version}, Node ${process.version}, Xvfb.`,
    MARKS[1],
  ].join('\n');
  if (!process.argv.includes('--readme')) return;
  const readme = path.join(ROOT, 'README.md');
  const whole = fs.readFileSync(readme, 'utf8');
  const [from, to] = [whole.indexOf(MARKS[0]), whole.indexOf(MARKS[1])];
  fs.writeFileSync(readme, whole.slice(0, from) + text + whole.slice(to + MARKS[1].length));
}

main().catch((error) => {
  console.error(error);
  process.exit(1);
});
