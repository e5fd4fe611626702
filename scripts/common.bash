# Sourced by the other scripts: finds the tree and configures each kind of build.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Prints the usage text: the comment at the head of the running script.
usage() {
  sed -n '2,/^$/ { s/^# \{0,1\}//; p; }' "$0"
}

# debian_mirror SUITE: prints the mirror of the main component of a suite from apt's configuration.
debian_mirror() {
  local suite=$1 mirror attempt
  for attempt in known updated; do
    # shellcheck disable=SC2016 # apt's own variable
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' \
      "Codename: $suite" 'Component: main' | head -n 1)
    if [[ -n $mirror ]]; then
      echo "$mirror"
      return
    fi
    [[ $attempt == updated ]] || "$root/scripts/deps" --update
  done
  echo "$(basename "$0"): apt has no source for the suite '$suite', component main" >&2
  return 1
}

# configure KIND: installs what the kind needs (scripts/deps) and configures build/KIND with the preset
# of that name. The options are always the same, so that all scripts share one build. The kind clone
# has no preset.
configure() {
  local kind=$1 source=$root
  local -a groups=(build test) options=(--preset "$kind")
  case $kind in
    native) groups+=(bench) ;;
    package) groups=(build package) ;;
    fuzz | armhf) groups+=("$kind") ;;
    clone)
      groups+=(bench clone)
      source=$root/build/$kind/source
      options=(-B "$root/build/$kind" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
        -DCMAKE_BUILD_TYPE=Debug -DCMAKE_COMPILE_WARNING_AS_ERROR=ON)
      rm -rf "$root/build/$kind"
      git clone --quiet "$root" "$source"
      ;;
  esac
  "$root/scripts/deps" "${groups[@]}"
  if [[ $kind == armhf ]]; then
    "$root/scripts/armhf-sysroot" "$root/build/armhf-sysroot"
  fi

  local captures=$source/../shared/captures
  if [[ -d $captures ]]; then
    captures=$(cd "$captures" && pwd)
  else
    captures=
  fi
  cmake -S "$source" "${options[@]}" -DATSC_CAPTURES_DIR="$captures" \
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
