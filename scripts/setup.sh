#!/usr/bin/env bash
# Installs the Debian packages the project needs, if any is missing.
# Usage: scripts/setup.sh [preset] [extra packages...]
# The cross presets (arm64, armhf) add the cross compiler, qemu-user and
# the target's GoogleTest and Google Benchmark as multiarch packages.
set -euo pipefail

packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev binutils pkg-config gnuplot-nox)
arch=""
case "${1:-}" in
    arm64) arch=arm64; packages+=(g++-aarch64-linux-gnu) ;;
    armhf) arch=armhf; packages+=(g++-arm-linux-gnueabihf) ;;
esac
case "${1:-}" in
    default|clang|asan|tsan|arm64|armhf) shift ;;
esac
if [ -n "$arch" ]; then
    packages+=(qemu-user libgtest-dev:$arch libgmock-dev:$arch libbenchmark-dev:$arch)
fi
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
if [ -n "$arch" ] && ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    $sudo dpkg --add-architecture "$arch"
fi
# A list that fails to download (a mirror in mid-sync) leaves apt with the
# lists it has; the install below still fails if a package is missing.
$sudo apt-get update -qq || echo "setup: apt-get update failed for some lists" >&2
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
