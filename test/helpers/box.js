'use strict';

const { spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { NODE } = require('./processes');

const ROOT = path.join(__dirname, '..', '..');
const BASE = ['ps', 'which', 'grep', 'rm', 'tee', 'bash', 'cat'];

// Notes its name and arguments in $KIV_RECORD, behaves as its namesake would as far as a script can
// tell, and ends with $STATUS_name where that is set. Bash only: PATH holds what a test wants.
const TOOL = `#!/bin/bash
name=\${0##*/}
case $name in
  date) now=$KIV_NOW; [ ! -s "$KIV_CLOCK" ] || read -r now <"$KIV_CLOCK"
    echo $((now + KIV_STEP)) >"$KIV_CLOCK"; echo "$now"; exit ;;
  sleep) exec /usr/bin/sleep 0.05 ;;
esac
{ printf '%s\\037' "$name" "$@"; echo; } >>"$KIV_RECORD"
status=STATUS_\${name//-/_}
[ -z "\${!status-}" ] || { echo "$name failed"; exit "\${!status}"; }
case $name in
  pkexec | other-su | sudo) "$@" ;;
  gksu) eval "$1" ;;
  beesu | kdesu | other-term) eval "\${@: -1}" ;;
  xterm | konsole | gnome-terminal) shift; "$@" ;;
  dpkg | apt-get | zypper | dnf | yum) echo "$name" ;;
esac
`;

// On a copy-on-write root in memory that goes with its last process: nothing that runs in it
// changes the machine. The repository and the test's folder are the real ones.
const ENTER = (folder) => `#!/bin/bash
set -e
if [ -z "\${BOX_INSIDE-}" ]; then
  export BOX_INSIDE=1 BOX_PRELOAD=\${LD_PRELOAD-}
  unset LD_PRELOAD
  exec unshare --mount --propagation private "$0" "$@"
fi
cd '${folder}'
mount -t tmpfs none box
mkdir box/upper box/work box/root
mount -t overlay none -o lowerdir=/,upperdir=box/upper,workdir=box/work box/root
mount --rbind /dev box/root/dev
mount --rbind /proc box/root/proc
mount --bind tmp box/root/tmp
mkdir -p 'box/root${ROOT}' 'box/root${folder}'
mount --bind '${ROOT}' 'box/root${ROOT}'
mount -o remount,bind,ro 'box/root${ROOT}'
mount --bind '${folder}' 'box/root${folder}'
cp machine/* box/root/usr/bin/
[ -z "$BOX_PRELOAD" ] || set -- "LD_PRELOAD=$BOX_PRELOAD" "$@"
exec chroot box/root env -u BOX_INSIDE -u BOX_PRELOAD -C '${ROOT}' "$@"
`;

const script = (file, text) => fs.writeFileSync(file, text, { mode: 0o755 });

/**
 * A folder for upgrades: `path(name, tools)` makes a PATH of the necessary tools and of recorders
 * under the given names, `node` runs a case in a root of its own whose /tmp is `tmp` and where
 * the commands in `machine` are recorders, too.
 */
function makeBox({ machine = ['sudo', 'dpkg', 'apt-get'] } = {}) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'kiv-box-'));
  const inside = (...names) => path.join(folder, ...names);
  for (const name of ['box', 'machine', 'tmp', 'home']) fs.mkdirSync(inside(name));
  fs.chmodSync(folder, 0o755);
  script(inside('tool'), TOOL);
  for (const name of machine) script(inside('machine', name), TOOL);
  script(inside('enter'), ENTER(folder));
  script(inside('node'), `#!/bin/bash\nexec '${inside('enter')}' '${NODE}' "$@"\n`);
  return {
    folder,
    inside,
    node: inside('node'),
    tmp: inside('tmp'),
    path(name, tools) {
      fs.mkdirSync(inside(name));
      for (const tool of BASE) fs.symlinkSync(`/usr/bin/${tool}`, inside(name, tool));
      for (const tool of ['date', 'sleep', 'notify-send', 'brenik', ...tools]) {
        fs.symlinkSync(inside('tool'), inside(name, tool));
      }
      return inside(name);
    },
    remove: () => fs.rmSync(folder, { recursive: true, force: true }),
  };
}

/** For a test's `skip` option: false, or why there can be no box. A failure on a build server. */
function needBox() {
  const box = makeBox();
  const { status, stderr } = spawnSync(box.inside('enter'), ['true'], { encoding: 'utf8', timeout: 20000 });
  box.remove();
  if (status === 0) return false;
  const reason = `no mount namespace of one's own: ${stderr}`;
  if (process.env.CI || process.env.KIV_CI) throw new Error(reason);
  return reason;
}

module.exports = { makeBox, needBox };
