#!/usr/bin/env bash
# Installs every build, test and run dependency of the project from Debian's packages.
# Safe to run again: packages already present are skipped without touching the network.
set -euo pipefail

packages=(
  build-essential g++ cmake ninja-build pkg-config
  libcli11-dev nlohmann-json3-dev libeigen3-dev
  libgtest-dev libgmock-dev
  libabsl-dev libpolyclipping-dev
  flex bison
  libomp-dev
  clang-format
  ccache
  klayout python3-matplotlib
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
