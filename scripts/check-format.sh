#!/usr/bin/env bash
# Fails when clang-format would change any C++ file of the project.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror
