#!/usr/bin/env bash
# Builds the programs and tests of one preset into build/PRESET, after installing what that needs.
# usage: ./build.sh [PRESET] [TARGET...]      presets: release (default), debug, asan, tsan, windows, package
set -euo pipefail
cd "$(dirname "$0")"

preset=${1:-release}
[ $# -eq 0 ] || shift
case $preset in
  release | debug | asan | tsan | windows | package) ;;
  *) sed -n '2,3s/^# //p' "$0" >&2; exit 2 ;;
esac

packages=(g++ cmake ninja-build ccache pkg-config libsystemd-dev libusb-1.0-0-dev libgtest-dev libgmock-dev
          libcli11-dev nlohmann-json3-dev libbenchmark-dev)
if [ "$preset" = windows ]; then
  packages+=(g++-mingw-w64-x86-64-posix mingw-w64-tools googletest wine wine64)
fi
[ "$preset" != package ] || packages+=(help2man)
# Compiled files are found again in the cache from any checkout.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros
mkdir -p build
.ci/install-packages "${packages[@]}"

# Configuring again is cheap, and picks up new files and changed options.
cmake --preset "$preset" >build/configure.log 2>&1 || { cat build/configure.log >&2; rm -f build/configure.log; exit 1; }
rm -f build/configure.log
if [ $# -gt 0 ]; then
  cmake --build "build/$preset" --target "$@"
else
  cmake --build "build/$preset"
fi
