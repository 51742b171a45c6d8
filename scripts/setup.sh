# shellcheck shell=bash
# shellcheck disable=SC2034  # the lists are for the scripts that source this
# Small idempotent steps that set up a machine. Source it from the repository's root. Every function
# may be called repeatedly.

# Each entry is a package and, after a colon, how to detect it: @command, +pkg-config module, a
# /path, or nothing to ask dpkg.
PACKAGES_BUILD=(g++:@g++ make:@make python3:@python3 pkg-config:@pkg-config
  libgtk-3-dev:+gtk+-3.0 libxi-dev:+xi libxss-dev:+xscrnsaver libxinerama-dev:+xinerama)
PACKAGES_DISPLAY=(xvfb:@Xvfb openbox:@openbox xdotool:@xdotool dbus:@dbus-daemon
  libglib2.0-bin:@gdbus x11-utils:@xdpyinfo)
# Xvfb has only one monitor.
PACKAGES_MONITORS=(xserver-xorg-core:@Xorg
  xserver-xorg-video-dummy:/usr/lib/xorg/modules/drivers/dummy_drv.so x11-xserver-utils:@xrandr)
PACKAGES_DEMO=(libgtk-3-bin:@gtk-builder-tool)
# What the tests need in addition. Not every release has all desktops.
PACKAGES_TEST=("${PACKAGES_MONITORS[@]}" metacity:@metacity gnome-shell:@gnome-shell
  xwayland:@Xwayland kwin-wayland:/usr/bin/kwin_wayland sway:@sway grim:@grim pipewire:@pipewire
  xdg-desktop-portal:/usr/libexec/xdg-desktop-portal
  xdg-desktop-portal-gnome:/usr/libexec/xdg-desktop-portal-gnome
  xdg-desktop-portal-gtk:/usr/libexec/xdg-desktop-portal-gtk
  xdg-desktop-portal-wlr:/usr/libexec/xdg-desktop-portal-wlr
  procps:@ps bubblewrap:@bwrap imagemagick:@identify)
# Installs a display manager, so not for a developer's machine.
PACKAGES_CI=(light-locker:@light-locker)
PACKAGES_LINT=(clang-format:@clang-format clang-tidy:@clang-tidy shellcheck:@shellcheck)
PACKAGES_NPM=(npm:@npm)
# Debian's own Node needs packages for its headers, node-gyp and, without npm, nan. Other Nodes
# include the first two.
PACKAGES_NODE=(nodejs:@node)
if ! command -v node >/dev/null ||
  [ "$(node -p process.config.variables.node_shared)" = true ]; then
  PACKAGES_NODE+=(libnode-dev:/usr/include/node/node.h
    node-gyp:/usr/share/nodejs/node-gyp/package.json)
  if [ ! -e node_modules/nan ] && ! command -v npm >/dev/null; then
    PACKAGES_NODE+=(node-nan:/usr/share/nodejs/nan/package.json)
  fi
fi

# Every major version that the module is built for.
RUNTIMES=(10.24.1 12.22.12 14.21.3 16.20.2 18.20.8 20.19.5 22.23.3 24.9.0)

# For machines whose own Node has no test runner.
FALLBACK_NODE=20.19.5

say() { printf '== %s\n' "$*" >&2; }

die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

minutes() { if [ "$1" -le 1 ]; then echo 'a minute'; else echo "$1 minutes"; fi; }

# Lets concurrent runs wait for each other.
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

# Shows a log's last line until stdin ends: every second on a terminal, else twice a minute.
show_progress() {
  local start='' end='\n' pause=30 began=$SECONDS
  if [ -t 2 ]; then start='\r\e[K' end='' pause=1; fi
  while read -r -t "$pause"; [ $? -gt 128 ]; do
    printf "$start   %4s s  %.64s$end" $((SECONDS - began)) "$(tail -n 1 "$1" | tr -d '\r')"
  done
  if [ -t 2 ]; then printf '\r\e[K'; fi
} >&2

# logged NAME COMMAND...: writes its output to a log, and shows the log's end when it fails.
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
    say "full log: $PWD/$log"
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

# The file that lists packages this release lacks, so that they are searched for only once.
left_out_file() {
  # shellcheck source=/dev/null
  printf '.cache/left-out-%s\n' "$(. /etc/os-release && printf '%s-%s' "$ID" "${VERSION_ID:-}")"
}

# Sets `missing` and, for packages that may be left out, `optional`.
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
  # Ask for the password while nothing else writes to the terminal.
  as_root true || die "root or sudo is needed; or install: ${missing[*]} ${optional[*]}"
  # Old package lists are good enough while their packages are still available.
  if logged apt-update apt_get update; then updated=1; else say "using the old package lists"; fi
  known=$(apt-cache show --no-all-versions "${optional[@]}" 2>/dev/null |
    sed -n 's/^Package: //p') || true
  for name in "${optional[@]}"; do
    if grep -qx -- "$name" <<<"$known"; then
      missing+=("$name")
    else
      say "this release has no package $name; skipping what needs it"
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

# need_packages ENTRY... [--optional ENTRY...]: installs them. A release may lack optional ones.
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

# Installs Node (binary and headers) below .cache with the current Node's npm. Prints the folder.
cached_node() {
  local package folder
  need_packages "${PACKAGES_NPM[@]}"
  package=node-linux-$(node -p process.arch)
  folder=$PWD/.cache/node-$1
  [ -e "$folder/node_modules/$package/include/node/node.h" ] ||
    locked logged "node-$1" npm install --prefix "$folder" --no-save --ignore-scripts --no-audit \
      --no-fund "$package@$1" || die "could not install Node $1 from npm"
  printf '%s\n' "$folder/node_modules/$package"
}

# Sets NODE_PREFIX (contains include/node) and NODE_GYP (a command as an array).
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
  # npm's own node-gyp, or Debian's.
  folder=$(dirname "$(realpath "$(command -v npm || command -v node)")")
  NODE_GYP=(node "$(node -p '
    require.resolve("node-gyp/bin/node-gyp.js", { paths: process.argv.slice(1) })' \
    "$folder" /usr/share/nodejs)")
}

# What npm omits. scripts/lint clears it.
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

# The demo needs only this of the npm packages; Debian has a package for it, too.
need_nan() {
  node -e 'require.resolve("nan")' 2>/dev/null || need_modules
}
