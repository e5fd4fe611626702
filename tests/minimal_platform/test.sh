#!/usr/bin/env bash
# Usage: test.sh [--build|--run] SOURCE_DIR BUILD_DIR [CMAKE_OPTION...]
#
# Builds the minimal platform, the library on it, the service process and a TV application into
# BUILD_DIR and has the application test the service. With --build it only builds, with --run it
# tests what is built. Passes the CMake options to each build. The environment variable
# ATSC_TEST_EMULATOR is a command that runs the programs.

set -euo pipefail

only=
if [[ $1 == --* ]]; then
  only=$1
  shift
fi
source=$1
build=$2
shift 2
platform=$build/sdk # the platform, which the library is linked with
prefix=$build/set   # the files that would be copied to a set
example=$source/examples/minimal-platform
read -ra run <<<"${ATSC_TEST_EMULATOR-}"

# part NAME SOURCE [CMAKE_OPTION...]: configures, builds and installs. Prints the output on failure.
part() {
  local name=$1 source=$2
  shift 2
  if ! {
    cmake -S "$source" -B "$build/$name" -DCMAKE_BUILD_TYPE=Debug "$@" &&
      cmake --build "$build/$name" --parallel 2 &&
      cmake --install "$build/$name" --prefix "$prefix"
  } >"$build/$name.log" 2>&1; then
    cat "$build/$name.log"
    echo "test.sh: $name could not be built" >&2
    exit 1
  fi
}

buildAll() {
  mkdir -p "$build"
  rm -rf "$platform" "$prefix"
  part platform "$example" "$@"
  cmake --install "$build/platform" --prefix "$platform" >>"$build/platform.log"
  # Headers of the platform replace ours, also where ours include them; both together do not
  # compile. This bus.h has only the public members of ours.
  local name
  for name in aisrv bus; do
    sed "s/ATSC_PLATFORM_\(${name^^}_H_\)/SET_\1/; /friend /d" "$source/platform/include/$name.h" \
      >"$platform/include/$name.h"
  done
  part library "$source" -DATSC_PLATFORM="$platform" "$@"
  # Cross builds look for packages outside their sysroot in CMAKE_STAGING_PREFIX only.
  local find=(-DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_STAGING_PREFIX="$prefix")
  part service "$example/service" "${find[@]}" "$@"
  part tv "$source/tests/minimal_platform/tv" "${find[@]}" "$@"
}

[[ $only == --run ]] || buildAll "$@"
[[ $only != --build ]] || exit 0

state=$(mktemp -d)
trap 'rm -rf "$state" /tmp/.BUS.lock' EXIT
export ATSC_CNAHHEL_DB=$state/channels.db ATSC_EVENT_DB=$state/events.db
export MINIMAL_STATE=$state/platform.txt
export MINIMAL_SERVICE=$prefix/bin/minimal-service
timeout 120 "${run[@]}" "$prefix/bin/minimal-tv"
if compgen -G '/tmp/.BUS.atsc.qel.*.srv'; then
  echo "test.sh: a process has left its name behind" >&2
  exit 1
fi
