# Sourced by the other scripts: where the tree is, and how each kind of build is configured.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Prints the comment at the head of the running script, which is its manual.
usage() {
  sed -n '2,/^$/ { s/^# \{0,1\}//; p; }' "$0"
}

# configure KIND: installs what the kind needs and configures build/KIND. Always with the same
# options, so that scripts share one build.
configure() {
  local kind=$1
  local -a groups=(build test) options=(-DATSC_BUILD_BENCH=OFF)
  # Enough for the sanitizers' reports, and half the time to build.
  local -a quick=("-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g1")
  case $kind in
    native)
      groups+=(bench)
      options=(-DATSC_BUILD_BENCH=ON)
      ;;
    asan) options+=("-DATSC_SANITIZE=address,undefined" "${quick[@]}") ;;
    tsan) options+=(-DATSC_SANITIZE=thread "${quick[@]}") ;;
    fuzz)
      groups+=(fuzz)
      options+=(-DCMAKE_CXX_COMPILER=clang++ -DATSC_FUZZ=ON
        "-DATSC_SANITIZE=address,undefined" "${quick[@]}")
      ;;
    armhf)
      groups+=(armhf)
      options+=(
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/armhf.cmake"
        -DATSC_SYSROOT="$root/build/armhf-sysroot"
      )
      ;;
  esac
  "$root/scripts/deps" "${groups[@]}"
  if [[ $kind == armhf ]]; then
    "$root/scripts/armhf-sysroot" "$root/build/armhf-sysroot"
  fi

  local captures=$root/../shared/captures
  if [[ -d $captures ]]; then
    captures=$(cd "$captures" && pwd)
  else
    captures=
  fi
  cmake -S "$root" -B "$root/build/$kind" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" \
    -DATSC_CAPTURES_DIR="$captures" "${options[@]}"
}

# build KIND [TARGET...]: builds in build/KIND.
build() {
  local -a command=(cmake --build "$root/build/$1" --parallel "$(nproc)")
  shift
  if (($#)); then
    command+=(--target "$@")
  fi
  "${command[@]}"
}
