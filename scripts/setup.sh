#!/usr/bin/env bash
# Installs the Debian packages the build needs and are not there yet.
# Usage: scripts/setup.sh [extra package...]
set -euo pipefail
need=(cmake make g++ libboost-dev libgtest-dev "$@")
missing=()
for p in "${need[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
