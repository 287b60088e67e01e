#!/usr/bin/env bash
# Builds libimu.so and installs it with its headers into a prefix.
# Usage: scripts/install.sh [prefix]   (default: ./_install)
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="$(realpath -m "${1:-_install}")"

scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target imu
cmake --install build/default --prefix "$prefix"
echo "installed libimu into $prefix"
