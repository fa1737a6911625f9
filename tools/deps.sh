#!/bin/sh
# Installs the Debian packages the build and the tools need when run as
# root; otherwise prints the exact apt-get line and fails.
set -eu
PKGS="cmake ninja-build g++ gfortran make libgtest-dev libgmock-dev libbenchmark-dev libtomlplusplus-dev python3-matplotlib python3-numpy python3-scipy python3-distributed python3-pytest"
# `deps.sh test`: also what the tests need (a browser for the results page,
# clang for the parser fuzz target).
if [ "${1:-}" = test ]; then PKGS="$PKGS chromium clang"; fi
missing=""
for p in $PKGS; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
[ -z "$missing" ] && exit 0
if [ "$(id -u)" = 0 ]; then
  echo "Installing:$missing"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends $missing
else
  echo "Missing Debian packages. Run:"
  echo "  sudo apt-get install -y$missing"
  exit 1
fi
