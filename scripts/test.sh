#!/usr/bin/env bash
# Builds everything and runs all tests, optimised and then under the address and undefined-behaviour
# sanitizers. Needs Debian 12 and root or sudo, for what is not installed yet.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

scripts/install-packages

for preset in release asan; do
    echo "== $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset" -j "$(nproc)"
done
