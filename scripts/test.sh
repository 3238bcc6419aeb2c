#!/usr/bin/env bash
# Builds everything and runs all tests: optimised, under the address and undefined-behaviour
# sanitizers, under the thread sanitizer and as 64-bit ARM code, with the static checks of the node.
# With --all also under clang, with the static checks of everything but the tests, the branch
# coverage of the node, the check of the device build file, reports in a browser and a minute of
# fuzzing.
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
if [ "${1-}" = --all ]; then
    scripts/check-tidy
    ctest --preset release -L all
    run_preset coverage
    scripts/check-coverage
    scripts/fuzz.sh 1
else
    scripts/check-tidy node bokehbase engine
fi
