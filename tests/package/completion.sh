#!/usr/bin/env bash
# Usage: completion.sh
#
# Completes command lines of the installed programs and compares the candidates.

# shellcheck source=tests/package/check.bash
. /tests/check.bash
set +e
# shellcheck source=/dev/null
. /usr/share/bash-completion/bash_completion

# expect LINE [WORD...]: compares the candidates at the end of the line, in alphabetical order.
expect() {
  local line=$1 offered
  shift
  COMP_LINE=$line COMP_POINT=${#line} COMP_TYPE=9 COMP_KEY=9
  # Like the shell, splits at "=".
  read -ra COMP_WORDS <<<"${line//=/ = }"
  [[ $line != *' ' ]] || COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _completion_loader "${COMP_WORDS[0]}" >/dev/null 2>&1
  _atsc "${COMP_WORDS[0]}" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>errors
  offered=$(printf '%s\n' "${COMPREPLY[@]}" | sed 's/ *$//' | sort | cat - errors | tr '\n' ' ')
  [[ ${offered% } == "$*" ]] || fail "at \"$line\" offered: \"${offered% }\", expected: \"$*\""
}

cd "$(mktemp -d)" || exit
mkdir air
touch a.json a.txt

expect 'atsc-tv pa' parental
expect 'atsc-tv parental re' region reset
expect 'atsc-tv scan --' --db --freq --help --src --verbose --version
expect 'atsc-tv --db scan play --src ' QAM VSB
expect 'atsc-tv play --src Q' QAM
expect 'atsc-tv play ' down stop up
expect 'atsc-tv audio --dual m' mixed
expect 'atsc-tv audio --prefer ' eng fre spa
expect 'atsc-tv time --zone A' AKST AST
expect 'atsc-tv eas alerts m' maximum medium
expect 'atsc-tv parental check CAN' CAN-ENG CAN-FRA
expect 'atsc-tv parental check USA-TV '
expect 'atsc-tv channels --db a' air
expect 'atsc-service --f' --fast
expect 'atsc-service --air=/srv/air --f' --fast
expect 'atsc-service --air=a' air
expect 'atsc-web --no' --no-console
expect 'atsc-web --token-file a' a.json a.txt air
expect 'psipmux a' a.json air
expect 'psipmux a.json --out a' air
# What is typed is compared and never run, nor a pattern.
# shellcheck disable=SC2016
for word in '-a/b/;etouch${IFS}ran;#' '-a/b/w written' '$(touch ran)' '`touch ran`' '[' '.*'; do
  expect "atsc-tv $word parental re" region reset
done
[[ ! -e ran && ! -e written ]] || fail 'a word of the command line was run'
