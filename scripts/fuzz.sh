#!/usr/bin/env bash
# Fuzzes the node for MINUTES on one core: builds node_fuzzer with clang under build/fuzz and runs it
# on build/fuzz/corpus, which keeps what it learns, beside the seeds of tests/fuzz/corpus.
# Needs Debian 12 and root or sudo, for what is not installed yet.
# Exit code 0: no finding, 1: a finding, no build or a run that was broken off, 2: wrong use.
set -euo pipefail

if [ $# -ne 1 ] || ! [[ "$1" =~ ^[1-9][0-9]{0,4}$ ]]; then
    echo "usage: scripts/fuzz.sh MINUTES" >&2
    exit 2
fi
minutes="$1"
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

scripts/install-packages demo test all
build=build/fuzz
cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DBUILD_FUZZER=ON -DBUILD_ENGINE=OFF -DBUILD_TOOL=OFF >/dev/null
cmake --build "$build" --target node_fuzzer >/dev/null
mkdir -p "$build/corpus" "$build/artifacts"

# A small quarantine: fresh memory costs more than the checks do.
export ASAN_OPTIONS="quarantine_size_mb=32:detect_stack_use_after_return=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1"
log="$build/fuzz.log"
echo "fuzzing for $minutes minutes, log in $log"
status=0
"$build/bin/node_fuzzer" "$build/corpus" tests/fuzz/corpus -max_total_time=$((minutes * 60)) \
    -max_len=1024 -print_final_stats=1 -artifact_prefix="$build/artifacts/" \
    >"$log" 2>&1 || status=$?

statistic() { sed -n "s/^stat::$1: *//p" "$log"; }
echo "executions: $(statistic number_of_executed_units)"
echo "executions a second: $(statistic average_exec_per_sec)"
if [ "$(statistic average_exec_per_sec)" -lt 5000 ]; then
    echo "fewer than 5,000 a second: a busy machine, or a node grown slow" >&2
fi
echo "coverage: $(grep -oE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' "$log" | tail -n 1) (of" \
    "$(sed -n 's/.*Loaded 1 modules *(\([0-9]*\) .*/\1/p' "$log") counters," \
    "which the sanitizers' own checks have too)"
# A slow unit is no finding: the machine may have been busy, and -timeout ends what never ends.
artifact="$(sed -n 's/.*Test unit written to //p' "$log" | grep -v /slow-unit- | tail -n 1 || true)"
if [ -n "$artifact" ]; then
    echo "findings: 1"
    grep -m 1 -E '^node_fuzzer: |runtime error: |^==[0-9]+== ?ERROR: ' "$log" || true
    echo "input in $artifact; again: $build/bin/node_fuzzer $artifact"
    exit 1
fi
echo "findings: 0"
if [ "$status" -ne 0 ]; then
    echo "broken off with exit code $status, see $log" >&2
    exit 1
fi
