'use strict';

const assert = require('assert');
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { after, before, test } = require('node:test');
const { makeBox, needBox } = require('./helpers/box');
const { runCase, startCase } = require('./helpers/case');
const { alive, baseEnv } = require('./helpers/processes');
const { need } = require('./helpers/need');
const { startSession } = require('./helpers/session');
const { until } = require('./helpers/until');

/* global internals */
const noBox = needBox();
let box;
before(() => { box = makeBox(); });
after(() => box.remove());
const copy = (name) => fs.readFileSync(path.join(__dirname, 'data', `upgrade_${name}.txt`), 'utf8');
function kill(pid) {
  if (!alive(pid)) return;
  try {
    const children = fs.readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8').split(' ').filter(Boolean);
    process.kill(pid, 'SIGKILL');
    children.forEach((child) => kill(Number(child)));
  } catch (error) { /* it ended by itself */ }
}

/** A script ends by itself once the process that it waits for has ended. */
async function ended(pids) {
  try {
    for (const pid of pids) await until(() => !alive(pid), { timeout: 30000, what: `the end of script ${pid}` });
  } finally {
    pids.forEach(kill);
  }
}

// upgrade() with these variables; a started script's arguments. `stop` ends it at once.
const upgradeCase = async (calls, stop) => {
  const fs = require('fs');
  const lines = [];
  kiv.setupLogger((level, text) => lines.push(`${level} ${text}`));
  const seen = [];
  for (const { env = {}, args, cwd } of calls) {
    Object.keys(env).forEach((name) => {
      if (env[name] === null) delete process.env[name]; else process.env[name] = env[name];
    });
    if (cwd) process.chdir(cwd);
    const result = kiv.upgrade(...args);
    const line = lines.splice(0).join('\n');
    const pid = Number((/^info Process started:(\d+)$/.exec(line) || [])[1]);
    const entry = { result, line, pid };
    if (pid) {
      const read = () => fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8');
      // The program's arguments appear a moment after the call.
      await until(() => /^.bin.bash\0-c\0/.test(read()), { what: 'a script' });
      entry.argv = read().split('\0').slice(0, -1);
      if (stop) process.kill(pid, 'SIGKILL');
    }
    seen.push(entry);
  }
  report(seen);
};

async function upgrades(calls, { stop = true, node, env } = {}) {
  // Even a script that a failing case left behind finds nothing to install with.
  const safe = { ...baseEnv(), HOME: box.inside('home'), KIV_RECORD: '/dev/null', KIV_NOW: String(process.pid) };
  const idle = fs.existsSync(box.inside('idle')) ? box.inside('idle') : box.path('idle', []);
  const first = { PATH: idle, XTRM: null, SU: null };
  const { json, stderr } = await runCase(upgradeCase, {
    env: { ...safe, ...env },
    args: [calls.map((call) => ({ ...call, env: { ...first, ...call.env } })), stop],
    node,
  });
  assert.ok(json, stderr);
  return json;
}

test('the built templates are the known ones, line by line', async () => {
  const { json } = await runCase((files) => {
    report(files.map((name) => internals.template(name).toString('latin1').split('\n')));
  }, { env: baseEnv(), args: [['deb', 'rh']] });
  assert.deepStrictEqual(json, ['deb', 'rh'].map((name) => copy(name).split('\n')));
});

test('what the build turns into arrays is in the package', { skip: need('npm') }, () => {
  const args = ['pack', '--dry-run', '--json', '--offline', '--ignore-scripts', '--cache', box.inside('npm')];
  const [{ files }] = JSON.parse(execFileSync('npm', args, { cwd: path.join(__dirname, '..'), encoding: 'utf8', stdio: 'pipe', timeout: 60000 }));
  const names = files.map((file) => file.path);
  for (const name of ['src/embed_text.js', ...['deb', 'rh'].map((one) => `src/cpp/linux/upgrade_script_template_${one}.sh`)]) {
    assert.ok(names.includes(name), name);
  }
});

test('a value that looks like a placeholder is not filled in again', async () => {
  const { json } = await runCase(() => {
    report(internals.script('deb', '${upgradePath}${kBinaryAppName}', '${uid_gid}'));
  }, { env: baseEnv() });
  assert.ok(json.includes('-i\\ ${upgradePath}brenik\\ 2'), json);
  assert.ok(json.includes(`tee\\ ${process.getuid()}:${process.getgid()};`), json);
});

test('paths that are refused leave nothing behind', async () => {
  const cwd = box.inside('refused');
  fs.mkdirSync(path.join(cwd, 'folder.deb'), { recursive: true });
  for (const name of ['a.tar', 'deb', '-a.deb', 'with blank.deb', 'adeb']) fs.writeFileSync(path.join(cwd, name), '');
  execFileSync('mkfifo', [path.join(cwd, 'fifo.deb')]);
  fs.symlinkSync('nowhere', path.join(cwd, 'dangling.deb'));
  const home = path.join(cwd, 'home');
  const fn = 'error Upgrade: fn-error';
  const plain = [...' \t\n!"#$&\'()*;<>?[\\]^`{|}\0'].map((character) => [[`a${character}b.deb`], fn]);
  const calls = [
    [['deb'], fn], [[''], fn], [['-a.deb'], fn], [['with blank.deb'], fn], ...plain,
    [[], 'error Upgrade: fi-error:2'], [['missing.deb'], 'error Upgrade: fi-error:2'],
    [['dangling.deb'], 'error Upgrade: fi-error:2'], [['a.tar/b.deb'], 'error Upgrade: fi-error:20'],
    [[`${'x'.repeat(300)}.deb`], 'error Upgrade: fi-error:36'],
    [['folder.deb'], 'error Upgrade: nf-error'], [['fifo.deb'], 'error Upgrade: nf-error'],
    [['/dev/null'], 'error Upgrade: nf-error'],
    [['a.tar'], 'error Upgrade: ext-error'], [['adeb'], 'error Upgrade: ext-error'],
  ];
  const bad = ['with blank', '-option', 'dollar$HOME'].map((name) => path.join(name === '-option' ? '' : cwd, name));
  fs.writeFileSync(path.join(cwd, 'good.deb'), '');
  const json = await upgrades([
    ...calls.map(([args]) => ({ args, cwd, env: { HOME: home } })),
    ...bad.map((name) => ({ args: ['good.deb'], cwd, env: { HOME: name } })),
  ]);
  const expected = [...calls, ...bad.map(() => [null, fn])].map(([, line]) => ({ result: -1, line, pid: null }));
  assert.deepStrictEqual(json, expected);
  assert.deepStrictEqual(fs.readdirSync(cwd).filter((name) => !name.endsWith('deb')), ['a.tar']);
});

test('the script: one line, values, log, relaunch', async () => {
  const cwd = box.inside('start');
  fs.mkdirSync(cwd);
  const home = path.join(cwd, 'home');
  fs.mkdirSync(home);
  const names = ['a.deb', '.deb', 'UPPER.DEB', 'b.rpm', 'Grüße_日本~1:2@3%4=5,6+7-8.Rpm', 'link.deb'];
  for (const name of names.slice(0, -1)) fs.writeFileSync(path.join(cwd, name), '');
  fs.symlinkSync('a.deb', path.join(cwd, 'link.deb'));
  const calls = [
    ...names.map((name) => [[name], false]),
    [['a.deb', 1], true], [['a.deb', ''], false], [['b.rpm', true], true], [['a.deb', undefined], false],
  ];
  const before = Math.floor(Date.now() / 1000);
  const json = await upgrades(calls.map(([args]) => ({ args, cwd, env: { HOME: home, TZ: 'Asia/Kathmandu' } })));
  const log = new RegExp(`${home}/\\.Brenik/Brenik/Logs/brenik_(\\d{4})(\\d\\d)(\\d\\d)_(\\d\\d)(\\d\\d)(\\d\\d)\\.log`);
  json.forEach(({ result, argv }, i) => {
    const [[name], relaunch] = calls[i];
    const [bash, option, script] = argv;
    assert.deepStrictEqual([result, bash, option, argv.length], [0, '/bin/bash', '-c', 3]);
    const [file, ...time] = log.exec(script);
    const [year, month, day, hour, minute, second] = time.map(Number);
    const seconds = Date.UTC(year, month - 1, day, hour, minute - 345, second) / 1000;
    assert.ok(seconds >= before && seconds <= Date.now() / 1000, file);
    const values = { upgradePath: name, kBinaryAppName: 'brenik', debug_output_reroute: file };
    const wanted = copy(/deb$/i.test(name) ? 'deb' : 'rh').replace(/\n/g, ' ')
      .replace(/\$\{(\w+)\}/g, (whole, key) => values[key] || whole) + (relaunch ? '; brenik' : '');
    const waitedFor = /^while ps -p (\d+) /.exec(script)[1];
    assert.strictEqual(script, wanted.replace('${pid_wait_for}', waitedFor));
    execFileSync('/bin/bash', ['-n', '-c', script]);
  });
  for (const name of ['.Brenik', '.Brenik/Brenik', '.Brenik/Brenik/Logs']) {
    assert.strictEqual(fs.statSync(path.join(home, name)).mode & 0o777, 0o755 & ~process.umask());
  }
  assert.deepStrictEqual(fs.readdirSync(path.join(home, '.Brenik/Brenik/Logs')), []);
});

test('the script inherits three descriptors on /dev/null, signals and group, from a busy host', async () => {
  const session = await startSession();
  const node = box.inside('crowded');
  // Node marks what it inherits, but stops at the first gap.
  fs.writeFileSync(node, `#!/bin/bash\nulimit -n 4096\nexec 700</dev/null 1500</dev/null\nexec '${process.execPath}' "$@"\n`, { mode: 0o755 });
  fs.writeFileSync(box.inside('busy.deb'), '');
  try {
    const { json, stderr } = await runCase(async (file, home, PATH) => {
      const fs = require('fs');
      host.startLoop();
      kiv.init();
      kiv.getScreenSnap('desktop');
      process.on('SIGUSR2', () => {});
      const links = (pid) => fs.readdirSync(`/proc/${pid}/fd`).map((name) => [name, fs.readlinkSync(`/proc/${pid}/fd/${name}`)]);
      const signals = (pid) => ['SigBlk', 'SigIgn', 'SigCgt'].map((name) =>
        new RegExp(`${name}:\\s+(\\w+)`).exec(fs.readFileSync(`/proc/${pid}/status`, 'utf8'))[1]);
      const group = (pid) => /^\d+ \(.*\) . (\d+ \d+ \d+)/.exec(fs.readFileSync(`/proc/${pid}/stat`, 'utf8'))[1].split(' ').slice(1);
      const inheritable = (fd) => !(parseInt(/flags:\s+(\d+)/.exec(fs.readFileSync(`/proc/self/fdinfo/${fd}`, 'utf8'))[1], 8) & 0o2000000);
      const before = signals('self');
      let pid;
      kiv.setupLogger((level, text) => { pid = Number(text.split(':')[1]); });
      Object.assign(process.env, { HOME: home, PATH, KIV_RECORD: '/dev/null' });
      kiv.upgrade(file);
      await until(() => links(pid).length <= 3, { what: 'a script with three descriptors' });
      // Bash changes its own signals and gives the inherited ones to what it runs.
      const tools = () => fs.readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8').split(' ').filter(Boolean);
      const clean = (child) => { try { return String(signals(child).slice(0, 2)) === String(before.slice(0, 2)); } catch (error) { return false; } };
      await until(() => tools().some(clean), { what: 'a tool of the script with the signals of the host' });
      report({ links: links(pid), crowd: [700, 1500].every(inheritable), groups: [group('self'), group(pid)],
        kept: [before, signals('self')] });
      process.kill(pid, 'SIGKILL');
      kiv.teardown();
    }, { env: session.env, node, args: [box.inside('busy.deb'), box.inside('home'), box.path('busy', [])] });
    assert.ok(json, stderr);
    assert.deepStrictEqual(json.links, ['0', '1', '2'].map((name) => [name, '/dev/null']));
    assert.strictEqual(json.crowd, true);
    assert.deepStrictEqual(json.groups[0], json.groups[1]);
    assert.deepStrictEqual(json.kept[0], json.kept[1]);
  } finally {
    await session.stop();
  }
});

// What a run is expected to call, in order.
const sudo = (...words) => [['sudo', ...words], [path.basename(words[0]), ...words.slice(1)]];
const debCommand = ({ file, log }) => `set -o pipefail;/usr/bin/sudo /usr/bin/dpkg -i ${file} 2>&1|tee ${log}`
  + ` || /usr/bin/apt-get install -f -y 2>&1|tee -a ${log}`;
const zypperSteps = (pm, file) => [[pm, 'remove', '-y', 'brenik'], [pm, 'clean', '--all'], [pm, 'install', '-y', '-f', file]];
const otherSteps = (pm, file) => [[pm, '-y', 'remove', 'brenik'], [pm, '-y', 'install', file]];
const rpmSteps = ({ file, at }, name) => (name === 'zypper' ? zypperSteps : otherSteps)(at(name), file);
const rpmCommand = (run, name) => `set -o pipefail;set -x;${rpmSteps(run, name)
  .map((words, i) => `sudo ${words.join(' ')} 2>&1|tee ${i ? '-a ' : ''}${run.log}`).join(';')}`;
const rpmCalls = (run, name) => rpmSteps(run, name).flatMap((words) => sudo(...words));
const inWindow = (command, { flag }) => `${command};read -n 1 -p Press\\ any\\ key\\ to\\ close...\\ ; echo OK >${flag}`;
const failure = ({ log }) => ['notify-send', 'brenik-updater: There was an error.', `For more information look at:"${log}"`];
const notice = (text) => ['notify-send', `brenik-updater: no ${text} found`];
const quoted = (text) => execFileSync('/bin/bash', ['-c', 'printf %q "$1"', '-', text], { encoding: 'utf8' });
const XTERM = ['xterm', '-e', '/bin/bash', '-l', '-c'];
const KONSOLE = ['konsole', '-e', '/bin/bash', '-c'];
const GNOME = ['gnome-terminal', '-x', '/bin/bash', '-c'];
const dpkg = (run) => sudo('/usr/bin/dpkg', '-i', run.file);
const apt = ['apt-get', 'install', '-f', '-y'];
const ALL = ['pkexec', 'gksu', 'beesu', 'kdesu'];
const TERMINALS = ['xterm', 'konsole', 'gnome-terminal'];
const deb = (what, tools, calls, more) => ({ what, tools, calls, log: 'dpkg\n', ...more, file: 'a.deb' });
const rpm = (what, tools, calls, more) => ({ what, tools: ['sudo', ...tools], calls, ...more, file: 'a.rpm' });
const debWindow = (terminal) => (run) => [[...terminal, inWindow(debCommand(run), run)], ...dpkg(run)];
const rpmWindow = (terminal, name) => (run) => [[...terminal, inWindow(rpmCommand(run, name), run)], ...rpmCalls(run, name)];

const BRANCHES = [
  deb('pkexec before the others', [...ALL, ...TERMINALS], (run) => [['pkexec', '/bin/bash', '-c', debCommand(run)], ...dpkg(run)]),
  deb('gksu gets one string', ['gksu', 'kdesu'], (run) => [['gksu', `/bin/bash -c ${quoted(debCommand(run))}`], ...dpkg(run)]),
  deb('xterm before the others', TERMINALS, debWindow(XTERM)),
  deb('konsole before gnome-terminal', TERMINALS.slice(1), debWindow(KONSOLE)),
  deb('gnome-terminal', ['gnome-terminal', 'beesu', 'kdesu'], debWindow(GNOME)),
  deb('nothing to run with', [], () => [notice('terminal emulator')], { relaunch: true, log: null, flag: '' }),
  deb('dpkg fails, apt-get repairs', ['pkexec'], (run) => [['pkexec', '/bin/bash', '-c', debCommand(run)], ...dpkg(run), apt],
    { env: { STATUS_dpkg: '1' }, log: 'dpkg failed\napt-get\n' }),
  deb('both fail, and a relaunch all the same', ['pkexec'],
    (run) => [['pkexec', '/bin/bash', '-c', debCommand(run)], ...dpkg(run), apt, failure(run), ['brenik']],
    { env: { STATUS_dpkg: '1', STATUS_apt_get: '100' }, log: 'dpkg failed\napt-get failed\n', relaunch: true }),
  deb('the tool refuses', ['pkexec'], (run) => [['pkexec', '/bin/bash', '-c', debCommand(run)], failure(run)],
    { env: { STATUS_pkexec: '126' }, log: null }),
  deb('the environment names the tool', [...ALL, 'other-su'], (run) => [['other-su', '/bin/bash', '-c', debCommand(run)], ...dpkg(run)],
    { env: { SU: 'other-su' } }),
  deb('the environment names the terminal', ['xterm', 'other-term'], (run) => [['other-term', inWindow(debCommand(run), run)], ...dpkg(run)],
    { env: { XTRM: 'other-term' } }),
  // One look at the clock for the flag file's name, one for the start, one for each round.
  deb('a window closed by its user', ['xterm'], (run) => [[...XTERM, inWindow(debCommand(run), run)], ['brenik']],
    { env: { STATUS_xterm: '0', KIV_STEP: '100' }, log: null, relaunch: true, clock: 9 }),
  rpm('pkexec, and zypper before the others', ['pkexec', 'beesu', 'zypper', 'dnf', 'yum'],
    (run) => [['pkexec', '/bin/bash', '-c', rpmCommand(run, 'zypper')], ...rpmCalls(run, 'zypper')], { log: 'zypper\nzypper\nzypper\n' }),
  rpm('beesu before kdesu, and dnf before yum', ['beesu', 'kdesu', 'dnf', 'yum'],
    (run) => [['beesu', '-c', `/bin/bash -c "${rpmCommand(run, 'dnf')}"`], ...rpmCalls(run, 'dnf')], { log: 'dnf\ndnf\n' }),
  rpm('kdesu and yum', ['kdesu', 'gksu', 'yum'],
    (run) => [['kdesu', '-c', `/bin/bash -c "${rpmCommand(run, 'yum')}"`], ...rpmCalls(run, 'yum')], { log: 'yum\nyum\n' }),
  rpm('konsole before the others', [...TERMINALS, 'zypper'], rpmWindow(KONSOLE, 'zypper')),
  rpm('xterm before gnome-terminal, and a relaunch', ['xterm', 'gnome-terminal', 'yum'],
    (run) => [...rpmWindow(XTERM, 'yum')(run), ['brenik']], { relaunch: true }),
  rpm('gnome-terminal', ['gnome-terminal', 'dnf'], rpmWindow(GNOME, 'dnf')),
  rpm('no package manager', ['pkexec', 'xterm'], () => [notice('package manager')], { relaunch: true }),
  rpm('nothing to run with', ['dnf'], () => [notice('terminal emulator')], { relaunch: true, flag: '' }),
  rpm('the installation fails', ['pkexec', 'dnf'],
    (run) => [['pkexec', '/bin/bash', '-c', rpmCommand(run, 'dnf')], ...rpmCalls(run, 'dnf'), failure(run)], { env: { STATUS_dnf: '3' } }),
  rpm('a window closed by its user', ['xterm', 'dnf'], (run) => [[...XTERM, inWindow(rpmCommand(run, 'dnf'), run)]],
    { env: { STATUS_xterm: '0', KIV_STEP: '100' }, clock: 4 }),
];

test('every branch of both scripts', { skip: noBox }, async () => {
  const runs = BRANCHES.map(({ file, tools, env, relaunch }, i) => {
    const folder = box.path(`branch${i}`, tools);
    const inside = (name) => path.join(folder, name);
    const now = 100000 + i * 10000;
    fs.writeFileSync(inside(file), '');
    const variables = { HOME: folder, PATH: folder, KIV_RECORD: inside('record'), KIV_CLOCK: inside('clock'), KIV_NOW: String(now), KIV_STEP: '0' };
    const given = Object.fromEntries(['SU', 'XTRM'].filter((name) => env && env[name]).map((name) => [name, inside(env[name])]));
    for (const name of ['dpkg', 'apt_get', 'pkexec', 'xterm', 'dnf']) variables[`STATUS_${name}`] = null;
    return { now, file: inside(file), at: inside, flag: `/tmp/brenik-${now}`,
      call: { args: [inside(file), relaunch], env: { ...variables, ...env, ...given } } };
  });
  const started = await upgrades(runs.map(({ call }) => call), { stop: false, node: box.node });
  await ended(started.map(({ pid }) => pid));
  BRANCHES.forEach(({ what, file, calls, log, flag, clock }, i) => {
    const run = runs[i];
    const name = `${file}: ${what}`;
    run.log = /\/[^ ]+\.log/.exec(started[i].argv[2])[0];
    const lines = fs.readFileSync(run.at('record'), 'utf8').split('\n').slice(0, -1);
    assert.deepStrictEqual(lines.map((line) => line.split('\x1f').slice(0, -1)), calls(run), name);
    const read = (where) => (fs.existsSync(where) ? fs.readFileSync(where, 'utf8') : null);
    if (log !== undefined) assert.strictEqual(read(run.log), log, name);
    assert.strictEqual(read(path.join(box.tmp, `brenik-${run.now}`)), flag === undefined ? null : flag, name);
    if (clock) assert.strictEqual(Number(read(run.at('clock'))), run.now + 100 * clock, name);
  });
});

test('a real package that took the place of the checked one is installed and its command started', { skip: noBox }, async () => {
  const real = makeBox({ machine: ['sudo'] });
  try {
    const tree = real.inside('tree');
    fs.mkdirSync(path.join(tree, 'DEBIAN'), { recursive: true });
    fs.mkdirSync(path.join(tree, 'usr/bin'), { recursive: true });
    fs.writeFileSync(path.join(tree, 'DEBIAN/control'),
      'Package: brenik\nVersion: 1.2.3\nArchitecture: all\nMaintainer: nobody <nobody@localhost>\nDescription: test\n');
    fs.writeFileSync(path.join(tree, 'usr/bin/brenik'),
      `#!/bin/sh\ndpkg-query -W -f '\${Status} \${Version}' brenik >'${real.inside('relaunched')}'\n`, { mode: 0o755 });
    execFileSync('dpkg-deb', ['--root-owner-group', '--build', tree, real.inside('built.deb')], { stdio: 'pipe', timeout: 20000 });
    const tools = real.path('tools', ['pkexec']);
    fs.unlinkSync(path.join(tools, 'brenik'));
    const file = real.inside('update.deb');
    fs.writeFileSync(file, 'not yet a package');
    const env = { HOME: real.inside('home'), PATH: `${tools}:/usr/sbin:/usr/bin:/sbin:/bin`,
      KIV_RECORD: real.inside('record'), KIV_CLOCK: real.inside('clock'), KIV_NOW: '1', KIV_STEP: '0' };
    const waiting = startCase(async (variables, args) => {
      const fs = require('fs');
      Object.assign(process.env, variables);
      kiv.setupLogger((level, text) => report(Number(text.split(':')[1])));
      kiv.upgrade(...args);
      await until(() => fs.existsSync(`${args[0]}.ready`), { what: 'the other package' });
    }, { env: { ...baseEnv(), HOME: env.HOME }, node: real.node, args: [env, [file, true]] });
    const script = await waiting.reported();
    fs.renameSync(real.inside('built.deb'), file);
    assert.strictEqual(fs.existsSync(real.inside('record')), false, 'it waits for the application');
    fs.writeFileSync(`${file}.ready`, '');
    await waiting.done;
    await ended([script]);
    assert.strictEqual(fs.readFileSync(real.inside('relaunched'), 'utf8'), 'install ok installed 1.2.3');
    assert.notStrictEqual(spawnSync('dpkg-query', ['-W', 'brenik']).status, 0, 'the machine is as it was');
    const logs = real.inside('home/.Brenik/Brenik/Logs');
    assert.match(fs.readdirSync(logs).map((name) => fs.readFileSync(path.join(logs, name), 'utf8')).join(''), /Setting up brenik/);
  } finally {
    real.remove();
  }
});

test('failures in the child, and a home from the user database', { skip: noBox }, async () => {
  fs.writeFileSync(box.inside('child.deb'), '');
  const { json, stderr } = await runCase(async (file, PATH) => {
    const fs = require('fs');
    const { execFileSync } = require('child_process');
    let pid;
    kiv.setupLogger((level, text) => { pid = Number(text.split(':')[1]); });
    const state = () => /^\d+ \(.*\) (.)/.exec(fs.readFileSync(`/proc/${pid}/stat`, 'utf8'))[1];
    execFileSync('mount', ['-t', 'tmpfs', 'none', '/proc']);
    const unlisted = kiv.upgrade(file);
    execFileSync('umount', ['/proc']);
    await until(() => state() === 'Z', { what: 'the end of the first child' });
    execFileSync('mount', ['--bind', '/dev/null', '/usr/bin/bash']);
    const unstarted = kiv.upgrade(file);
    await until(() => state() === 'Z', { what: 'the end of the second child' });
    execFileSync('umount', ['/usr/bin/bash']);
    const homes = [];
    for (const home of [undefined, '']) {
      process.env.PATH = PATH;
      if (home === undefined) delete process.env.HOME; else process.env.HOME = home;
      kiv.upgrade(file);
      const read = () => fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8');
      await until(() => read().includes('.log'), { what: 'a script' });
      homes.push(/tee\\ (.*?)\/\.Brenik/.exec(read())[1]);
      process.kill(pid, 'SIGKILL');
    }
    report({ unlisted, unstarted, homes });
  }, { env: { ...baseEnv(), HOME: box.inside('home'), KIV_RECORD: '/dev/null' }, node: box.node, args: [box.inside('child.deb'), box.path('child', [])] });
  const home = os.userInfo().homedir;
  assert.deepStrictEqual(json, { unlisted: 0, unstarted: 0, homes: [home, home] }, stderr);
  assert.strictEqual(stderr, '[error] Upgrade start process fail2\n');
});

test('no process to be had', async () => {
  const node = box.inside('limited');
  const nobody = process.getuid() === 0 ? 'setpriv --reuid=65534 --regid=65534 --clear-groups ' : '';
  fs.writeFileSync(node, `#!/bin/bash\nexec ${nobody}'${process.execPath}' "$@"\n`, { mode: 0o755 });
  fs.writeFileSync(box.inside('limit.deb'), '');
  const { json, stderr } = await runCase((file) => {
    let seen;
    kiv.setupLogger((level, text) => { seen = `${level} ${text}`; });
    require('child_process').execFileSync('prlimit', ['--pid', String(process.pid), '--nproc=1']);
    report([kiv.upgrade(file), seen]);
  }, { env: { ...baseEnv(), HOME: box.inside('home') }, node, args: [box.inside('limit.deb')], leaks: false });
  assert.deepStrictEqual(json, [-1, 'error Start porcess error:11'], stderr);
});
