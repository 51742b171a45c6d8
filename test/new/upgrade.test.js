'use strict';

const assert = require('node:assert');
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { test } = require('node:test');
const { CI, NODE, lacking, start, temporaryFolder, until } = require('../lib/processes');
const { useSession } = require('../lib/session');

const shared = useSession({ bus: false });
const inApp = (title, f, options) => test(title, options, () => shared.withApp(f, options));
const folder = temporaryFolder();
const inside = (...names) => path.join(folder, ...names);
for (const name of ['idle', 'home', 'refused/f.deb'])
  fs.mkdirSync(inside(name), { recursive: true });
const write = (name, text = '') => {
  fs.writeFileSync(inside(name), text, { mode: 0o755 });
  return inside(name);
};
// A script that nobody ends finds nothing to install with.
for (const tool of ['ps', 'sleep']) fs.symlinkSync(`/usr/bin/${tool}`, inside('idle', tool));

const BOX = ['bwrap', '--die-with-parent', '--ro-bind', '/', '/', '--dev', '/dev'];
BOX.push('--bind', folder, folder);
const { stderr } = spawnSync(BOX[0], [...BOX.slice(1), 'true'], { encoding: 'utf8' });
const skip = lacking('bwrap') || (stderr && `bwrap makes no namespaces here: ${stderr}`);
if (skip && CI) throw new Error(skip);

const upgrade = (app, file, { relaunch, HOME = inside('home'), cwd = folder } = {}) =>
  app.run(
    (env, to, ...args) => {
      Object.assign(process.env, env);
      if (env.HOME === null) delete process.env.HOME;
      process.chdir(to);
      return [kiv.upgrade(...args), ...log.splice(0)];
    },
    { HOME, PATH: inside('idle'), TZ: 'Asia/Kathmandu' },
    cwd,
    ...(file === undefined ? [] : [file, relaunch]),
  );
/** The started script's text; `look` sees its process before that is ended. */
async function scriptOf(app, file, options, look = () => {}) {
  const [result, line] = await upgrade(app, file, options);
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

inApp(
  'paths a shell would split or expand, options and what is no file are refused',
  async (app) => {
    const cwd = inside('refused');
    for (const name of ['a.tar', 'adeb', 'deb', '-a.deb', 'a b.deb', 'good.deb'])
      write(`refused/${name}`);
    execFileSync('mkfifo', [inside('refused/fifo.deb')]);
    fs.symlinkSync('nowhere', inside('refused/dangling.deb'));
    const tildes = ['~root/a.deb', 'x:~root/a.deb', 'a=~/b.deb', 'a/~/b.deb', 'é~b.deb'];
    const bytes = [...' \t\n!"#$&\'()*;<>?[\\]^`{|}\0'].map((one) => `a${one}b.deb`);
    for (const [reason, ...names] of [
      ['fn-error', 'deb', '', '-a.deb', 'a b.deb', ...tildes, ...bytes],
      ['fi-error:2', undefined, 'missing.deb', 'dangling.deb'],
      ['fi-error:20', 'a.tar/b.deb'],
      ['fi-error:36', `${'x'.repeat(300)}.deb`],
      ['nf-error', 'f.deb', 'fifo.deb', '/dev/null'],
      ['ext-error', 'a.tar', 'adeb'],
    ]) {
      for (const name of names)
        assert.deepStrictEqual(
          await upgrade(app, name, { cwd }),
          [-1, `error Upgrade: ${reason}`],
          name,
        );
    }
    for (const HOME of [`${cwd}/a b`, '-option', `${cwd}/dollar$HOME`, '~', 'x:~root']) {
      const seen = await upgrade(app, 'good.deb', { cwd, HOME });
      assert.deepStrictEqual(seen, [-1, 'error Upgrade: fn-error'], HOME);
    }
    const made = fs.readdirSync(cwd).filter((name) => !name.endsWith('deb'));
    assert.deepStrictEqual(made, ['a.tar'], 'a refused call made folders');
  },
);

inApp('the values are filled in once, the log is named by local time', async (app) => {
  const stamp = () => new Date(Date.now() + 345 * 60000).toISOString().replace(/\D/g, '');
  const earliest = stamp();
  for (const name of ['.deb', 'UPPER.DEB', 'Grüße_日本1~1:2@3%4=5,6+7-8.Rpm']) {
    const script = await scriptOf(app, write(name));
    assert.ok(script.includes(` ${inside(name)}\\ 2\\>`), script);
    assert.ok(script.startsWith(`while ps -p ${app.pid} `), script);
    assert.doesNotMatch(script, /\$\{(?!FLAG_FILE|IN_CMD|XOPT)/);
    const [, file, day, time] = /tee\\ (\S*\/brenik_(\d{8})_(\d{6})\.log)/.exec(script);
    assert.strictEqual(path.dirname(file), inside('home/.Brenik/Brenik/Logs'));
    assert.ok(day + time >= earliest.slice(0, 14) && day + time <= stamp(), file);
    assert.strictEqual(fs.statSync(path.dirname(file)).mode & 0o777, 0o755 & ~process.umask());
  }
  const [first, second] = ['kBinaryAppName', 'upgradePath'].map((name) => `$\{${name}}`);
  const nested = await app.run((...args) => internals.script(...args), first + second, second);
  assert.ok(nested.includes(`-i\\ brenik${second}\\ 2`), nested);
});

inApp(
  'the script inherits no descriptor and no signal mask, and speaks to nobody',
  async (app) => {
    const inherited = fs.readFileSync(`/proc/${app.pid}/fdinfo/1500`, 'utf8');
    assert.match(inherited, /flags:\s+0[01]\d{5}$/m, 'the host closes it by itself');
    await scriptOf(app, write('busy.deb'), {}, async (pid, read) => {
      const names = () => fs.readdirSync(`/proc/${pid}/fd`);
      await until(() => names().length <= 3, 'a script with three descriptors');
      const links = names().map((name) => name + fs.readlinkSync(`/proc/${pid}/fd/${name}`));
      assert.deepStrictEqual(links, ['0/dev/null', '1/dev/null', '2/dev/null']);
      // Bash itself blocks signals now and then.
      const blocked = () => parseInt(/^SigBlk:\t\w{8}(\w+)$/m.exec(read('status'))[1], 16);
      await until(() => (blocked() & (1 << 14)) === 0, 'a script that SIGTERM reaches', 5000);
    });
  },
  // Node marks what it inherits, but stops at the first gap.
  { under: ['bash', '-c', 'ulimit -n 4096; exec 1500</dev/null; exec "$@"', '-'] },
);

const { homedir } = os.userInfo();
inApp(
  'without HOME the log is in the home of the user database',
  async (app) => {
    const script = await scriptOf(app, write('a.deb'), { HOME: null });
    assert.ok(script.includes(`tee\\ ${homedir}/.Brenik/Brenik/Logs/`), script);
  },
  { skip, under: [...BOX, '--tmpfs', homedir, '--ro-bind', NODE, NODE] },
);

test('a child that cannot start the script says so', { skip }, async () => {
  const app = await shared.app({ under: [...BOX, '--tmpfs', '/proc'], leaks: false });
  assert.strictEqual((await upgrade(app, write('a.deb')))[0], 0);
  await until(() => app.output() === '[error] Upgrade start process fail2\n');
  await app.stop();
});

// Notes its name and arguments, and behaves as its namesake would as far as a script can tell.
const RECORDER = `#!/bin/bash
name=\${0##*/}
[ $name = date ] || echo $name \${*%%set*-o*} >>/tmp/record
status=STATUS_\${name//-/_}
[ -z "\${!status}" ] || { echo "$name failed"; exit "\${!status}"; }
case $name in
  date) echo -n x >>/tmp/clock; read -r clock </tmp/clock; echo \${#clock}00 ;;
  sleep) pause 0.05 ;;
  pkexec | other-su | sudo) "$@" ;;
  gksu) eval "$1" ;;
  beesu) eval "$2" ;;
  xterm | konsole) shift; "$@" ;;
  dpkg | apt-get | zypper | dnf) echo $name ;;
esac
`;
const WORDS = {
  BASH: '/bin/bash -c',
  DPKG: 'sudo /usr/bin/dpkg -i FILE, dpkg -i FILE',
  APT: 'apt-get install -f -y',
  DNF: 'dnf() -y remove brenik, dnf() -y install FILE',
  ZYPPER: 'zypper() remove -y brenik, zypper() clean --all, zypper() install -y -f FILE',
  FAILED: 'notify-send brenik-updater: There was an error. For more information look at:"LOG"',
};
// Package; tools; environment; calls; log.
const BRANCHES = `
deb; pkexec gksu xterm;; pkexec BASH, DPKG, brenik; dpkg
deb; gksu;; gksu BASH, DPKG, brenik; dpkg
deb; konsole;; konsole -e BASH, DPKG, brenik; dpkg
deb; ;; notify-send brenik-updater: no terminal emulator found;
deb; pkexec; STATUS_dpkg=1; pkexec BASH, DPKG, APT, brenik; dpkg failed apt-get
deb; pkexec; STATUS_dpkg=1 STATUS_apt_get=100; pkexec BASH, DPKG, APT, FAILED, brenik; dpkg failed apt-get failed
deb; pkexec other-su; SU=other-su; other-su BASH, DPKG, brenik; dpkg
deb; xterm; STATUS_xterm=0; xterm -e /bin/bash -l -c, sleep 2, sleep 2, sleep 2, sleep 2, sleep 2, sleep 2, brenik;
rpm; pkexec zypper dnf;; pkexec BASH, ZYPPER, brenik; zypper zypper zypper
rpm; beesu kdesu dnf;; beesu -c BASH ", DNF, brenik; dnf dnf
rpm; konsole xterm dnf;; konsole -e BASH, DNF, brenik; dnf dnf
rpm; pkexec dnf; STATUS_dnf=3; pkexec BASH, DNF, FAILED, brenik; dnf failed dnf failed
rpm; xterm dnf; STATUS_xterm=0; xterm -e /bin/bash -l -c, sleep 2, brenik;`;
const REAL = ['bash', 'sh', 'ps', 'which', 'grep', 'rm', 'tee'];
const RECORDED = ['date', 'sleep', 'sudo', 'dpkg', 'apt-get', 'notify-send', 'brenik'];

/** Runs a script where the machine's tools are out of its reach, and /tmp and the logs are `own`. */
function runInBox(script, own, tools, env) {
  const bind = (from, to) => ['--ro-bind', from, `/usr/bin/${to}`];
  const args = [...BOX.slice(1), '--tmpfs', '/etc', '--tmpfs', '/usr/bin'];
  for (const tool of REAL) args.push(...bind(`/usr/bin/${tool}`, tool));
  args.push(...bind('/usr/bin/sleep', 'pause'));
  for (const tool of [...RECORDED, ...tools]) args.push(...bind(inside('recorder'), tool));
  args.push('--bind', own, '/tmp', '--bind', own, inside('home/.Brenik/Brenik/Logs'));
  const stdio = ['ignore', 'pipe', 'pipe'];
  const all = { PATH: '/usr/bin', ...Object.fromEntries(env.map((one) => one.split('='))) };
  return start('bwrap', [...args, '/usr/bin/bash', '-c', script], { env: all, stdio });
}

test('the script waits for the application, installs, tells failures, relaunches', {
  skip,
}, async () => {
  write('recorder', RECORDER);
  const rows = BRANCHES.trim()
    .split('\n')
    .map((row) => row.split(';').map((cell) => cell.trim()));
  const words = (text) => text.split(' ').filter(Boolean);
  const record = (own) => fs.readFileSync(path.join(own, 'record'), 'utf8');
  const runs = await shared.withApp(async (app) => {
    const plain = await scriptOf(app, write('a.deb'));
    const scripts = {};
    for (const family of ['deb', 'rpm'])
      scripts[family] = await scriptOf(app, write(`a.${family}`), { relaunch: true });
    assert.strictEqual(plain.split('; brenik').length, 1, 'the application starts unasked');
    const started = rows.map(([family, tools, env], i) => {
      const own = inside(`own${i}`);
      fs.mkdirSync(own);
      const script = scripts[family];
      return { own, script, box: runInBox(script, own, words(tools), words(env)) };
    });
    for (const { own, box } of started) {
      await box.ready(() => fs.existsSync(path.join(own, 'record')), 'a script that waits');
      assert.match(record(own), /^(sleep 1\n)+$/, 'it does not wait for the application');
    }
    return started;
  });
  for (const [i, [family, , , calls, text]] of rows.entries()) {
    const { own, script, box } = runs[i];
    await box.ended;
    const log = /\/\S+\.log/.exec(script)[0];
    const seen = record(own)
      .replaceAll(inside(`a.${family}`), 'FILE')
      .replaceAll(log, 'LOG');
    const wanted = calls
      .replace(/[A-Z]{3,}/g, (word) => WORDS[word] || word)
      .replace(/(\w+)\(\) ([^,]*)/g, 'sudo /usr/bin/$1 $2, $1 $2');
    assert.strictEqual(
      seen
        .replace(/^sleep 1\n/gm, '')
        .trim()
        .replaceAll('\n', ', '),
      wanted,
      box.output(),
    );
    const file = path.join(own, path.basename(log));
    assert.strictEqual(
      fs.existsSync(file)
        ? words(fs.readFileSync(file, 'utf8').replaceAll('\n', ' ')).join(' ')
        : '',
      text,
      wanted,
    );
    // What could run nothing leaves its flag file behind.
    assert.strictEqual(fs.existsSync(path.join(own, 'brenik-100')), wanted.includes('emulator'));
  }
});
