#!/usr/bin/env bash
# Builds the libFuzzer programs (preset "fuzz", Clang 14) and runs each for a
# fixed time, starting from the seeds in fuzz/corpus/<target>/ and a working
# corpus in build/fuzz/corpus/<target>/. A crash, a sanitizer report or a
# broken invariant fails the run; its input is kept as
# build/fuzz/findings/<target>/crash-*.
# Usage: scripts/fuzz.sh [seconds per target (default 25)] [target...]
# FUZZ_SEED=n fixes libFuzzer's seed (0, the default: a random one).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-25}"
shift || true

scripts/setup.sh clang-14 libclang-rt-14-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

bin=build/fuzz/fuzz
if [ $# -gt 0 ]; then
    targets=("$@")
else
    targets=()
    for f in fuzz/*_fuzz.cpp; do
        t="$(basename "$f" _fuzz.cpp)"
        targets+=("$t")
    done
fi

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
passed=0
failed=0
for t in "${targets[@]}"; do
    work="build/fuzz/corpus/$t"
    findings="build/fuzz/findings/$t"
    mkdir -p "$work" "$findings"
    log="build/fuzz/$t.log"
    seeds=()
    [ -d "fuzz/corpus/$t" ] && seeds=("fuzz/corpus/$t")
    if "$bin/fuzz_$t" -max_total_time="$seconds" -seed="${FUZZ_SEED:-0}" -timeout=30 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$findings/" "$work" "${seeds[@]}" >"$log" 2>&1; then
        runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
        cov="$(grep -E '^#[0-9]+.*cov: ' "$log" | tail -1 | sed -E 's/.*cov: ([0-9]+) ft: ([0-9]+).*/cov \1 ft \2/')"
        echo "fuzz $t: ${runs:-?} runs, ${cov:-no coverage line}, corpus $(ls "$work" | wc -l)"
        passed=$((passed + 1))
    else
        echo "fuzz $t: FAILED (log $log, inputs in $findings)"
        grep -E 'ERROR|SUMMARY|invariant broken' "$log" | head -5 || true
        failed=$((failed + 1))
    fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
