#!/usr/bin/env bash
# One fuzz target's part of the test command, in either of two steps:
#
#   run_target.sh replay <fuzzer> <corpus-dir> <findings-dir>
#       runs every committed seed and every finding kept in <findings-dir> (if any) once;
#   run_target.sh fixed <fuzzer> <corpus-dir> <dict-or-empty> <runs> <work-dir>
#       fuzzes from the committed seeds with a fixed seed and a fixed number of runs, so that
#       the same commit always gets the same verdict.
#
# The open-ended random run is scripts/run-fuzzers.sh. New inputs go to <work-dir>, which is
# emptied first: inputs left over from an earlier run would change what this one does.
set -euo pipefail

mode=$1
fuzzer=$2
corpus=$3

case "$mode" in
replay)
    findings=$4
    inputs=("$corpus"/*)
    if [ -d "$findings" ]; then
        while IFS= read -r -d '' finding; do
            inputs+=("$finding")
        done < <(find "$findings" -maxdepth 1 -type f ! -name '*.txt' -print0 | sort -z)
    fi
    exec "$fuzzer" -timeout=10 -rss_limit_mb=4096 "${inputs[@]}"
    ;;
fixed)
    dict=$4
    runs=$5
    work=$6
    rm -rf "$work"
    mkdir -p "$work/new" "$work/artifacts"
    # A fixed seed alone does not make a run repeatable: what the fuzzer learns from the
    # code's comparisons includes heap addresses, and Qt seeds its hashes at random. Without
    # address randomisation, with a fixed hash seed and without comparison-guided mutations
    # (the open-ended run keeps them), the same commit runs the same inputs every time.
    options=(-seed=1 -runs="$runs" -use_cmp=0 -timeout=10 -rss_limit_mb=4096
             -print_final_stats=1 -artifact_prefix="$work/artifacts/")
    if [ -n "$dict" ]; then
        options+=(-dict="$dict")
    fi
    fixed_addresses=()
    if setarch -R true 2>/dev/null; then
        fixed_addresses=(setarch -R)
    fi
    status=0
    QT_HASH_SEED=0 "${fixed_addresses[@]}" "$fuzzer" "${options[@]}" "$work/new" "$corpus" \
        >"$work/log" 2>&1 || status=$?
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::average_exec_per_sec)' \
        "$work/log" || true
    if [ "$status" -ne 0 ] || [ -n "$(ls -A "$work/artifacts")" ]; then
        tail -n 60 "$work/log" >&2
        echo "!! $(basename "$fuzzer") failed (exit status $status); the input is in" \
             "$work/artifacts: fix it, then add it to $corpus" >&2
        exit 1
    fi
    ;;
*)
    echo "usage: $0 replay|fixed <fuzzer> <corpus-dir> ..." >&2
    exit 2
    ;;
esac
