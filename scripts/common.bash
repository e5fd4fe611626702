# Sourced by the other scripts: where the tree is, and how each kind of build is configured.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Prints the comment at the head of the running script, which is its manual.
usage() {
  sed -n '2,/^$/ { s/^# \{0,1\}//; p; }' "$0"
}

# configure KIND: installs what the kind needs and configures build/KIND with the preset of that
# name, always with the same options, so that scripts share one build.
configure() {
  local kind=$1
  local -a groups=(build test)
  case $kind in
    native) groups+=(bench) ;;
    fuzz | armhf) groups+=("$kind") ;;
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
  cmake -S "$root" --preset "$kind" -DATSC_CAPTURES_DIR="$captures" \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)"
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
