#!/usr/bin/env bash
# The open-ended fuzz run: every libFuzzer target of a fuzz build, at random, for a bounded
# time each. Run it before you stop when you touched code that reads outside input; the test
# command only replays the seeds and fuzzes from a fixed seed (`ctest --preset fuzz`).
#
#   scripts/run-fuzzers.sh <build-dir> [seconds per target, default 60]
#
# The targets are the folders of tests/fuzz/corpus/. Each starts from a copy of its seeds,
# so the source tree is never written to. Any crash, leak, time-out (10 s per input) or memory
# blow-up (4 GiB) fails the run; the inputs that caused it are kept in
# <build-dir>/fuzz-findings/<target>/, which `ctest --preset fuzz` replays from then on. Fix
# what it found, then add the input to tests/fuzz/corpus/<target>/ under a name that says
# what it holds, so that every clone replays it.
set -euo pipefail

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
    echo "usage: $0 <build-dir> [seconds per target]" >&2
    exit 2
fi

source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=$(cd "$1" && pwd)
seconds=${2:-60}
targets=()
for corpus in "$source_dir"/tests/fuzz/corpus/*/; do
    targets+=("$(basename "$corpus")")
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failed=()
for target in "${targets[@]}"; do
    binary="$build_dir/bin/$target"
    if [ ! -x "$binary" ]; then
        echo "missing $binary: configure with --preset fuzz and build first" >&2
        exit 2
    fi

    corpus="$work/$target/corpus"
    artifacts="$work/$target/artifacts"
    mkdir -p "$corpus" "$artifacts"
    cp "$source_dir/tests/fuzz/corpus/$target/"* "$corpus/"
    options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1
             -artifact_prefix="$artifacts/")
    if [ -f "$source_dir/tests/fuzz/$target.dict" ]; then
        options+=(-dict="$source_dir/tests/fuzz/$target.dict")
    fi

    echo "== $target for ${seconds}s"
    status=0
    "$binary" "${options[@]}" "$corpus" >"$work/$target/log" 2>&1 || status=$?
    grep -E '^(#[0-9]+ +DONE|stat::|Done [0-9]+ runs)' "$work/$target/log" || true

    if [ "$status" -ne 0 ] || [ -n "$(ls -A "$artifacts")" ]; then
        failed+=("$target")
        findings="$build_dir/fuzz-findings/$target"
        mkdir -p "$findings"
        cp "$artifacts/"* "$findings/" 2>/dev/null || true
        cp "$work/$target/log" "$findings/log.txt"
        echo "!! $target failed (exit status $status); inputs and log in $findings" >&2
        tail -n 40 "$work/$target/log" >&2
    fi
done

if [ ${#failed[@]} -ne 0 ]; then
    echo "fuzzing found problems in: ${failed[*]}" >&2
    exit 1
fi
echo "all fuzz targets ran ${seconds}s each without a finding"
