# shellcheck shell=bash
# Builds with what scripts/setup.sh has found. Source it after that file.

# What a configuration depends on, including the folder: it contains absolute paths.
configuration_key() {
  printf '%s\n' "$PWD" "$NODE_PREFIX" "$(node -p process.version)" "${NODE_GYP[*]}" \
    "$(node -p 'require.resolve("nan")')"
  sha256sum binding.gyp
}

configured() {
  [ build/Makefile -nt binding.gyp ] &&
    [ "$(configuration_key)" = "$(cat build/.configured 2>/dev/null)" ]
}

# configure FORMAT...: all formats in one run of gyp, because a later run makes the first outdated.
configure() {
  logged configure "${NODE_GYP[@]}" configure "--nodedir=$NODE_PREFIX" -- -Dkiv_dev=1 \
    "${@/#/-f}" || die "configuring failed"
  configuration_key >build/.configured
}

# make_target NAME FOLDER TARGET [OPTION...]: announces builds that take more than a moment.
make_target() {
  local name=$1 command=(make -C "$2/build" -j 2 "${@:4}" "$3") count
  count=$("${command[@]}" -n | grep -c ' CXX(target)') || true
  if [ "$count" -gt 5 ]; then
    say "compiling $count files for $name, which takes about $(minutes $((count / 60 + 1)))"
  fi
  logged "build-$name" "${command[@]}" || die "the build for $name failed"
}

build_locked() {
  configured || configure make
  make_target "$1" . "$2" "BUILDTYPE=$1"
}

# build [CONFIGURATION [TARGET]]
build() {
  case ${1:-Release} in
    Release | Debug) locked build_locked "${1:-Release}" "${2:-all}" ;;
    *) die "unknown configuration $1: Release or Debug" ;;
  esac
}

# configure_in FOLDER PREFIX [OPTION...]: for a copy of the sources, another Node or compiler.
configure_in() {
  local folder=$1 prefix=$2
  [ -e "$folder/node_modules" ] || ln -sfn "$PWD/node_modules" "$folder/node_modules"
  [ "$folder/build/Makefile" -nt "$folder/binding.gyp" ] ||
    logged configure "${NODE_GYP[@]}" configure "--directory=$folder" "--nodedir=$prefix" -- \
      -Dkiv_dev=1 "${@:3}" || die "configuring in $folder failed"
}

build_for_runtime_locked() {
  local folder=$PWD/.cache/runtime-$1
  mkdir -p "$folder"
  cp -ru binding.gyp package.json index.js src host bench examples test "$folder"
  configure_in "$folder" "$2"
  make_target "Node-$1" "$folder" tests BUILDTYPE=Release
}

# Builds the current sources with another Node's headers, in a separate folder.
build_for_runtime() {
  local prefix
  prefix=$(cached_node "$1")
  locked build_for_runtime_locked "$1" "$prefix"
}

# Sets FUZZ_ENGINE and FUZZ_SANITIZER, the libraries of the installed clang.
need_fuzz_engine() {
  local machine runtime
  machine=$(uname -m)
  need_packages clang:@clang
  runtime=$(clang -print-file-name="libclang_rt.fuzzer_no_main-$machine.a")
  # Depending on the release, part of clang's own package or of a separate one.
  [ -e "$runtime" ] || need_packages "libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
  FUZZ_ENGINE=$(clang -print-file-name="libclang_rt.fuzzer_no_main-$machine.a")
  FUZZ_SANITIZER=$(clang -print-file-name="libclang_rt.asan-$machine.so")
  if [ ! -e "$FUZZ_ENGINE" ] || [ ! -e "$FUZZ_SANITIZER" ]; then
    die "this clang has no libFuzzer"
  fi
}

build_fuzz_locked() {
  local folder=$PWD/.cache/fuzz
  mkdir -p "$folder/fuzz"
  cp -ru binding.gyp package.json src "$folder"
  cp -ru fuzz/native "$folder/fuzz"
  export CC=clang CXX=clang++
  configure_in "$folder" "$NODE_PREFIX" -Dkiv_fuzz=1 "-Dkiv_fuzz_engine=$FUZZ_ENGINE"
  make_target fuzz "$folder" kiv_fuzz BUILDTYPE=Release
}

# Builds the fuzzer's add-on with clang, in a separate folder.
build_fuzz() { locked build_fuzz_locked; }
