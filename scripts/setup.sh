# shellcheck shell=bash
# shellcheck disable=SC2034  # the lists are for the scripts that source this
# Small idempotent steps that make a machine ready to build and test. Source it from the
# repository's root; every function may be called again at once.

# Each entry is a package and, after a colon, how its presence shows: @command, +pkg-config
# module, a /path, or nothing for dpkg's own answer.
PACKAGES_BUILD=(g++:@g++ make:@make python3:@python3 pkg-config:@pkg-config
  libgtk-3-dev:+gtk+-3.0 libxi-dev:+xi libxss-dev:+xscrnsaver libxinerama-dev:+xinerama
  libxtst-dev:+xtst libxres-dev:+xres)
PACKAGES_DISPLAY=(xvfb:@Xvfb openbox:@openbox dbus:@dbus-daemon libglib2.0-bin:@gdbus
  x11-utils:@xdpyinfo)
PACKAGES_TEST=("${PACKAGES_DISPLAY[@]}" xserver-xorg-core:@Xorg
  xserver-xorg-video-dummy:/usr/lib/xorg/modules/drivers/dummy_drv.so
  x11-xserver-utils:@xrandr metacity:@metacity xfwm4:@xfwm4 mutter:@mutter
  gnome-shell:@gnome-shell gjs:@gjs xwayland:@Xwayland
  kwin-wayland:/usr/bin/kwin_wayland qtwayland5 libkf5service-bin:@kbuildsycoca5
  cinnamon-screensaver:@cinnamon-screensaver cinnamon-common gir1.2-cvc-1.0 gir1.2-caribou-1.0
  dwm:@dwm procps:@ps util-linux:@unshare)
# Brings a display manager, which has no business on a developer's machine.
PACKAGES_CI=(light-locker:@light-locker)
PACKAGES_LINT=(clang-format:@clang-format clang-tidy:@clang-tidy shellcheck:@shellcheck)

# Every major the module is built for.
RUNTIMES=(10.24.1 12.22.12 14.21.3 16.20.2 18.20.8 20.19.5 22.23.3 24.9.0)

# Node for machines whose own has no test runner.
FALLBACK_NODE=20.19.5

say() { printf '== %s\n' "$*" >&2; }

die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# Two runs side by side take turns.
locked() {
  mkdir -p build
  (
    flock -w 1800 9 || die "another run has held build/.lock for half an hour"
    "$@" 9>&-
  ) 9>build/.lock
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

apt_get() {
  local as=()
  if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null || return 1
    as=(sudo)
  fi
  "${as[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=600 "$@" >&2
}

# Names what this release of the system was found not to have, so that it is looked for once.
left_out_file() {
  # shellcheck source=/dev/null
  printf '.cache/left-out-%s\n' "$(. /etc/os-release && printf '%s-%s' "$ID" "${VERSION_ID:-}")"
}

# For need_packages: takes out of `missing` what this release of the system does not have.
drop_unknown() {
  local name known=()
  for name in "${missing[@]}"; do
    if apt-cache show "$name" >/dev/null 2>&1; then
      known+=("$name")
    else
      say "there is no package $name here; what needs it is left out"
      if [ -n "$updated" ]; then printf '%s\n' "$name" >>"$left_out"; fi
    fi
  done
  missing=("${known[@]}")
}

# The desktops of the tests come and go with releases: SKIP_UNKNOWN=1 goes on without them.
need_packages() {
  local entry updated='' left_out='' missing=()
  if [ -n "${SKIP_UNKNOWN:-}" ]; then left_out=$(left_out_file); fi
  for entry; do
    have_package "$entry" || grep -qsx -- "${entry%%:*}" "${left_out:-/dev/null}" ||
      missing+=("${entry%%:*}")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  command -v apt-get >/dev/null || die "please install: ${missing[*]}"
  say "installing ${missing[*]}"
  # A stale list is good enough when the packages are still there.
  if apt_get update; then updated=1; else say "apt-get update failed; going on with the lists at hand"; fi
  if [ -n "$left_out" ]; then
    mkdir -p .cache
    drop_unknown
  fi
  [ ${#missing[@]} -gt 0 ] || return 0
  apt_get install -y --no-install-recommends "${missing[@]}" ||
    die "could not install ${missing[*]}; please install them by hand"
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
  package=node-linux-$(node -p process.arch)
  folder=$PWD/.cache/node-$1
  [ -e "$folder/node_modules/$package/include/node/node.h" ] ||
    locked npm install --prefix "$folder" --no-save --ignore-scripts --no-audit --no-fund \
      "$package@$1" >&2 || die "could not get the headers of Node $1 from npm"
  printf '%s\n' "$folder/node_modules/$package"
}

# Sets NODE_PREFIX (include/node lies beneath) and NODE_GYP (a command as an array).
need_node() {
  need_packages nodejs:@node npm:@npm
  local major version own npm_dir folder
  major=$(node -p 'process.versions.node.split(".")[0]')
  if [ "$major" -lt 18 ]; then
    say "Node $(node -p process.version) has no test runner; using $FALLBACK_NODE"
    own=$(cached_node "$FALLBACK_NODE")
    export PATH=$own/bin:$PATH
    hash -r
  fi
  version=$(node -p process.versions.node)
  own=$(dirname "$(dirname "$(node -p 'fs.realpathSync(process.execPath)')")")
  NODE_PREFIX=
  for folder in "$own" /usr; do
    if has_headers_of "$folder" "$version"; then
      NODE_PREFIX=$folder
      break
    fi
  done
  [ -n "$NODE_PREFIX" ] || NODE_PREFIX=$(cached_node "$version")

  npm_dir=$(dirname "$(dirname "$(realpath "$(command -v npm)")")")
  NODE_GYP=()
  for folder in "$(npm root -g)/npm" "$npm_dir" /usr/share/nodejs/npm; do
    if [ -e "$folder/node_modules/node-gyp/bin/node-gyp.js" ]; then
      NODE_GYP=(node "$folder/node_modules/node-gyp/bin/node-gyp.js")
      return
    fi
  done
  need_packages node-gyp:@node-gyp
  NODE_GYP=(node "$(realpath "$(command -v node-gyp)")")
}

modules_current() {
  node -e '
    const read = (file) => { try { return JSON.parse(fs.readFileSync(file)).packages; } catch (e) { return {}; } };
    const have = read("node_modules/.package-lock.json");
    const want = Object.entries(read("package-lock.json")).filter(([name]) => name);
    process.exit(want.every(([name, { version, integrity }]) => fs.existsSync(name) && have[name] &&
      have[name].version === version && have[name].integrity === integrity) ? 0 : 1);'
}

install_modules() {
  if modules_current; then return 0; fi
  say "npm ci"
  npm ci --ignore-scripts --no-audit --no-fund >&2 || die "npm ci failed"
}

need_npm() { locked install_modules; }

# What a configuration depends on; the moved tree counts, since it holds absolute paths.
configuration_key() {
  printf '%s\n' "$PWD" "$NODE_PREFIX" "$(node -p process.version)" "${NODE_GYP[*]}"
  sha256sum binding.gyp
}

# configure [FORMAT]: for make, and for what else gyp can be asked for.
configure() {
  local key
  key=$(configuration_key)
  if [ -z "${1:-}" ] && [ -e build/Makefile ] &&
    [ "$key" = "$(cat build/.configured 2>/dev/null)" ]; then return 0; fi
  say "configuring"
  # Both formats in one go: a later run for the second one alone would date the first.
  "${NODE_GYP[@]}" configure --silent "--nodedir=$NODE_PREFIX" -- -Dkiv_dev=1 \
    -f make ${1:+-f "$1"} >&2 || die "configuring failed"
  printf '%s\n' "$key" >build/.configured
}

build_locked() {
  local debug=()
  if [ "$1" = Debug ]; then debug=(--debug); fi
  configure
  say "building $1"
  "${NODE_GYP[@]}" build --silent -j 2 "--nodedir=$NODE_PREFIX" "${debug[@]}" >&2 ||
    die "the $1 build failed"
}

build() {
  case ${1:-Release} in
    Release | Debug) locked build_locked "${1:-Release}" ;;
    *) die "unknown configuration $1: Release or Debug" ;;
  esac
}

# Builds the sources at hand with another Node's headers, in a folder of their own.
build_for_runtime_locked() {
  local folder=$PWD/.cache/runtime-$1 prefix=$2
  say "building for Node $1"
  mkdir -p "$folder"
  cp -ru binding.gyp package.json index.js src host bench examples test "$folder"
  ln -sfn "$PWD/node_modules" "$folder/node_modules"
  (
    cd "$folder"
    if [ ! -e build/Makefile ] || [ binding.gyp -nt build/Makefile ]; then
      "${NODE_GYP[@]}" configure --silent "--nodedir=$prefix" -- -Dkiv_dev=1 >&2
    fi
    "${NODE_GYP[@]}" build --silent -j 2 "--nodedir=$prefix" >&2
  ) || die "the build for Node $1 failed"
}

build_for_runtime() {
  local prefix
  prefix=$(cached_node "$1")
  locked build_for_runtime_locked "$1" "$prefix"
}

# Sets FUZZ_ENGINE and FUZZ_SANITIZER, the libraries of the clang at hand.
need_fuzz_engine() {
  local machine runtime
  machine=$(uname -m)
  need_packages clang:@clang
  runtime=$(clang -print-file-name="libclang_rt.fuzzer_no_main-$machine.a")
  # Part of clang's own package, or of one beside it, from release to release.
  [ -e "$runtime" ] || need_packages "libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
  FUZZ_ENGINE=$(clang -print-file-name="libclang_rt.fuzzer_no_main-$machine.a")
  FUZZ_SANITIZER=$(clang -print-file-name="libclang_rt.asan-$machine.so")
  if [ ! -e "$FUZZ_ENGINE" ] || [ ! -e "$FUZZ_SANITIZER" ]; then
    die "clang comes without its libFuzzer"
  fi
}

# The fuzzer's add-on, by another compiler in a folder of its own.
build_fuzz_locked() {
  local folder=$PWD/.cache/fuzz
  say "building the fuzzer"
  mkdir -p "$folder/fuzz"
  cp -ru binding.gyp package.json src "$folder"
  cp -ru fuzz/native "$folder/fuzz"
  ln -sfn "$PWD/node_modules" "$folder/node_modules"
  (
    cd "$folder"
    export CC=clang CXX=clang++
    if [ ! -e build/Makefile ] || [ binding.gyp -nt build/Makefile ]; then
      "${NODE_GYP[@]}" configure --silent "--nodedir=$NODE_PREFIX" -- -Dkiv_fuzz=1 -Dkiv_dev=1 \
        "-Dkiv_fuzz_engine=$FUZZ_ENGINE" >&2
    fi
    make -s -C build -j 2 BUILDTYPE=Release kiv_fuzz >&2
  ) || die "the fuzzer's build failed"
}

build_fuzz() { locked build_fuzz_locked; }
