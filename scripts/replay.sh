#!/usr/bin/env bash
# Builds imu-replay (and libimu.so) and runs it with the given arguments;
# with none it replays the demo recording data/demo.csv and writes
# data/demo.png. Build output goes to stderr, the summary to stdout.
# Usage: scripts/replay.sh [imu-replay arguments...]
set -euo pipefail
src="$(cd "$(dirname "$0")/.." && pwd)"
(
    cd "$src"
    scripts/setup.sh
    cmake --preset default >/dev/null
    cmake --build --preset default --target imu-replay
) >&2
exec "$src/build/default/tools/imu-replay/imu-replay" "$@"
