#!/usr/bin/env bash
# Checks the format, builds all but the benchmarks and runs the tests; then the node and the stand-ins
# of the platform under the address and undefined-behaviour sanitizers, and clang-tidy over the node.
# With --all also the tests that go through folders of sets again and again (label "long"), the
# benchmarks' tests, the engine and the tool under those sanitizers, everything that needs no OpenCV
# under the thread sanitizer and as 64-bit ARM code, the node as a device builds it, everything under
# clang, clang-tidy over all but the tests, the branch coverage of the node, a minute of fuzzing, and
# what has the label "all".
# Needs Debian 12 and root or sudo, for what is not installed yet.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

case "$*" in
"") scripts/install-packages demo test ;;
--all) scripts/install-packages demo test package all ;;
*)
    echo "usage: scripts/test.sh [--all]" >&2
    exit 2
    ;;
esac

run_preset() { # preset, settings
    echo "== $1"
    cmake --preset "$@" >/dev/null
    cmake --build --preset "$1" -- --quiet
    ctest --preset "$1" -LE "$left_out" -j "$(nproc)" --progress
}

left_out=all
scripts/check-format
if [ $# -eq 0 ]; then
    left_out='all|long'
    run_preset release -DBUILD_BENCH=OFF
    run_preset asan -DBUILD_ENGINE=OFF
    scripts/check-tidy node bokehbase engine
    exit
fi
scripts/fetch-arm64-libcxx build/arm64-libcxx
run_preset release -DBUILD_BENCH=ON
run_preset asan -DBUILD_ENGINE=ON
for preset in tsan aarch64 device clang coverage; do
    run_preset "$preset"
done
scripts/check-tidy
scripts/check-coverage
scripts/fuzz 1
echo "== release, what the first run left out"
ctest --preset release -L all
