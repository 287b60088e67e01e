#!/usr/bin/env bash
# Builds and runs the whole test suite under one CMake preset.
# Usage: scripts/test.sh [preset [ctest arguments...]]
#   (default, asan, tsan, clang; arm64 and armhf cross-build and run the
#   suite under qemu-user)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
shift || true

scripts/setup.sh "$preset"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" --progress "$@"
