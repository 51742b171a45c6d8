'use strict';

const assert = require('node:assert');
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { test } = require('node:test');
const { BUILD, NODE, ROOT, lacking, start, temporaryFolder, until } = require('./lib/processes');
const { useSession } = require('./lib/session');

const shared = useSession({ bus: false });
const folder = temporaryFolder();
const inside = (...names) => path.join(folder, ...names);
for (const name of ['idle', 'home', 'f.deb']) fs.mkdirSync(inside(name));
function write(name, text = '') {
  fs.writeFileSync(inside(name), text, { mode: 0o755 });
  return inside(name);
}
const words = (text) => text.split(' ').filter(Boolean);
// If a script is not killed, it finds no tool to install with.
for (const tool of words('ps sleep bash bwrap setpriv'))
  fs.symlinkSync(`/usr/bin/${tool}`, inside('idle', tool));

const BOX = [...words('bwrap --die-with-parent --ro-bind / / --dev /dev --bind'), folder, folder];
const { homedir } = os.userInfo();
const inBox = ['--ro-bind', '/', '/', '--tmpfs', homedir, 'true'];
const mayBox = () => spawnSync('bwrap', inBox).status === 0;
const skip = lacking('bwrap') || (!mayBox() && 'bwrap cannot create a namespace or home here');
const atHome = { env: { HOME: inside('home'), PATH: inside('idle') } };
const inApp = (title, options, f) => test(title, options, () => shared.withApp(f, options));
const upgrade = (app, ...args) =>
  app.run((...given) => [kiv.upgrade(...given), ...log.splice(0)], ...args);
/** The started script's text. `look` inspects its process before it is killed. */
async function scriptOf(app, args, look = () => {}) {
  const [result, line] = await upgrade(app, ...args);
  assert.strictEqual(result, 0, line);
  const pid = Number(/^info Process started:(\d+)$/.exec(line)[1]);
  const read = (name) => fs.readFileSync(`/proc/${pid}/${name}`, 'utf8');
  await until(() => read('cmdline').startsWith('/bin/bash\0-c\0'), 'a script');
  const [, , script] = read('cmdline').split('\0');
  await look(pid, read);
  process.kill(pid, 'SIGKILL');
  return script;
}

inApp('paths with shell syntax, options and non-packages are rejected', atHome, async (app) => {
  for (const name of ['a.tar', 'adeb', '-a.deb', 'a b.deb', 'a.deb']) write(name);
  execFileSync('mkfifo', [inside('fifo.deb')]);
  await app.run((to) => process.chdir(to), folder);
  const bytes = [...' \t\n!"#$&\'()*;<>?[\\]^`{|}\0'].map((one) => `a${one}b.deb`);
  for (const [reason, ...names] of [
    ['fn-error', 'deb', '', '-a.deb', '~/a.deb', 'x:~root/a.deb', 'a=~/b.deb', ...bytes],
    ['fi-error:2', 'missing.deb'],
    ['nf-error', 'f.deb', 'fifo.deb', '/dev/null'],
    ['ext-error', 'a.tar', 'adeb'],
  ]) {
    for (const name of names)
      assert.deepStrictEqual(await upgrade(app, name), [-1, `error Upgrade: ${reason}`], name);
  }
  for (const HOME of [inside('a b'), '-option', '~', 'x:~root']) {
    await app.run((value) => Object.assign(process.env, value), { HOME });
    assert.deepStrictEqual(await upgrade(app, 'a.deb'), [-1, 'error Upgrade: fn-error'], HOME);
  }
});

// An empty home with only the project and its tools.
const only = [ROOT, BUILD, NODE].flatMap((name) => ['--ro-bind', name, name]);
const under = [...BOX.slice(0, 7), '--tmpfs', homedir, ...only, ...BOX.slice(7)];
const homeless = { skip, under, env: { HOME: undefined, PATH: inside('idle') } };
inApp('values are inserted once, the log needs no HOME', homeless, async (app) => {
  const log = `${homedir}/\\.Brenik/Brenik/Logs/brenik_\\d{8}_\\d{6}\\.log`;
  for (const name of ['.deb', 'UPPER.DEB', 'Grüße_日本1~1:2@3%4=5,6+7-8.Rpm']) {
    const script = (await scriptOf(app, [write(name)])).replace(inside(name), 'FILE');
    assert.match(script, new RegExp(`^while .* FILE\\\\ 2.*tee\\\\ ${log}`));
    assert.doesNotMatch(script, /\n|; brenik$|\$\{(?!FLAG_FILE|IN_CMD|XOPT)/);
  }
  const [first, second] = ['kBinaryAppName', 'upgradePath'].map((name) => `$\{${name}}`);
  const nested = await app.run((...args) => internals.script(...args), first + second, second);
  assert.ok(nested.includes(`-i\\ brenik${second}\\ 2`), nested);
});

// Node marks inherited descriptors close-on-exec, but stops at the first gap.
const crowded = { ...atHome, under: ['bash', '-c', 'exec "$@" 99</dev/null', '-'] };
const alone = 'the script inherits no descriptor and no signal mask, and writes to /dev/null';
inApp(alone, crowded, async (app) => {
  await scriptOf(app, [write('busy.deb')], async (pid, read) => {
    const names = () => fs.readdirSync(`/proc/${pid}/fd`);
    await until(() => String(names()) === '0,1,2', 'exactly three descriptors');
    for (const name of names())
      assert.strictEqual(fs.readlinkSync(`/proc/${pid}/fd/${name}`), '/dev/null');
    // Bash itself blocks signals at times.
    const blocked = () => parseInt(/^SigBlk:\t\w{8}(\w+)$/m.exec(read('status'))[1], 16);
    await until(() => (blocked() & (1 << 14)) === 0, 'SIGTERM to be unblocked');
  });
});

// Records its name and arguments, and imitates the tool as far as a script can tell.
const RECORDER = `#!/bin/bash
name=\${0##*/} all=$*
[ $name = date ] || echo $name \${all%%/bin/bash*} >>/tmp/record
[[ " $FAILS " != *" $name "* ]] || exit 1
case $name in
  date) echo -n x >>/tmp/clock; read -r clock </tmp/clock; echo \${#clock}00 ;;
  sleep) pause 0.05 ;;
  pkexec) "$@" ;;
  gksu | beesu) eval "\${!#}" ;;
esac
`;
const RECORDED = 'date sleep sudo apt-get notify-send brenik';
const DNF = 'dnf -y remove brenik, dnf -y install FILE';
const ZYPPER = 'zypper remove -y brenik, zypper clean --all, zypper install -y -f FILE';
const FAILED = 'notify-send brenik-updater: There was an error. For more information look at:"LOG"';
// Package; existing tools; failing tools; calls.
const BRANCHES = [
  'deb; pkexec gksu xterm; ; pkexec, dpkg -i FILE, brenik',
  'deb; gksu; ; gksu, dpkg -i FILE, brenik',
  `deb; pkexec; sudo apt-get; pkexec, dpkg -i FILE, apt-get install -f -y, ${FAILED}, brenik`,
  `deb; gnome-terminal; ; gnome-terminal -x, ${'sleep 2, '.repeat(6)}brenik`,
  `rpm; pkexec zypper dnf; ; pkexec, ${ZYPPER}, brenik`,
  `rpm; beesu kdesu dnf; ; beesu -c, ${DNF}, brenik`,
  `rpm; pkexec dnf; sudo; pkexec, ${DNF}, ${FAILED}, brenik`,
];

/** Runs a script without the machine's tools. `own` is its /tmp and its log folder. */
async function startBranch(scripts, row, i) {
  const [family, tools, FAILS, calls] = row.split('; ');
  const own = inside(`${i}`);
  fs.mkdirSync(own);
  const args = [...BOX.slice(1), '--tmpfs', '/etc', '--tmpfs', '/usr/bin', '--bind', own, '/tmp'];
  args.push('--bind', own, inside('home/.Brenik/Brenik/Logs'));
  const bind = (from, to) => args.push('--ro-bind', from, `/usr/bin/${to}`);
  for (const tool of words('bash sh ps which grep rm tee')) bind(`/usr/bin/${tool}`, tool);
  bind('/usr/bin/sleep', 'pause');
  for (const tool of words(`${RECORDED} ${tools}`)) bind(inside('recorder'), tool);
  const options = { env: { PATH: '/usr/bin', FAILS }, stdio: ['ignore', 'pipe', 'pipe'] };
  const box = start(BOX[0], [...args, '/usr/bin/bash', '-c', scripts[family]], options);
  const record = () => fs.readFileSync(path.join(own, 'record'), { encoding: 'utf8', flag: 'a+' });
  await box.ready(record, 'the script to wait');
  assert.match(record(), /^(sleep 1\n)+$/, 'the script does not wait for the application');
  return async () => {
    await box.finished();
    const [log] = /\/\S+\.log/.exec(scripts[family]);
    const named = calls.replaceAll('FILE', inside(`a.${family}`)).replace('LOG', log);
    const wanted = named.replace(/(dpkg|dnf|zypper) /g, 'sudo /usr/bin/$1 ').split(', ');
    assert.deepStrictEqual(record().match(/^(?!sleep 1$).+$/gm), wanted, box.output());
  };
}

test('the script waits, installs, reports failures, starts the application', { skip }, async () => {
  write('recorder', RECORDER);
  const start = async (app) => {
    const deb = await scriptOf(app, [write('a.deb'), true]);
    const rpm = await scriptOf(app, [write('a.rpm'), true]);
    return Promise.all(BRANCHES.map((row, i) => startBranch({ deb, rpm }, row, i)));
  };
  for (const check of await shared.withApp(start, atHome)) await check();
});
