#!/usr/bin/env bash
# Checks the format, builds everything and runs all tests, optimised and under the address and
# undefined-behaviour sanitizers, and checks the node with clang-tidy. With --all also under the
# thread sanitizer, as 64-bit ARM code, the node as a device builds it, under clang, with clang-tidy over everything but the tests,
# the device build file, reports in a browser, the branch coverage of the node and a minute of
# fuzzing. Needs Debian 12 and root or sudo, for what is not installed yet.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

case "$*" in
"") scripts/install-packages demo test ;;
--all) scripts/install-packages demo test all ;;
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
run_preset release
run_preset asan
if [ $# -eq 0 ]; then
    scripts/check-tidy node bokehbase engine
    exit
fi
scripts/fetch-arm64-libcxx build/arm64-libcxx
for preset in tsan aarch64 device clang coverage; do
    run_preset "$preset"
done
scripts/check-tidy
scripts/check-coverage
scripts/fuzz 1
echo "== release, what the first run left out"
ctest --preset release -L all
