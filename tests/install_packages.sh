#!/usr/bin/env bash
# Installs the Debian packages a test stage needs and this machine lacks: with
# apt-get as root (reading the package lists first if the install fails), or
# else fails with a line naming them. CI machines start bare.
#
#   bash tests/install_packages.sh PACKAGE...     (nothing to do without names)
set -euo pipefail
(( $# )) || exit 0
if [[ $(id -u) == 0 ]] && command -v apt-get >/dev/null; then
  apt_get() { DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 "$@"; }
  apt_get install -y --no-install-recommends "$@" || { apt_get update && apt_get install -y --no-install-recommends "$@"; }
else
  echo "install Debian's $* (as root: apt-get install $*)" >&2
  exit 1
fi
