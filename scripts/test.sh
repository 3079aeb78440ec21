#!/usr/bin/env bash
# Installs what the project needs, then builds and runs every test: the normal
# build, the AddressSanitizer + UndefinedBehaviorSanitizer build, and each fuzz
# target's seeds and kept findings, then a fixed-seed run of it of fixed length, so
# that a commit gets the same verdict every time. The open-ended random fuzz run is
# scripts/run-fuzzers.sh.
set -euo pipefail

cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

jobs=$(nproc)

for preset in default sanitize; do
    echo "== $preset build"
    cmake --preset "$preset"
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs"
done

echo "== fuzz build"
cmake --preset fuzz
cmake --build --preset fuzz -j "$jobs"
ctest --preset fuzz -j "$jobs"
