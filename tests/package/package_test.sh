#!/usr/bin/env bash
# Installs the built libimu into a fresh prefix and uses it the way an
# integrator does: find_package builds examples/ with find_package(imu);
# pkg_config links a C program with `pkg-config --cflags --libs imu` and
# builds the example with the pkg-config line of examples/README.md. Both
# run the sensor service example and check what it prints.
# Usage: package_test.sh <case> <build dir> <source dir> <work dir>
# Environment: IMU_LIBDIR, IMU_VERSION, CC, CXX, CFLAGS, CXXFLAGS, LDFLAGS,
# and IMU_EMULATOR (the command that runs a cross build's programs).
set -euo pipefail
test_case="$1" build="$2" src="$3" work="$4"

rm -rf "$work"
mkdir -p "$work/root/data/system" "$work/root/data/velmo"
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log"
lib="$prefix/$IMU_LIBDIR/libimu.so"

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# Runs a program; its stderr (the library's log) is shown only on failure.
run() {
    local out="$1" status=0
    shift
    # shellcheck disable=SC2086  # the emulator is a word list
    ${IMU_EMULATOR:-} "$@" >"$out" 2>"$out.stderr" || status=$?
    if [ "$status" -ne 0 ]; then
        cat "$out" "$out.stderr" >&2
        fail "$* exited with $status"
    fi
}

# The leak checker of this toolchain misreads the dynamic TLS that a
# dlopen'ed library's thread holds (the service's poll thread) and aborts at
# exit, so the example runs without it; the linked program keeps it.
run_example() {
    ASAN_OPTIONS="${ASAN_OPTIONS:-}:detect_leaks=0" run "$@"
}

# The example's rows: time phase azimuth pitch roll gx gy gz. A still
# phone lying flat, a quarter turn to the left (the azimuth, clockwise from
# north, falls by 90 deg), held again.
check_example_output() {
    awk '
        function abs(x) { return x < 0 ? -x : x }
        function bad(m) { print "FAIL: " m > "/dev/stderr"; failed = 1 }
        function row(phase) {
            if ($2 != phase) bad($1 " s is not " phase)
            if (abs($4) > 1.0 || abs($5) > 1.0) bad(phase " is not flat: " $0)
            if (abs($6) > 0.1 || abs($7) > 0.1 || abs($8 - 9.8066) > 0.05)
                bad(phase " gravity is not straight down: " $0)
            return $3
        }
        function quarter_left(what, az,    turn) {
            turn = az - still
            while (turn > 180) turn -= 360
            while (turn < -180) turn += 360
            if (abs(turn + 90) > 2) bad(what " azimuth turned by " turn " deg, not -90")
        }
        /^#/ { next }
        { rows++ }
        $1 == "2.000" { still = row("still") }
        $1 == "3.000" { turned = row("turn") }
        $1 == "4.000" { held = row("hold") }
        END {
            if (rows != 8) bad("expected 8 rows, got " rows)
            quarter_left("turned", turned)
            quarter_left("held", held)
            exit failed
        }' "$1" || fail "sensor_service output $1"
}

case "$test_case" in
find_package)
    cmake -S "$src/examples" -B "$work/build" -G Ninja \
        -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_CXX_FLAGS="$CXXFLAGS -Wall -Wextra -Wpedantic -Werror" \
        -DCMAKE_EXE_LINKER_FLAGS="$LDFLAGS" >"$work/configure.log"
    cmake --build "$work/build" >"$work/build.log" || { cat "$work/build.log" >&2; fail "build"; }
    # The default library is the installed one, found through the package.
    run_example "$work/out.txt" "$work/build/sensor_service/sensor_service" --root "$work/root"
    check_example_output "$work/out.txt"
    ;;
pkg_config)
    export PKG_CONFIG_PATH="$prefix/$IMU_LIBDIR/pkgconfig"
    [ "$(pkg-config --modversion imu)" = "$IMU_VERSION" ] || fail "imu.pc version"
    cat >"$work/linked.c" <<'PROGRAM'
#include <stdio.h>
#include "imu/host.h"
#include "imu/service.h"
int main(int argc, char** argv) {
    float out[3] = {1.0F, 1.0F, 1.0F};
    (void)argc;
    imu_host_set_root(argv[1]);
    set_fusiond_moed(2);
    get_fusiond_data(4, out);
    printf("%g %g %g\n", (double)out[0], (double)out[1], (double)out[2]);
    return 0;
}
PROGRAM
    # shellcheck disable=SC2086  # the flags are word lists
    "$CC" $CFLAGS -std=c99 -Wall -Wextra -Wpedantic -Werror -o "$work/linked" "$work/linked.c" \
        $(pkg-config --cflags --libs imu) -Wl,-rpath,"$(pkg-config --variable=libdir imu)" $LDFLAGS
    readelf -d "$work/linked" | grep -q 'NEEDED.*\[libimu\.so\.1\]' || fail "not linked by soname"
    run "$work/linked.txt" "$work/linked" "$work/root"
    [ "$(cat "$work/linked.txt")" = "0 0 0" ] || fail "a new service reads $(cat "$work/linked.txt")"
    # The build line of examples/README.md.
    cd "$src/examples/sensor_service"
    # shellcheck disable=SC2086
    "$CXX" $CXXFLAGS -std=c++17 -o "$work/sensor_service" main.cpp $(pkg-config --cflags imu) -ldl $LDFLAGS
    IMU_LIBRARY="$lib" run_example "$work/out.txt" "$work/sensor_service" --root "$work/root"
    check_example_output "$work/out.txt"
    ;;
*)
    fail "unknown case $test_case"
    ;;
esac
