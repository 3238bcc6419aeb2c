#!/usr/bin/env bash
# Builds everything and runs all tests: optimised, under the sanitizers and as 64-bit ARM code, and the
# static checks. With --all also under clang, with the coverage gate and the device build file's check.
# Needs Debian 12 and root or sudo, for what is not installed yet.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

presets=(release asan tsan aarch64)
case "${1-}" in
"") scripts/install-packages demo test ;;
--all)
    scripts/install-packages demo test all
    presets+=(clang)
    ;;
*)
    echo "usage: scripts/test.sh [--all]" >&2
    exit 2
    ;;
esac

run_preset() {
    echo "== $1"
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -- --quiet
    ctest --preset "$1" -LE all -j "$(nproc)" --progress
}

scripts/check-format
for preset in "${presets[@]}"; do
    run_preset "$preset"
done
scripts/check-tidy
if [ "${1-}" = --all ]; then
    ctest --preset release -L all
    run_preset coverage
    scripts/check-coverage
fi
