# Sourced by the scripts that need root: starts them again with sudo, where that asks for no
# password; else their test is skipped.
# shellcheck shell=bash

if ((EUID != 0)); then
  if sudo --non-interactive true 2>/dev/null; then
    exec sudo --preserve-env=http_proxy,https_proxy "$0" "$@"
  fi
  echo "skipped: needs root, or sudo without a password" >&2
  exit 77
fi
