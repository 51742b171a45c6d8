'use strict';

const assert = require('assert');
const { execFileSync, spawnSync } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { after, before, test } = require('node:test');
const { makeBox, needBox } = require('./helpers/box');
const { runCase, startCase } = require('./helpers/case');
const { NODE, alive, baseEnv } = require('./helpers/processes');
const { inSession, look } = require('./helpers/suite');
const { until } = require('./helpers/until');

const noBox = needBox();
let box;
let idle;
before(() => {
  box = makeBox();
  idle = box.path('idle', []);
});
after(() => box.remove());
// They run with an administrator's rights: not a byte changes by accident.
const TEMPLATES = {
  deb: '1ef624bb39e5dceacd791a08acc2779c7abf27b20b60baf8a351dcaff316e658',
  rh: '06c379bf15b951a29c0b65ae3bcb622611965834f10f9fb70d61ffcfbb6e640e',
};
function template(name) {
  const text = fs.readFileSync(path.join(__dirname, `../src/cpp/linux/upgrade_script_template_${name}.sh`), 'utf8');
  assert.strictEqual(crypto.createHash('sha256').update(text).digest('hex'), TEMPLATES[name]);
  return text;
}
const write = (file, text = '') => {
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(file, text, { mode: 0o755 });
  return file;
};
const wrapper = (name, text) => write(box.inside(name), `#!/bin/bash\n${text}'${NODE}' "$@"\n`);
// Even a script that a failing case left behind finds nothing to install with.
const safe = () => ({ HOME: box.inside('home'), PATH: idle, KIV_RECORD: '/dev/null', KIV_NOW: String(process.pid) });

/** A script ends by itself once the process that it waits for has ended. */
async function ended(pids) {
  try {
    for (const pid of pids) await until(() => !alive(pid), { what: `the end of script ${pid}` });
  } finally {
    for (const pid of pids.filter(alive)) process.kill(pid, 'SIGKILL');
  }
}

// upgrade() with these variables; a started script's arguments. `stop` ends it at once.
const upgradeCase = async (calls, stop) => {
  const fs = require('fs');
  const lines = [];
  kiv.setupLogger((level, text) => lines.push(`${level} ${text}`));
  const seen = [];
  for (const { env = {}, args, cwd = '/' } of calls) {
    Object.assign(process.env, env);
    process.chdir(cwd);
    const entry = { result: kiv.upgrade(...args), line: lines.splice(0).join('\n') };
    entry.pid = Number((/^info Process started:(\d+)$/.exec(entry.line) || [])[1]);
    if (entry.pid) {
      const read = () => fs.readFileSync(`/proc/${entry.pid}/cmdline`, 'utf8');
      // The program's arguments appear a moment after the call.
      await until(() => /^.bin.bash\0-c\0/.test(read()), { what: 'a script' });
      entry.argv = read().split('\0').slice(0, -1);
      if (stop) process.kill(entry.pid, 'SIGKILL');
    }
    seen.push(entry);
  }
  report(seen);
};
const upgrades = (calls, { stop = true, node } = {}) =>
  look(upgradeCase, { args: [calls.map((call) => ({ ...call, env: { ...safe(), ...call.env } })), stop], node });

test('a value that looks like a placeholder is not filled in again', async () => {
  const script = await look(() => report(internals.script('${kBinaryAppName}${upgradePath}', '${uid_gid}')));
  assert.ok(script.includes('-i\\ brenik${upgradePath}\\ 2'), script);
  assert.ok(script.includes(`tee\\ ${process.getuid()}:${process.getgid()};`), script);
});

test('paths that are refused leave nothing behind', async () => {
  const cwd = box.inside('refused');
  const names = ['a.tar', 'deb', '-a.deb', 'with blank.deb', 'adeb', 'good.deb', 'folder.deb/x'];
  for (const name of names) write(path.join(cwd, name));
  execFileSync('mkfifo', [path.join(cwd, 'fifo.deb')]);
  fs.symlinkSync('nowhere', path.join(cwd, 'dangling.deb'));
  const home = path.join(cwd, 'home');
  const reasons = {
    'fn-error': ['deb', '', '-a.deb', '~root/a.deb', 'x:~root/a.deb', 'a=~/b.deb', 'a/~/b.deb', 'é~b.deb', ...[...' \t\n!"#$&\'()*;<>?[\\]^`{|}\0'].map((one) => `a${one}b.deb`)],
    'fi-error:2': [undefined, 'missing.deb', 'dangling.deb'],
    'fi-error:20': ['a.tar/b.deb'],
    'fi-error:36': [`${'x'.repeat(300)}.deb`],
    'nf-error': ['folder.deb', 'fifo.deb', '/dev/null'],
    'ext-error': ['a.tar', 'adeb'],
  };
  const calls = Object.entries(reasons).flatMap(([line, names]) => names.map((name) => [line, name, home]))
    .concat([`${cwd}/with blank`, '-option', `${cwd}/dollar$HOME`, '~', 'x:~root'].map((folder) => ['fn-error', 'good.deb', folder]));
  const json = await upgrades(calls.map(([, name, HOME]) => ({ args: name === undefined ? [] : [name], cwd,
    env: { HOME } })));
  assert.deepStrictEqual(json, calls.map(([line]) => ({ result: -1, line: `error Upgrade: ${line}`, pid: null })));
  assert.deepStrictEqual(fs.readdirSync(cwd).filter((name) => !name.endsWith('deb')), ['a.tar']);
});

test('the script: one line, values, log, relaunch', async () => {
  const cwd = box.inside('start');
  const home = path.join(cwd, 'home');
  fs.mkdirSync(home, { recursive: true });
  const calls = [['a.deb', false], ['.deb', ''], ['UPPER.DEB', 1], ['b.rpm', true], ['Grüße_日本1~1:2@3%4=5,6+7-8.Rpm']];
  for (const [name] of calls) write(path.join(cwd, name));
  fs.symlinkSync('a.deb', path.join(cwd, 'link.deb'));
  calls.push(['link.deb']);
  const earliest = Math.floor(Date.now() / 1000);
  const json = await upgrades(calls.map((args) => ({ args, cwd, env: { HOME: home, TZ: 'Asia/Kathmandu' } })));
  const log = new RegExp(`${home}/\\.Brenik/Brenik/Logs/brenik_(\\d{4})(\\d\\d)(\\d\\d)_(\\d\\d)(\\d\\d)(\\d\\d)\\.log`);
  json.forEach(({ result, argv: [bash, option, script, ...more] }, i) => {
    const [name, relaunch] = calls[i];
    assert.deepStrictEqual([result, bash, option, more], [0, '/bin/bash', '-c', []]);
    const [file, year, month, ...time] = log.exec(script);
    const [day, hour, minute, second] = time.map(Number);
    const seconds = Date.UTC(Number(year), Number(month) - 1, day, hour, minute - 345, second) / 1000;
    assert.ok(seconds >= earliest && seconds <= Date.now() / 1000, file);
    const values = { upgradePath: name, kBinaryAppName: 'brenik', debug_output_reroute: file,
      pid_wait_for: /^while ps -p (\d+) /.exec(script)[1] };
    const wanted = template(/deb$/i.test(name) ? 'deb' : 'rh').replace(/\n/g, ' ')
      .replace(/\$\{(\w+)\}/g, (whole, key) => values[key] || whole);
    assert.strictEqual(script, wanted + (relaunch ? '; brenik' : ''));
  });
  for (const name of ['.Brenik', '.Brenik/Brenik', '.Brenik/Brenik/Logs']) {
    assert.strictEqual(fs.statSync(path.join(home, name)).mode & 0o777, 0o755 & ~process.umask());
  }
});

test('what the script inherits from a busy host: signals, group, no descriptor', () => inSession({}, async ({ env }) => {
  // Node marks what it inherits, but stops at the first gap.
  const node = wrapper('crowded', 'ulimit -n 4096\nexec 700</dev/null 1500</dev/null\nexec ');
  const { links, crowd, groups, signals } = await look(async (file, variables) => {
    const fs = require('fs');
    host.startLoop();
    kiv.init();
    kiv.getScreenSnap('desktop');
    process.on('SIGUSR2', () => {});
    const proc = (...parts) => fs.readFileSync(['/proc', ...parts].join('/'), 'utf8');
    const masks = (pid) => proc(pid, 'status').match(/^Sig(Blk|Ign|Cgt):.*$/gm);
    const group = (pid) => /^\d+ \(.*\) . \d+ (\d+ \d+)/.exec(proc(pid, 'stat'))[1];
    const inheritable = (fd) => !(parseInt(/flags:\s+(\d+)/.exec(proc('self', 'fdinfo', fd))[1], 8) & 0o2000000);
    const before = masks('self');
    let pid;
    kiv.setupLogger((level, text) => { pid = Number(text.split(':')[1]); });
    Object.assign(process.env, variables);
    kiv.upgrade(file);
    const descriptors = () => fs.readdirSync(`/proc/${pid}/fd`);
    await until(() => descriptors().length <= 3, { what: 'a script with three descriptors' });
    // Bash changes its own signals and gives the inherited ones to what it runs.
    const clean = () => proc(pid, 'task', pid, 'children').split(' ').filter(Boolean)
      .some((child) => String(masks(child).slice(0, 2)) === String(before.slice(0, 2)));
    // A tool may end while it is looked at.
    await until(() => { try { return clean(); } catch (error) { return false; } }, { what: 'a tool with the host\'s signals' });
    report({ links: descriptors().map((name) => [name, fs.readlinkSync(`/proc/${pid}/fd/${name}`)]),
      crowd: [700, 1500].every(inheritable), groups: [group('self'), group(pid)], signals: [before, masks('self')] });
    process.kill(pid, 'SIGKILL');
    kiv.teardown();
  }, { env, node, args: [write(box.inside('busy.deb')), safe()] });
  assert.deepStrictEqual([links, crowd], [['0', '1', '2'].map((name) => [name, '/dev/null']), true]);
  assert.deepStrictEqual([groups[0], signals[0]], [groups[1], signals[1]]);
}));

// What a run calls: FILE, LOG, FLAG and AT (its folder) are its own, the words below stand for more.
const TEE = '2>&1|tee LOG';
const MORE = '2>&1|tee -a LOG';
const DEB = `set -o pipefail;/usr/bin/sudo /usr/bin/dpkg -i FILE ${TEE} || /usr/bin/apt-get install -f -y ${MORE}`;
const called = (tool, ...calls) => calls.map((call) => `sudo AT/${tool} ${call}\n${tool} ${call}`).join('\n');
const WORDS = {
  DEB,
  QUOTED: execFileSync('/bin/bash', ['-c', 'printf %q "$1"', '-', DEB], { encoding: 'utf8' }),
  DNF: `set -o pipefail;set -x;sudo AT/dnf -y remove brenik ${TEE};sudo AT/dnf -y install FILE ${MORE}`,
  ZYPPER: `set -o pipefail;set -x;sudo AT/zypper remove -y brenik ${TEE};sudo AT/zypper clean --all ${MORE};`
    + `sudo AT/zypper install -y -f FILE ${MORE}`,
  WINDOW: ';read -n 1 -p Press\\ any\\ key\\ to\\ close...\\ ; echo OK >FLAG',
  FAILED: 'notify-send brenik-updater: There was an error. For more information look at:"LOG"',
  NOTHING: 'notify-send brenik-updater: no terminal emulator found',
  'dpkg()': 'sudo /usr/bin/dpkg -i FILE\ndpkg -i FILE',
  'apt()': 'apt-get install -f -y',
  'dnf()': called('dnf', '-y remove brenik', '-y install FILE'),
  'zypper()': called('zypper', 'remove -y brenik', 'clean --all', 'install -y -f FILE'),
};
const BOTH_FAIL = { STATUS_dpkg: '1', STATUS_apt_get: '100' };
const CLOSED = { STATUS_xterm: '0', KIV_STEP: '100' };
// [what, package, tools, calls, log, environment]; a run that comes to its end starts brenik.
const BRANCHES = [
  ['pkexec first', 'a.deb', 'pkexec gksu xterm', ['pkexec /bin/bash -c DEB', 'dpkg()', 'brenik'], 'dpkg\n'],
  ['gksu gets one string', 'a.deb', 'gksu kdesu', ['gksu /bin/bash -c QUOTED', 'dpkg()', 'brenik'], 'dpkg\n'],
  ['konsole', 'a.deb', 'konsole gnome-terminal', ['konsole -e /bin/bash -c DEBWINDOW', 'dpkg()', 'brenik'], 'dpkg\n'],
  ['nothing to run with', 'a.deb', '', ['NOTHING'], null],
  ['apt-get repairs', 'a.deb', 'pkexec', ['pkexec /bin/bash -c DEB', 'dpkg()', 'apt()', 'brenik'],
    'dpkg failed\napt-get\n', { STATUS_dpkg: '1' }],
  ['both fail', 'a.deb', 'pkexec', ['pkexec /bin/bash -c DEB', 'dpkg()', 'apt()', 'FAILED', 'brenik'],
    'dpkg failed\napt-get failed\n', BOTH_FAIL],
  ['a named tool', 'a.deb', 'pkexec other-su', ['other-su /bin/bash -c DEB', 'dpkg()', 'brenik'], 'dpkg\n', { SU: 'other-su' }],
  ['a window closed by its user', 'a.deb', 'xterm', ['xterm -e /bin/bash -l -c DEBWINDOW', 'brenik'], null, CLOSED],
  ['zypper first', 'a.rpm', 'sudo pkexec beesu zypper dnf', ['pkexec /bin/bash -c ZYPPER', 'zypper()', 'brenik'],
    'zypper\nzypper\nzypper\n'],
  ['beesu and dnf', 'a.rpm', 'sudo beesu kdesu dnf yum', ['beesu -c /bin/bash -c "DNF"', 'dnf()', 'brenik'], 'dnf\ndnf\n'],
  ['the installation fails', 'a.rpm', 'sudo pkexec dnf', ['pkexec /bin/bash -c DNF', 'dnf()', 'FAILED', 'brenik'],
    'dnf failed\ndnf failed\n', { STATUS_dnf: '3' }],
  ['a window closed by its user', 'a.rpm', 'sudo xterm dnf', ['xterm -e /bin/bash -l -c DNFWINDOW', 'brenik'], null, CLOSED],
];

test('branches of both scripts', { skip: noBox }, async () => {
  const runs = BRANCHES.map(([, file, tools, , , env = {}], i) => {
    const folder = box.path(`branch${i}`, tools.split(' ').filter(Boolean));
    const inside = (name) => path.join(folder, name);
    const variables = { HOME: folder, PATH: folder, KIV_RECORD: inside('record'), KIV_CLOCK: inside('clock'),
      KIV_NOW: String(100000 + i * 10000), KIV_STEP: '0', ...env, SU: env.SU ? inside(env.SU) : '' };
    for (const name of ['dpkg', 'apt_get', 'xterm', 'dnf']) variables[`STATUS_${name}`] = env[`STATUS_${name}`] || '';
    const call = { args: [write(inside(file)), true], env: variables };
    return { folder, inside, flag: `/tmp/brenik-${variables.KIV_NOW}`, call };
  });
  const started = await upgrades(runs.map(({ call }) => call), { stop: false, node: box.node });
  await ended(started.map(({ pid }) => pid));
  BRANCHES.forEach(([what, file, , calls, text], i) => {
    const { folder, inside, flag } = runs[i];
    const name = `${file}: ${what}`;
    const log = /\/[^ ]+\.log/.exec(started[i].argv[2])[0];
    const lines = fs.readFileSync(inside('record'), 'utf8').replace(/\x1f\n/g, '\n').replace(/\x1f/g, ' ');
    const words = Object.entries({ FILE: inside(file), LOG: log, FLAG: flag, AT: folder, ...WORDS });
    const seen = words.reduce((all, [word, value]) => all.split(value).join(word), lines);
    assert.deepStrictEqual(seen.trim().split('\n'), calls, name);
    assert.strictEqual(fs.existsSync(log) ? fs.readFileSync(log, 'utf8') : null, text, name);
    // What could run nothing leaves its flag file behind.
    assert.strictEqual(fs.existsSync(path.join(box.tmp, path.basename(flag))), calls.includes('NOTHING'), name);
  });
});

test('a real package in place of the checked one is installed and its command started', { skip: noBox }, async () => {
  const real = makeBox({ machine: ['sudo'] });
  try {
    const tree = real.inside('tree');
    write(path.join(tree, 'DEBIAN/control'),
      'Package: brenik\nVersion: 1.2.3\nArchitecture: all\nMaintainer: nobody <nobody@localhost>\nDescription: test\n');
    write(path.join(tree, 'usr/bin/brenik'),
      `#!/bin/sh\ndpkg-query -W -f '\${Status} \${Version}' brenik >'${real.inside('relaunched')}'\n`);
    const build = ['--root-owner-group', '--build', tree, real.inside('built.deb')];
    execFileSync('dpkg-deb', build, { stdio: 'pipe', timeout: 20000 });
    const tools = real.path('tools', ['pkexec']);
    fs.unlinkSync(path.join(tools, 'brenik'));
    const file = write(real.inside('update.deb'), 'not yet a package');
    const env = { HOME: real.inside('home'), PATH: `${tools}:/usr/sbin:/usr/bin:/sbin:/bin`,
      KIV_RECORD: real.inside('record'), KIV_CLOCK: real.inside('clock'), KIV_NOW: '1', KIV_STEP: '0' };
    const waiting = startCase(async (variables, args) => {
      Object.assign(process.env, variables);
      kiv.setupLogger((level, text) => report(Number(text.split(':')[1])));
      kiv.upgrade(...args);
      await until(() => require('fs').existsSync(`${args[0]}.ready`), { what: 'the other package' });
    }, { env: { ...baseEnv(), HOME: env.HOME }, node: real.node, args: [env, [file, true]] });
    const script = await waiting.reported();
    fs.renameSync(real.inside('built.deb'), file);
    assert.strictEqual(fs.existsSync(real.inside('record')), false, 'it waits for the application');
    write(`${file}.ready`);
    await waiting.done;
    await ended([script]);
    assert.strictEqual(fs.readFileSync(real.inside('relaunched'), 'utf8'), 'install ok installed 1.2.3');
    assert.notStrictEqual(spawnSync('dpkg-query', ['-W', 'brenik']).status, 0, 'the machine is as it was');
    const logs = real.inside('home/.Brenik/Brenik/Logs');
    assert.match(fs.readFileSync(path.join(logs, fs.readdirSync(logs)[0]), 'utf8'), /Setting up brenik/);
  } finally {
    real.remove();
  }
});

test('failures in the child, and a home from the user database', { skip: noBox }, async () => {
  const { json, stderr } = await runCase(async (file, env) => {
    const fs = require('fs');
    const { execFileSync } = require('child_process');
    let pid;
    kiv.setupLogger((level, text) => { pid = Number(text.split(':')[1]); });
    const results = [];
    for (const [mount, target] of [['-t tmpfs none', '/proc'], ['--bind /dev/null', '/usr/bin/bash']]) {
      execFileSync('mount', [...mount.split(' '), target]);
      results.push(kiv.upgrade(file));
      if (target === '/proc') execFileSync('umount', [target]);
      await until(() => /\) Z/.test(fs.readFileSync(`/proc/${pid}/stat`, 'utf8')), { what: 'the end of the child' });
    }
    execFileSync('umount', ['/usr/bin/bash']);
    Object.assign(process.env, env, { HOME: '' });
    kiv.upgrade(file);
    const read = () => fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8');
    await until(() => read().includes('.log'), { what: 'a script' });
    report([...results, /tee\\ (.*?)\/\.Brenik/.exec(read())[1]]);
    process.kill(pid, 'SIGKILL');
  }, { env: { ...baseEnv(), HOME: box.inside('home') }, node: box.node, args: [write(box.inside('child.deb')), safe()] });
  assert.deepStrictEqual([json, stderr], [[0, 0, os.userInfo().homedir], '[error] Upgrade start process fail2\n']);
});

test('no process to be had', async () => {
  // The limit does not hold for root. Whoever takes its place reads what root reads.
  const nobody = 'setpriv --reuid=65534 --regid=65534 --clear-groups --inh-caps=+dac_override --ambient-caps=+dac_override ';
  const node = wrapper('limited', `exec ${process.getuid() === 0 ? nobody : ''}`);
  assert.deepStrictEqual(await look((file) => {
    let seen;
    kiv.setupLogger((level, text) => { seen = `${level} ${text}`; });
    require('child_process').execFileSync('prlimit', ['--pid', String(process.pid), '--nproc=1']);
    report([kiv.upgrade(file), seen]);
  }, { env: { ...baseEnv(), HOME: box.inside('home') }, node, args: [write(box.inside('limit.deb'))], leaks: false }),
  [-1, 'error Start porcess error:11']);
});
