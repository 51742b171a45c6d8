'use strict';

const assert = require('node:assert');
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { test } = require('node:test');
const { CI, NODE, lacking, start, temporaryFolder, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ bus: false });
const inApp = (title, f, options) => test(title, options, () => shared.withApp(f, options));
const folder = temporaryFolder();
const inside = (...names) => path.join(folder, ...names);
for (const name of ['idle', 'home', 'refused']) fs.mkdirSync(inside(name));
fs.mkdirSync(inside('refused/f.deb'));
const write = (name, text = '') => {
  fs.writeFileSync(inside(name), text, { mode: 0o755 });
  return inside(name);
};
// A script that nobody ends finds nothing to install with.
for (const tool of ['ps', 'sleep']) fs.symlinkSync(`/usr/bin/${tool}`, inside('idle', tool));

const BOX = 'bwrap --die-with-parent --ro-bind / / --dev /dev --bind'.split(' ');
BOX.push(folder, folder);
const { stderr } = spawnSync(BOX[0], [...BOX.slice(1), 'true'], { encoding: 'utf8' });
const skip = lacking('bwrap') || (stderr !== '' && `bwrap makes no namespaces here: ${stderr}`);
if (skip && CI) throw new Error(skip);

function upgrade(app, args, { HOME = inside('home'), cwd = folder } = {}) {
  const env = { HOME, PATH: inside('idle'), TZ: 'Asia/Kathmandu' };
  const call = (variables, to, ...given) => {
    Object.assign(process.env, variables);
    if (variables.HOME === null) delete process.env.HOME;
    process.chdir(to);
    return [kiv.upgrade(...given), ...log.splice(0)];
  };
  return app.run(call, env, cwd, ...args);
}
/** The started script's text; `look` sees its process before that is ended. */
async function scriptOf(app, args, options, look = () => {}) {
  const [result, line] = await upgrade(app, args, options);
  assert.strictEqual(result, 0, line);
  const pid = Number(/^info Process started:(\d+)$/.exec(line)[1]);
  const read = (name) => fs.readFileSync(`/proc/${pid}/${name}`, 'utf8');
  await until(() => read('cmdline').startsWith('/bin/bash\0-c\0'), 'a script');
  const [, , script, ...more] = read('cmdline').split('\0');
  assert.deepStrictEqual([more, script.includes('\n')], [[''], false]);
  await look(pid, read);
  process.kill(pid, 'SIGKILL');
  return script;
}

inApp('paths for a shell, options and what is no file are refused', async (app) => {
  const cwd = inside('refused');
  for (const name of ['a.tar', 'adeb', '-a.deb', 'a b.deb', 'a.deb']) write(`refused/${name}`);
  execFileSync('mkfifo', [inside('refused/fifo.deb')]);
  fs.symlinkSync('nowhere', inside('refused/dangling.deb'));
  const tildes = ['~root/a.deb', 'x:~root/a.deb', 'a=~/b.deb', 'a/~/b.deb', 'é~b.deb'];
  const bytes = [...' \t\n!"#$&\'()*;<>?[\\]^`{|}\0'].map((one) => `a${one}b.deb`);
  for (const [reason, ...names] of [
    ['fn-error', 'deb', '', '-a.deb', ...tildes, ...bytes],
    ['fi-error:2', undefined, 'missing.deb', 'dangling.deb'],
    ['fi-error:20', 'a.tar/b.deb'],
    ['fi-error:36', `${'x'.repeat(300)}.deb`],
    ['nf-error', 'f.deb', 'fifo.deb', '/dev/null'],
    ['ext-error', 'a.tar', 'adeb'],
  ]) {
    for (const name of names) {
      const seen = await upgrade(app, name === undefined ? [] : [name], { cwd });
      assert.deepStrictEqual(seen, [-1, `error Upgrade: ${reason}`], name);
    }
  }
  for (const HOME of [`${cwd}/a b`, '-option', `${cwd}/dollar$HOME`, '~', 'x:~root']) {
    const seen = await upgrade(app, ['a.deb'], { cwd, HOME });
    assert.deepStrictEqual(seen, [-1, 'error Upgrade: fn-error'], HOME);
  }
  const made = fs.readdirSync(cwd).filter((name) => !name.endsWith('deb'));
  assert.deepStrictEqual(made, ['a.tar'], 'a refused call made folders');
});

inApp('the values are filled in once, the log is named by local time', async (app) => {
  const stamp = () => new Date(Date.now() + 345 * 60000).toISOString().replace(/\D/g, '');
  const earliest = stamp();
  for (const name of ['.deb', 'UPPER.DEB', 'Grüße_日本1~1:2@3%4=5,6+7-8.Rpm']) {
    const script = await scriptOf(app, [write(name)]);
    assert.ok(script.includes(` ${inside(name)}\\ 2\\>`), script);
    assert.ok(script.startsWith(`while ps -p ${app.pid} `), script);
    assert.doesNotMatch(script, /\$\{(?!FLAG_FILE|IN_CMD|XOPT)/);
    const [, file, day, time] = /tee\\ (\S*\/brenik_(\d{8})_(\d{6})\.log)/.exec(script);
    assert.strictEqual(path.dirname(file), inside('home/.Brenik/Brenik/Logs'));
    assert.ok(day + time >= earliest.slice(0, 14) && day + time <= stamp(), file);
  }
  const [first, second] = ['kBinaryAppName', 'upgradePath'].map((name) => `$\{${name}}`);
  const nested = await app.run((...args) => internals.script(...args), first + second, second);
  assert.ok(nested.includes(`-i\\ brenik${second}\\ 2`), nested);
});

// Node marks what it inherits, but stops at the first gap.
const crowded = ['bash', '-c', 'ulimit -n 4096; exec 1500</dev/null; exec "$@"', '-'];
const inheritance = async (app) => {
  const inherited = fs.readFileSync(`/proc/${app.pid}/fdinfo/1500`, 'utf8');
  assert.match(inherited, /^flags:\s+\d{1,7}$/m, 'the host closes it by itself');
  await scriptOf(app, [write('busy.deb')], {}, async (pid, read) => {
    const names = () => fs.readdirSync(`/proc/${pid}/fd`);
    await until(() => names().length <= 3, 'a script with three descriptors');
    const links = names().map((name) => name + fs.readlinkSync(`/proc/${pid}/fd/${name}`));
    assert.deepStrictEqual(links, ['0/dev/null', '1/dev/null', '2/dev/null']);
    // Bash itself blocks signals now and then.
    const blocked = () => parseInt(/^SigBlk:\t\w{8}(\w+)$/m.exec(read('status'))[1], 16);
    await until(() => (blocked() & (1 << 14)) === 0, 'a script that SIGTERM reaches', 5000);
  });
};
const title = 'the script inherits no descriptor and no signal mask, and speaks to nobody';
inApp(title, inheritance, { under: crowded });

test('without HOME that of the user database; a failing child says so', { skip }, async () => {
  const { homedir } = os.userInfo();
  const under = [...BOX, '--tmpfs', homedir, '--ro-bind', NODE, NODE];
  const args = [write('a.deb')];
  const script = await shared.withApp((app) => scriptOf(app, args, { HOME: null }), { under });
  assert.ok(script.includes(`tee\\ ${homedir}/.Brenik/Brenik/Logs/`), script);
  const app = await shared.app({ under: [...BOX, '--tmpfs', '/proc'], leaks: false });
  assert.strictEqual((await upgrade(app, args))[0], 0);
  await until(() => app.output() === '[error] Upgrade start process fail2\n');
  await app.stop();
});

// Notes and tells its name and arguments, and behaves as far as a script can tell.
const RECORDER = `#!/bin/bash
name=\${0##*/}
[ $name = date ] || echo $name \${*%%set*-o*} | tee -a /tmp/record
status=STATUS_\${name//-/_}
[ -z "\${!status}" ] || exit "\${!status}"
case $name in
  date) echo -n x >>/tmp/clock; read -r clock </tmp/clock; echo \${#clock}00 ;;
  sleep) pause 0.05 ;;
  pkexec | other-su | sudo) "$@" ;;
  gksu) eval "$1" ;;
  beesu) eval "$2" ;;
  xterm | konsole) shift; "$@" ;;
esac
`;
const WORDS = {
  BASH: '/bin/bash -c',
  DPKG: 'sudo /usr/bin/dpkg -i FILE, dpkg -i FILE',
  APT: 'apt-get install -f -y',
  DNF: 'dnf() -y remove brenik, dnf() -y install FILE',
  ZYPPER: 'zypper() remove -y brenik, zypper() clean --all, zypper() install -y -f FILE',
  FAILED: 'notify-send brenik-updater: There was an error. For more information look at:"LOG"',
  CLOSED: 'xterm -e /bin/bash -l -c',
};
// Package; tools; environment; calls.
const BRANCHES = `\
deb; pkexec gksu xterm; ; pkexec BASH, DPKG, brenik
deb; gksu; ; gksu BASH, DPKG, brenik
deb; konsole; ; konsole -e BASH, DPKG, brenik
deb; ; ; notify-send brenik-updater: no terminal emulator found
deb; pkexec; STATUS_dpkg=1; pkexec BASH, DPKG, APT, brenik
deb; pkexec; STATUS_dpkg=1 STATUS_apt_get=100; pkexec BASH, DPKG, APT, FAILED, brenik
deb; pkexec other-su; SU=other-su; other-su BASH, DPKG, brenik
deb; xterm; STATUS_xterm=0; CLOSED, ${'sleep 2, '.repeat(6)}brenik
rpm; pkexec zypper dnf; ; pkexec BASH, ZYPPER, brenik
rpm; beesu kdesu dnf; ; beesu -c BASH ", DNF, brenik
rpm; konsole xterm dnf; ; konsole -e BASH, DNF, brenik
rpm; pkexec dnf; STATUS_dnf=3; pkexec BASH, DNF, FAILED, brenik
rpm; xterm dnf; STATUS_xterm=0; CLOSED, sleep 2, brenik`.split('\n');
const words = (text) => text.split(' ').filter(Boolean);
const REAL = words('bash sh ps which grep rm tee');
const RECORDED = words('date sleep sudo dpkg apt-get notify-send brenik');
const read = (...names) => fs.readFileSync(path.join(...names), { encoding: 'utf8', flag: 'a+' });

/** Runs a script where the machine's tools are out of its reach, and /tmp and the logs are `own`. */
function runInBox(script, own, tools, variables) {
  const args = [...BOX.slice(1), '--tmpfs', '/etc', '--tmpfs', '/usr/bin'];
  const bind = (from, to) => args.push('--ro-bind', from, `/usr/bin/${to}`);
  for (const tool of REAL) bind(`/usr/bin/${tool}`, tool);
  bind('/usr/bin/sleep', 'pause');
  for (const tool of [...RECORDED, ...tools]) bind(inside('recorder'), tool);
  args.push('--bind', own, '/tmp', '--bind', own, inside('home/.Brenik/Brenik/Logs'));
  args.push('/usr/bin/bash', '-c', script);
  const env = Object.fromEntries(variables.map((one) => one.split('=')));
  const stdio = ['ignore', 'pipe', 'pipe'];
  return start('bwrap', args, { env: { PATH: '/usr/bin', ...env }, stdio });
}

async function startBranch(scripts, row, i) {
  const [family, tools, env, calls] = row.split('; ');
  const own = inside(`${i}`);
  fs.mkdirSync(own);
  const box = runInBox(scripts[family], own, words(tools), words(env));
  await box.ready(() => read(own, 'record'), 'a script that waits');
  assert.match(read(own, 'record'), /^(sleep 1\n)+$/, 'it does not wait for the application');
  return async () => {
    await box.ended;
    const [log] = /\/\S+\.log/.exec(scripts[family]);
    const plain = calls.replace(/[A-Z]{3,}/g, (word) => WORDS[word]);
    const all = plain.replace(/(\w+)\(\) ([^,]*)/g, 'sudo /usr/bin/$1 $2, $1 $2');
    const wanted = all
      .replaceAll('FILE', inside(`a.${family}`))
      .replace('LOG', log)
      .split(', ');
    const seen = read(own, 'record').match(/^(?!sleep 1$).+$/gm);
    assert.deepStrictEqual(seen, wanted, box.output());
    const installers = seen.filter((line) => /^(sudo|dpkg|apt-get|dnf|zypper) /.test(line));
    assert.strictEqual(read(own, path.basename(log)).trim(), installers.join('\n'), row);
    // What could run nothing leaves its flag file behind.
    const left = fs.readdirSync(own).includes('brenik-100');
    assert.strictEqual(left, calls.includes('emulator'), row);
  };
}

test('the script waits, installs, tells failures, starts the application', { skip }, async () => {
  write('recorder', RECORDER);
  const checks = await shared.withApp(async (app) => {
    assert.doesNotMatch(await scriptOf(app, [write('a.deb')]), /; brenik$/, 'it starts unasked');
    const deb = await scriptOf(app, [inside('a.deb'), true]);
    const rpm = await scriptOf(app, [write('a.rpm'), true]);
    return Promise.all(BRANCHES.map((row, i) => startBranch({ deb, rpm }, row, i)));
  });
  for (const check of checks) await check();
});
