#!/usr/bin/env bash
# Installs what the project needs, then builds and runs every test: the normal
# build, the AddressSanitizer + UndefinedBehaviorSanitizer build, and a bounded
# run of each fuzz target.
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
bash scripts/run-fuzzers.sh build/fuzz "${BRISVANE_FUZZ_SECONDS:-60}"
