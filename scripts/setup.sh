# shellcheck shell=bash
# shellcheck disable=SC2034  # the lists are for the scripts that source this
# Small idempotent steps that make a machine ready. Source it from the repository's root; every
# function may be called again at once.

# Each entry is a package and, after a colon, how its presence shows: @command, +pkg-config
# module, a /path, or nothing for dpkg's own answer.
PACKAGES_BUILD=(g++:@g++ make:@make python3:@python3 pkg-config:@pkg-config
  libgtk-3-dev:+gtk+-3.0 libxi-dev:+xi libxss-dev:+xscrnsaver libxinerama-dev:+xinerama)
PACKAGES_DISPLAY=(xvfb:@Xvfb openbox:@openbox xdotool:@xdotool dbus:@dbus-daemon
  libglib2.0-bin:@gdbus x11-utils:@xdpyinfo)
# Xvfb has one monitor only.
PACKAGES_MONITORS=(xserver-xorg-core:@Xorg
  xserver-xorg-video-dummy:/usr/lib/xorg/modules/drivers/dummy_drv.so x11-xserver-utils:@xrandr)
PACKAGES_DEMO=(libgtk-3-bin:@gtk-builder-tool)
# What the tests want beside those. Desktops come and go with releases.
PACKAGES_TEST=("${PACKAGES_MONITORS[@]}" metacity:@metacity gnome-shell:@gnome-shell
  xwayland:@Xwayland kwin-wayland:/usr/bin/kwin_wayland sway:@sway grim:@grim pipewire:@pipewire
  xdg-desktop-portal:/usr/libexec/xdg-desktop-portal
  xdg-desktop-portal-gnome:/usr/libexec/xdg-desktop-portal-gnome
  xdg-desktop-portal-gtk:/usr/libexec/xdg-desktop-portal-gtk
  xdg-desktop-portal-wlr:/usr/libexec/xdg-desktop-portal-wlr
  procps:@ps bubblewrap:@bwrap imagemagick:@identify)
# Brings a display manager, which has no business on a developer's machine.
PACKAGES_CI=(light-locker:@light-locker)
PACKAGES_LINT=(clang-format:@clang-format clang-tidy:@clang-tidy shellcheck:@shellcheck)
PACKAGES_NPM=(npm:@npm)
# Debian's own Node wants packages for its headers, node-gyp and, where there is no npm, nan.
# Another Node brings the first two along.
PACKAGES_NODE=(nodejs:@node)
if ! command -v node >/dev/null ||
  [ "$(node -p process.config.variables.node_shared)" = true ]; then
  PACKAGES_NODE+=(libnode-dev:/usr/include/node/node.h
    node-gyp:/usr/share/nodejs/node-gyp/package.json)
  if [ ! -e node_modules/nan ] && ! command -v npm >/dev/null; then
    PACKAGES_NODE+=(node-nan:/usr/share/nodejs/nan/package.json)
  fi
fi

# Every major the module is built for.
RUNTIMES=(10.24.1 12.22.12 14.21.3 16.20.2 18.20.8 20.19.5 22.23.3 24.9.0)

# Node for machines whose own has no test runner.
FALLBACK_NODE=20.19.5

say() { printf '== %s\n' "$*" >&2; }

die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

minutes() { if [ "$1" -le 1 ]; then echo 'a minute'; else echo "$1 minutes"; fi; }

# Two runs side by side take turns.
locked() {
  mkdir -p build
  (
    if ! flock -n 9; then
      say "waiting for another run"
      flock -w 1800 9 || die "another run has held build/.lock for half an hour"
    fi
    "$@" 9>&-
  ) 9>build/.lock
}

# Shows a log's last line until its input ends: every second on a terminal, else twice a minute.
show_progress() {
  local start='' end='\n' pause=30 began=$SECONDS
  if [ -t 2 ]; then start='\r\e[K' end='' pause=1; fi
  while read -r -t "$pause"; [ $? -gt 128 ]; do
    printf "$start   %4s s  %.64s$end" $((SECONDS - began)) "$(tail -n 1 "$1" | tr -d '\r')"
  done
  if [ -t 2 ]; then printf '\r\e[K'; fi
} >&2

# logged NAME COMMAND...: its output goes to a log, whose end is shown when the command fails.
logged() {
  local log=.cache/logs/$1.log progress status=0
  shift
  mkdir -p "$(dirname "$log")"
  : >"$log"
  exec {progress}> >(show_progress "$log")
  (
    exec {progress}>&-
    "$@"
  ) >"$log" 2>&1 </dev/null || status=$?
  exec {progress}>&-
  wait "$!"
  if [ "$status" != 0 ]; then
    tail -n 20 "$log" >&2
    say "all of it: $PWD/$log"
  fi
  return "$status"
}

have_package() {
  local name=${1%%:*} sign=${1#"${1%%:*}"}
  case $sign in
    :@*) command -v "${sign#:@}" >/dev/null ;;
    :+*) command -v pkg-config >/dev/null && pkg-config --exists "${sign#:+}" ;;
    :/*) [ -e "${sign#:}" ] ;;
    *) dpkg -s "$name" 2>/dev/null | grep -q '^Status: .* installed$' ;;
  esac
}

as_root() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }

apt_get() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=600 "$@"
}

# Names what this release of the system was found not to have, so that it is looked for once.
left_out_file() {
  # shellcheck source=/dev/null
  printf '.cache/left-out-%s\n' "$(. /etc/os-release && printf '%s-%s' "$ID" "${VERSION_ID:-}")"
}

# Sets `missing`, and `optional` to those that may be left out.
find_missing() {
  local entry name may='' left_out
  left_out=$(left_out_file)
  missing=() optional=()
  for entry; do
    name=${entry%%:*}
    if [ "$entry" = --optional ]; then
      may=1
    elif have_package "$entry"; then
      continue
    elif [ -z "$may" ]; then
      missing+=("$name")
    elif ! grep -qsx -- "$name" "$left_out"; then
      optional+=("$name")
    fi
  done
}

install_missing() {
  local missing optional known name count updated=''
  find_missing "$@"
  [ $((${#missing[@]} + ${#optional[@]})) -gt 0 ] || return 0
  command -v apt-get >/dev/null || die "please install: ${missing[*]} ${optional[*]}"
  # Asks for a password while nothing else is on the terminal.
  as_root true || die "neither root nor sudo; please install: ${missing[*]} ${optional[*]}"
  # A stale list is good enough when the packages are still there.
  if logged apt-update apt_get update; then updated=1; else say "going on with the old lists"; fi
  known=$(apt-cache show --no-all-versions "${optional[@]}" 2>/dev/null |
    sed -n 's/^Package: //p') || true
  for name in "${optional[@]}"; do
    if grep -qx -- "$name" <<<"$known"; then
      missing+=("$name")
    else
      say "there is no package $name here; what needs it is left out"
      if [ -n "$updated" ]; then printf '%s\n' "$name" >>"$(left_out_file)"; fi
    fi
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  count=$(apt-get -s install --no-install-recommends "${missing[@]}" 2>/dev/null |
    grep -c '^Inst') || true
  say "installing $count packages, which takes about $(minutes $((count / 150 + 1)))"
  logged apt-install apt_get install -y --no-install-recommends "${missing[@]}" ||
    die "could not install ${missing[*]}"
}

# need_packages ENTRY... [--optional ENTRY...]: a release may lack the optional ones.
need_packages() {
  local missing optional
  find_missing "$@"
  [ $((${#missing[@]} + ${#optional[@]})) = 0 ] || locked install_missing "$@"
}

has_headers_of() {
  local file=$1/include/node/node_version.h
  [ -e "$1/include/node/node.h" ] && [ -e "$file" ] || return 1
  [ "$(awk '/#define NODE_(MAJOR|MINOR|PATCH)_VERSION/ {v = v "." $3} END {print substr(v, 2)}' \
    "$file")" = "$2" ]
}

# Puts Node (binary and headers) under .cache and prints the folder. Runs npm with the Node at hand.
cached_node() {
  local package folder
  need_packages "${PACKAGES_NPM[@]}"
  package=node-linux-$(node -p process.arch)
  folder=$PWD/.cache/node-$1
  [ -e "$folder/node_modules/$package/include/node/node.h" ] ||
    locked logged "node-$1" npm install --prefix "$folder" --no-save --ignore-scripts --no-audit \
      --no-fund "$package@$1" || die "could not get Node $1 from npm"
  printf '%s\n' "$folder/node_modules/$package"
}

# Sets NODE_PREFIX (include/node lies beneath) and NODE_GYP (a command as an array).
need_node() {
  local version prefix folder
  need_packages "${PACKAGES_NODE[@]}"
  if [ "$(node -p 'parseInt(process.versions.node)')" -lt 18 ]; then
    say "Node $(node -p process.version) has no test runner; using $FALLBACK_NODE"
    prefix=$(cached_node "$FALLBACK_NODE")
    export PATH=$prefix/bin:$PATH
    hash -r
  fi
  version=$(node -p process.versions.node)
  prefix=$(dirname "$(dirname "$(node -p 'fs.realpathSync(process.execPath)')")")
  NODE_PREFIX=
  for folder in "$prefix" /usr; do
    if has_headers_of "$folder" "$version"; then
      NODE_PREFIX=$folder
      break
    fi
  done
  [ -n "$NODE_PREFIX" ] || NODE_PREFIX=$(cached_node "$version")
  # npm's own, or Debian's.
  folder=$(dirname "$(realpath "$(command -v npm || command -v node)")")
  NODE_GYP=(node "$(node -p '
    require.resolve("node-gyp/bin/node-gyp.js", { paths: process.argv.slice(1) })' \
    "$folder" /usr/share/nodejs)")
}

# What npm leaves out; scripts/lint clears it.
modules_omit=optional

modules_current() {
  node -e '
    const omit = process.argv[1];
    const read = (file) => {
      try { return JSON.parse(fs.readFileSync(file)).packages; } catch (e) { return {}; }
    };
    const have = read("node_modules/.package-lock.json");
    const want = Object.entries(read("package-lock.json"))
      .filter(([name, { optional, cpu }]) => name && !(omit ? optional : cpu));
    const same = ([name, { version, integrity }]) => fs.existsSync(name) && have[name] &&
      have[name].version === version && have[name].integrity === integrity;
    process.exit(want.every(same) ? 0 : 1);' "$modules_omit"
}

install_modules() {
  if modules_current; then return 0; fi
  logged npm npm ci --ignore-scripts --no-audit --no-fund ${modules_omit:+"--omit=$modules_omit"} ||
    die "npm ci failed"
}

need_modules() {
  need_packages "${PACKAGES_NPM[@]}"
  modules_current || locked install_modules
}

# All that the demo needs of npm; Debian has it in a package, too.
need_nan() {
  node -e 'require.resolve("nan")' 2>/dev/null || need_modules
}
