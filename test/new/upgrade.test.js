'use strict';

const assert = require('node:assert');
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { test } = require('node:test');
const { CI, NODE, start, temporaryFolder, until } = require('../lib/processes');
const { useSession } = require('../lib/session');

const shared = useSession({});
const folder = temporaryFolder();
const inside = (...names) => path.join(folder, ...names);
const write = (name, text = '') => {
  fs.mkdirSync(path.dirname(inside(name)), { recursive: true });
  fs.writeFileSync(inside(name), text, { mode: 0o755 });
  return inside(name);
};
// A script that nobody ends has nothing to install with.
for (const name of ['idle', 'home']) fs.mkdirSync(inside(name));
for (const tool of ['ps', 'sleep']) fs.symlinkSync(`/usr/bin/${tool}`, inside('idle', tool));
const BOX = ['--die-with-parent', '--ro-bind', '/', '/', '--dev', '/dev', '--bind', folder, folder];
const { status, stderr } = spawnSync('bwrap', [...BOX, 'true'], { encoding: 'utf8' });
const skip = status !== 0 && `bwrap makes no namespaces here: ${stderr}`;
if (skip && CI) throw new Error(skip);
const wrapper = (name, command) => write(name, `#!/bin/bash\n${command} '${NODE}' "$@"\n`);

const upgrade = (app, args, { HOME = inside('home'), cwd = folder } = {}) =>
  app.run(
    (env, to, given) => {
      Object.assign(process.env, env);
      if (env.HOME === null) delete process.env.HOME;
      process.chdir(to);
      return [kiv.upgrade(...given), ...log.splice(0)];
    },
    { HOME, PATH: inside('idle'), TZ: 'Asia/Kathmandu' },
    cwd,
    args,
  );
/** The started script's arguments; `look` sees its process before that is ended. */
async function scriptOf(app, args, options, look = () => {}) {
  const [result, line] = await upgrade(app, args, options);
  assert.strictEqual(result, 0, line);
  const pid = Number(/^info Process started:(\d+)$/.exec(line)[1]);
  const read = (name) => fs.readFileSync(`/proc/${pid}/${name}`, 'utf8');
  await until(() => read('cmdline').startsWith('/bin/bash\0-c\0'), 'a script');
  const argv = read('cmdline').split('\0').slice(0, -1);
  await look(pid, read);
  process.kill(pid, 'SIGKILL');
  return argv;
}

test('paths that a shell would split, expand or take for an option, and what is no file, are refused', () =>
  shared.withApp(async (app) => {
    const cwd = inside('refused');
    for (const name of ['a.tar', 'adeb', 'deb', '-a.deb', 'with blank.deb', 'good.deb', 'f.deb/x'])
      write(`refused/${name}`);
    execFileSync('mkfifo', [inside('refused/fifo.deb')]);
    fs.symlinkSync('nowhere', inside('refused/dangling.deb'));
    const reasons = {
      'fn-error': [
        ...[
          'deb',
          '',
          '-a.deb',
          '~root/a.deb',
          'x:~root/a.deb',
          'a=~/b.deb',
          'a/~/b.deb',
          'é~b.deb',
        ],
        ...[...' \t\n!"#$&\'()*;<>?[\\]^`{|}\0'].map((one) => `a${one}b.deb`),
      ],
      'fi-error:2': [undefined, 'missing.deb', 'dangling.deb'],
      'fi-error:20': ['a.tar/b.deb'],
      'fi-error:36': [`${'x'.repeat(300)}.deb`],
      'nf-error': ['f.deb', 'fifo.deb', '/dev/null'],
      'ext-error': ['a.tar', 'adeb'],
    };
    for (const [reason, names] of Object.entries(reasons)) {
      for (const name of names) {
        const seen = await upgrade(app, name === undefined ? [] : [name], { cwd });
        assert.deepStrictEqual(seen, [-1, `error Upgrade: ${reason}`], name);
      }
    }
    for (const HOME of [`${cwd}/with blank`, '-option', `${cwd}/dollar$HOME`, '~', 'x:~root']) {
      const seen = await upgrade(app, ['good.deb'], { cwd, HOME });
      assert.deepStrictEqual(seen, [-1, 'error Upgrade: fn-error'], `HOME ${HOME}`);
    }
    assert.deepStrictEqual(
      fs.readdirSync(cwd).filter((name) => !name.endsWith('deb')),
      ['a.tar'],
      'folders that a refused call made',
    );
  }));

test('the script is one line for bash with its values filled in once, and names a log by local time', () =>
  shared.withApp(async (app) => {
    const stamp = () => new Date(Date.now() + 345 * 60000).toISOString().replace(/\D/g, '');
    const earliest = stamp();
    for (const name of ['.deb', 'UPPER.DEB', 'Grüße_日本1~1:2@3%4=5,6+7-8.Rpm']) {
      const argv = await scriptOf(app, [write(name)]);
      assert.deepStrictEqual([argv.length, argv[2].includes('\n')], [3, false]);
      assert.ok(argv[2].includes(` ${inside(name)}\\ 2\\>`), argv[2]);
      assert.ok(argv[2].startsWith(`while ps -p ${app.pid} `), argv[2]);
      assert.ok(!/\$\{(?!FLAG_FILE|IN_CMD|XOPT)/.test(argv[2]), argv[2]);
      const [, file, day, time] = /tee\\ (\S*\/brenik_(\d{8})_(\d{6})\.log)/.exec(argv[2]);
      assert.strictEqual(path.dirname(file), inside('home/.Brenik/Brenik/Logs'));
      assert.ok(day + time >= earliest.slice(0, 14) && day + time <= stamp().slice(0, 14), file);
      assert.strictEqual(fs.statSync(path.dirname(file)).mode & 0o777, 0o755 & ~process.umask());
    }
    const nested = await app.run(() =>
      internals.script('$' + '{kBinaryAppName}$' + '{upgradePath}', '$' + '{uid_gid}'),
    );
    assert.ok(nested.includes('-i\\ brenik${upgradePath}\\ 2'), 'a value was filled in again');
  }));

test('the script inherits no descriptor and no signal mask, and speaks to nobody', () =>
  shared.withApp(
    async (app) => {
      const crowd = [700, 1500].map((fd) =>
        fs.readFileSync(`/proc/${app.pid}/fdinfo/${fd}`, 'utf8'),
      );
      for (const info of crowd)
        assert.strictEqual(parseInt(/flags:\s+(\d+)/.exec(info)[1], 8) & 0o2000000, 0);
      await scriptOf(app, [write('busy.deb')], {}, async (pid, read) => {
        const names = () => fs.readdirSync(`/proc/${pid}/fd`);
        await until(() => names().length <= 3, 'a script with three descriptors');
        const links = names().map((name) => [name, fs.readlinkSync(`/proc/${pid}/fd/${name}`)]);
        assert.deepStrictEqual(
          links,
          ['0', '1', '2'].map((name) => [name, '/dev/null']),
        );
        // Bash itself blocks signals now and then.
        const blocked = () => parseInt(/^SigBlk:\t\w{8}(\w+)$/m.exec(read('status'))[1], 16);
        await until(() => (blocked() & (1 << 14)) === 0, 'a script that SIGTERM reaches', 5000);
      });
    },
    // Node marks what it inherits, but stops at the first gap.
    { node: wrapper('crowded', 'ulimit -n 4096\nexec 700</dev/null 1500</dev/null\nexec') },
  ));

test('without HOME the log is in the home of the user database; a child that cannot start says so', {
  skip,
}, async () => {
  const { homedir } = os.userInfo();
  const node = wrapper(
    'elsewhere',
    `exec bwrap ${BOX.join(' ')} --tmpfs '${homedir}' --ro-bind '${NODE}' '${NODE}'`,
  );
  await shared.withApp(
    async (app) => {
      const [, , script] = await scriptOf(app, [write('a.deb')], { HOME: null });
      assert.ok(script.includes(`tee\\ ${homedir}/.Brenik/Brenik/Logs/`), script);
    },
    { node },
  );
  const app = await shared.app({
    node: wrapper('procless', `exec bwrap ${BOX.join(' ')} --tmpfs /proc`),
    leaks: false,
  });
  assert.strictEqual((await upgrade(app, [write('a.deb')]))[0], 0);
  await until(() => app.output() === '[error] Upgrade start process fail2\n');
  await app.stop();
});

// Notes its name and arguments, and behaves as its namesake would as far as a script can tell.
const RECORDER = write(
  'recorder',
  `#!/bin/bash
name=\${0##*/}
[ $name = date ] || echo $name \${*%%set*-o*} >>/tmp/record
status=STATUS_\${name//-/_}
[ -z "\${!status}" ] || { echo "$name failed"; exit "\${!status}"; }
case $name in
  date) echo -n x >>/tmp/clock; read -r clock </tmp/clock; echo \${#clock}00 ;;
  sleep) pause 0.05 ;;
  pkexec | other-su | sudo) "$@" ;;
  gksu) eval "$1" ;;
  beesu | kdesu) eval "$2" ;;
  xterm | konsole) shift; "$@" ;;
  dpkg | apt-get | zypper | dnf) echo $name ;;
esac
`,
);
const REAL = ['bash', 'sh', 'ps', 'which', 'grep', 'rm', 'tee'];
const ALWAYS = ['date', 'sleep', 'sudo', 'dpkg', 'apt-get', 'notify-send', 'brenik'];
const bind = (from, to) => ['--ro-bind', `${from}`, `/usr/bin/${to}`];
// What calls what is only in the script's hands: nothing of the machine's tools is there.
const runInBox = (own, tools, logs, script, env) =>
  start(
    'bwrap',
    [
      ...[...BOX, '--tmpfs', '/etc', '--tmpfs', '/usr/bin'],
      ...REAL.flatMap((tool) => bind(`/usr/bin/${tool}`, tool)),
      ...bind('/usr/bin/sleep', 'pause'),
      ...[...ALWAYS, ...tools].flatMap((tool) => bind(RECORDER, tool)),
      ...['--bind', own, '/tmp', '--bind', own, logs, '/usr/bin/bash', '-c', script],
    ],
    { env: { PATH: '/usr/bin', ...env }, stdio: ['ignore', 'pipe', 'pipe'] },
  );

const DPKG = ['sudo /usr/bin/dpkg -i FILE', 'dpkg -i FILE'];
const APT = ['apt-get install -f -y'];
const called = (tool, ...calls) =>
  calls.flatMap((call) => [`sudo /usr/bin/${tool} ${call}`, `${tool} ${call}`]);
const DNF = called('dnf', '-y remove brenik', '-y install FILE');
const ZYPPER = called('zypper', 'remove -y brenik', 'clean --all', 'install -y -f FILE');
const FAILED = [
  'notify-send brenik-updater: There was an error. For more information look at:"LOG"',
];
const NOBODY = ['notify-send brenik-updater: no terminal emulator found'];
const BASH = '/bin/bash -c';
// [what, package, tools, calls, log, environment]
const BRANCHES = [
  ['pkexec is first', 'deb', 'pkexec gksu xterm', [`pkexec ${BASH}`, ...DPKG, 'brenik'], 'dpkg\n'],
  ['gksu gets one string', 'deb', 'gksu', [`gksu ${BASH}`, ...DPKG, 'brenik'], 'dpkg\n'],
  ['konsole', 'deb', 'konsole', [`konsole -e ${BASH}`, ...DPKG, 'brenik'], 'dpkg\n'],
  ['nothing to run with', 'deb', '', NOBODY, null],
  [
    'apt-get repairs',
    'deb',
    'pkexec',
    [`pkexec ${BASH}`, ...DPKG, ...APT, 'brenik'],
    'dpkg failed\napt-get\n',
    { STATUS_dpkg: '1' },
  ],
  [
    'a failed installation is told',
    'deb',
    'pkexec',
    [`pkexec ${BASH}`, ...DPKG, ...APT, ...FAILED, 'brenik'],
    'dpkg failed\napt-get failed\n',
    { STATUS_dpkg: '1', STATUS_apt_get: '100' },
  ],
  [
    'a named tool',
    'deb',
    'pkexec other-su',
    [`other-su ${BASH}`, ...DPKG, 'brenik'],
    'dpkg\n',
    { SU: 'other-su' },
  ],
  [
    'a terminal is waited for',
    'deb',
    'xterm',
    ['xterm -e /bin/bash -l -c', ...Array(6).fill('sleep 2'), 'brenik'],
    null,
    { STATUS_xterm: '0' },
  ],
  [
    'zypper is first',
    'rpm',
    'pkexec zypper dnf',
    [`pkexec ${BASH}`, ...ZYPPER, 'brenik'],
    'zypper\nzypper\nzypper\n',
  ],
  ['beesu', 'rpm', 'beesu kdesu dnf', [`beesu -c ${BASH} "`, ...DNF, 'brenik'], 'dnf\ndnf\n'],
  ['konsole', 'rpm', 'konsole xterm dnf', [`konsole -e ${BASH}`, ...DNF, 'brenik'], 'dnf\ndnf\n'],
  [
    'a failed installation is told',
    'rpm',
    'pkexec dnf',
    [`pkexec ${BASH}`, ...DNF, ...FAILED, 'brenik'],
    'dnf failed\ndnf failed\n',
    { STATUS_dnf: '3' },
  ],
  [
    'a terminal is waited for',
    'rpm',
    'xterm dnf',
    ['xterm -e /bin/bash -l -c', 'sleep 2', 'brenik'],
    null,
    { STATUS_xterm: '0' },
  ],
];

test('the script waits for the application, installs with what is there, tells failures, starts it again', {
  skip,
}, async () => {
  const scripts = {};
  let runs;
  await shared.withApp(async (app) => {
    for (const family of ['deb', 'rpm']) {
      const plain = (await scriptOf(app, [write(`a.${family}`)]))[2];
      scripts[family] = (await scriptOf(app, [inside(`a.${family}`), true]))[2];
      assert.strictEqual(
        scripts[family].replace(/_\d{6}\.log/g, '').replace(/; brenik$/, ''),
        plain.replace(/_\d{6}\.log/g, ''),
      );
    }
    runs = BRANCHES.map(([, family, tools, , , env], i) => {
      const own = path.dirname(write(`branch${i}/record`));
      const script = scripts[family];
      return {
        own,
        script,
        box: runInBox(
          own,
          tools.split(' ').filter(Boolean),
          inside('home/.Brenik/Brenik/Logs'),
          script,
          env,
        ),
      };
    });
    for (const { own } of runs) {
      const record = () => fs.readFileSync(path.join(own, 'record'), 'utf8');
      await until(() => record() !== '', 'a script that waits');
      assert.match(record(), /^(sleep 1\n)+$/, 'it waits for the application');
    }
  });
  for (const [i, [what, family, , calls, text]] of BRANCHES.entries()) {
    const { own, script, box } = runs[i];
    const name = `${family}: ${what}`;
    const { code } = await box.ended;
    const log = /\/\S+\.log/.exec(script)[0];
    const lines = fs
      .readFileSync(path.join(own, 'record'), 'utf8')
      .split(inside(`a.${family}`))
      .join('FILE')
      .split(log)
      .join('LOG');
    assert.deepStrictEqual(
      lines.split('\n').filter((line) => line && line !== 'sleep 1'),
      calls,
      `${name}\n${box.output()}`,
    );
    assert.strictEqual(code, calls === NOBODY ? 1 : 0, name);
    const file = path.join(own, path.basename(log));
    assert.strictEqual(fs.existsSync(file) ? fs.readFileSync(file, 'utf8') : null, text, name);
    // What could run nothing leaves its flag file behind.
    assert.strictEqual(fs.existsSync(path.join(own, 'brenik-100')), calls === NOBODY, name);
  }
});
