#!/usr/bin/env bash
# scripts/setup.sh PRESET [--for start|install|webrtc|test|valgrind|bench|lint|fuzz] [PRESET ...]
#
# Sets up and builds each PRESET in a fresh or changed clone: checks the tools for all of them (and
# installs missing ones with apt-get when root), fetches the npm packages, configures and builds.
# Steps that are already done are skipped. The required tools depend on the purpose (by default
# "test"): `npm start` needs neither a test framework nor a browser, "webrtc" adds the engine for
# real meetings and the server for its tests, and "fuzz" builds the fuzzers only. For "install", in
# an installed package, npm has fetched the dependencies, the compiler's warnings are not errors,
# and only the addon and its engine are kept of the build. For "lint" it stops before the build,
# which is part of the check itself.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

fail() {
  printf 'setup: %s\n' "$@" >&2
  exit 1
}

presets='release|debug|asan|tsan|clang|coverage|fuzz|tidy'
purposes='start|install|webrtc|test|valgrind|bench|lint|fuzz'
usage="usage: scripts/setup.sh $presets [--for $purposes] [$presets ...]"
wanted=() # "PRESET PURPOSE" each
while (($#)); do
  [[ $1 =~ ^($presets)$ ]] || fail "$usage"
  preset=$1 purpose=test
  shift
  if [[ ${1:-} == --for ]]; then
    [[ ${2:-} =~ ^($purposes)$ ]] || fail "$usage"
    purpose=$2
    shift 2
  fi
  wanted+=("$preset $purpose")
done
((${#wanted[@]})) || fail "$usage"

mkdir -p build
# Two at once would write the same files. The lock goes with the last process that has it open.
exec {lock}<build
if ! flock --nonblock "$lock"; then
  echo "waiting for another set-up"
  flock "$lock"
fi
for pair in "${wanted[@]}"; do : >"build/setup-${pair% *}.log"; done

# for_each COMMAND...: runs the command for each requested preset.
for_each() {
  local pair
  for pair in "${wanted[@]}"; do
    read -r preset purpose <<<"$pair"
    build=build/$preset
    # An installed package keeps no intermediate files.
    if [[ $purpose == install ]]; then build=build/install; fi
    log=build/setup-$preset.log
    "$@"
  done
}

# Runs a command with its output in the log, which is shown when the command fails.
logged() {
  printf '$ %s\n' "$*" >>"$log"
  "$@" >>"$log" 2>&1 && return
  tail -n 100 "$log" >&2
  fail "\"$*\" failed; all of its output is in $log"
}

has_command() { command -v "$1" >/dev/null; }
has_program() { [[ -x $1 ]]; }
has_header() {
  has_command g++ && printf '#if !__has_include(<%s>)\n#error\n#endif\n' "$1" |
    g++ -E -x c++ - >/dev/null 2>&1
}
# A library that comes with the compiler is printed with its path, an unknown one without.
has_runtime() { has_command g++ && [[ $(g++ -print-file-name="$1") == */* ]]; }
has_fuzzer_runtime() {
  has_command clang++ && [[ -e $(clang++ -print-file-name=libclang_rt.fuzzer-x86_64.a) ]]
}
# Chromium's sandbox is not needed as root, nor where users may create namespaces.
has_sandbox() {
  ((EUID == 0)) || [[ -u /usr/lib/chromium/chrome-sandbox ]] ||
    unshare --user --map-root-user true 2>/dev/null
}
# has_version COMMAND MINIMUM: the command exists and the first version it prints is high enough.
has_version() {
  local version
  has_command "$1" || return
  version=$("$1" --version | grep -oE '[0-9]+(\.[0-9]+)+' | head -n 1) || return
  printf '%s\n' "$2" "$version" | sort --version-sort --check=quiet
}

has_module() { has_command pkg-config && pkg-config --exists "$1"; }
has_plugin() { [[ -e /usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgst$1.so ]]; }

# Debian 13 has no such package: the tests that need the server are left out there, and say so.
packages_janus() { ! grep -qs '^VERSION_CODENAME=trixie' /etc/os-release; }

# The packages to build and run the engine for real meetings, and its server.
need_webrtc() {
  need pkg-config has_command pkg-config
  need libgstreamer1.0-dev has_module gstreamer-1.0
  need libgstreamer-plugins-base1.0-dev has_module gstreamer-app-1.0
  need libgstreamer-plugins-bad1.0-dev has_module gstreamer-webrtc-1.0
  need libsoup-3.0-dev has_module libsoup-3.0
  need libxcb-composite0-dev has_module xcb-composite
  need libxcb-randr0-dev has_module xcb-randr
  need gstreamer1.0-plugins-base has_plugin app
  need gstreamer1.0-plugins-good has_plugin vpx
  need gstreamer1.0-plugins-bad has_plugin webrtc
  need gstreamer1.0-nice has_plugin nice
  need gstreamer1.0-pulseaudio has_plugin pulseaudio
  need gstreamer1.0-pipewire has_plugin pipewire
  if packages_janus; then need janus has_command janus; fi
}

# The missing Debian packages that the purpose needs.
missing_packages() {
  need() { "${@:2}" || echo "$1"; }
  need cmake has_version cmake 3.25
  need ninja-build has_command ninja
  need g++ has_version g++ 12
  need nlohmann-json3-dev has_header nlohmann/json.hpp
  case $preset in
    clang | fuzz | tidy) need clang has_command clang++ ;;
  esac
  if [[ $preset == fuzz ]]; then
    need libclang-rt-dev has_fuzzer_runtime
    need llvm has_command llvm-symbolizer
  fi
  [[ $purpose =~ ^(webrtc|lint)$ ]] && need_webrtc
  [[ $purpose =~ ^(start|install|webrtc|fuzz)$ ]] && return
  need libgtest-dev has_header gtest/gtest.h
  need libgmock-dev has_header gmock/gmock.h
  case $purpose in
    bench | lint) need libbenchmark-dev has_header benchmark/benchmark.h ;;
  esac
  case $purpose in
    bench | test)
      need chromium has_command chromium
      need chromium-sandbox has_sandbox
      ;;
  esac
  case $purpose in
    test)
      need ffmpeg has_command ffmpeg
      if [[ $preset == release ]]; then
        need haproxy has_program /usr/sbin/haproxy
        need pipewire-bin has_command pw-cli
        need wireplumber has_command wireplumber
        need dbus-daemon has_command dbus-daemon
      fi
      case $preset in
        release | asan | tsan)
          need coturn has_command turnserver
          need openssl has_command openssl
          need pulseaudio has_command pulseaudio
          need pulseaudio-utils has_command parec
          need x11-apps has_command xlogo
          need x11-utils has_command xwininfo
          need x11-xserver-utils has_command xrandr
          need xvfb has_command Xvfb
          ;;
      esac
      ;;
    valgrind) need valgrind has_command valgrind ;;
  esac
  case $preset in
    asan) need g++ has_runtime libasan.so ;;
    tsan) need g++ has_runtime libtsan.so ;;
    coverage) need gcovr has_command gcovr ;;
    tidy) need clang-tidy has_command clang-tidy ;;
  esac
  if [[ $purpose == lint ]]; then
    need clang-format has_command clang-format
    need shellcheck has_command shellcheck
  fi
}

check_node() {
  local hint="install Node.js 20.4 or newer as nodejs.org ships it: with npm and its headers"
  has_command node || fail "node is missing: $hint"
  has_version node 20.4 || fail "node $(node --version) is too old: $hint"
  has_command npm || fail "npm is missing: $hint"
  local headers header
  headers=$(node -p 'require("path").resolve(process.execPath, "../../include/node")')
  for header in node_api.h uv.h; do
    [[ -e $headers/$header ]] ||
      fail "$headers/$header is missing (the headers of the node that runs): $hint"
  done
}

# Some packages start a server when they are installed, and at each boot: this prevents it, since
# the tests start their own servers.
policy=/usr/sbin/policy-rc.d
forbid_services() {
  [[ -e $policy ]] && return
  trap 'rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod 755 "$policy"
  owns_policy=true
}
allow_services() {
  local package
  [[ -n ${owns_policy:-} ]] && rm -f "$policy"
  for package in "${packages[@]}"; do
    case $package in
      janus | coturn | haproxy) update-rc.d "$package" disable >>"$log" 2>&1 || true ;;
    esac
  done
}

check_packages() {
  local packages install
  mapfile -t packages < <(for_each missing_packages | sort -u)
  ((${#packages[@]})) || return 0
  install="apt-get install -y --no-install-recommends ${packages[*]}"
  has_command apt-get ||
    fail "these are missing (by the names of their Debian packages): ${packages[*]}"
  ((EUID == 0)) || fail "some tools are missing; install them with: sudo $install"

  echo "Installing ${packages[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # A package source that cannot be reached may not be needed.
  apt-get update >>"$log" 2>&1 || true
  # Another apt-get may be running.
  forbid_services
  logged apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=600 "${packages[@]}"
  allow_services
  hash -r
  mapfile -t packages < <(for_each missing_packages | sort -u)
  ((${#packages[@]} == 0)) ||
    fail "still missing or too old after \"$install\": ${packages[*]}"
}

fetch_npm_packages() {
  # npm writes this file last.
  local installed=node_modules/.package-lock.json
  [[ -e $installed && ! $installed -ot package-lock.json ]] && return
  echo "Fetching the npm packages"
  logged npm ci --include=dev --no-audit --no-fund
}

configure() {
  # Options of an earlier configuration stay on, so that alternating `npm start` and `npm test` does
  # not rebuild everything.
  local options=()
  [[ -e $build/CMakeCache.txt ]] ||
    options+=(-DTESSEL_BUILD_TESTS=OFF -DTESSEL_BUILD_BENCHMARKS=OFF)
  case $purpose in
    test | valgrind) options+=(-DTESSEL_BUILD_TESTS=ON) ;;
    bench) options+=(-DTESSEL_BUILD_TESTS=ON -DTESSEL_BUILD_BENCHMARKS=ON) ;;
    lint)
      options+=(-DTESSEL_BUILD_TESTS=ON -DTESSEL_BUILD_BENCHMARKS=ON -DTESSEL_BUILD_WEBRTC=ON)
      ;;
    install)
      # One source file for each library and no debug information: a quarter of the compiler's time.
      options+=(-DTESSEL_WARNINGS_AS_ERRORS=OFF -DCMAKE_UNITY_BUILD=ON
        -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG")
      ;;
    webrtc) options+=(-DTESSEL_BUILD_WEBRTC=ON) ;;
  esac
  logged cmake --preset "$preset" -B "$build" "${options[@]}"
}

build() {
  local targets=()
  case $purpose in
    start | install | webrtc) targets=(--target tesselWrapper) ;;
    fuzz) targets=(--target fuzzers) ;;
  esac
  logged cmake --build "$build" "${targets[@]}"
}

# Keeps only those files of an installed package's build that an application needs.
keep_products() {
  mkdir -p "build/$preset"
  mv "$build"/{tesselWrapper.node,libtesselclient.so} "build/$preset"
  rm -r "$build"
}

set_up() {
  if [[ $purpose == lint ]]; then
    configure
    return
  fi
  if [[ -e $build ]]; then
    echo "Building $build"
  else
    echo "Building $build (the first time takes some minutes)"
  fi
  configure
  build
  if [[ $purpose == install ]]; then keep_products; fi
}

read -r preset purpose <<<"${wanted[0]}"
log=build/setup-$preset.log
check_node
check_packages
[[ $purpose == install ]] || fetch_npm_packages
for_each set_up
