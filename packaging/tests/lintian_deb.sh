#!/usr/bin/env bash
# Packages what a build folder holds, as scripts/check-deb.sh --no-build does, and runs
# Debian's lintian on the package: any error or warning fails. Exits 77 (skipped) where
# lintian is not installed.
#
#   packaging/tests/lintian_deb.sh <build folder | brisvane_<version>_<arch>.deb>
set -euo pipefail

if [ $# -ne 1 ]; then
    sed -n '2,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$0" >&2
    exit 2
fi
target=$1

if ! command -v lintian >/dev/null; then
    echo "skipped: lintian is not installed"
    exit 77
fi

work=$(mktemp -d /tmp/brisvane-lintian.XXXXXX)
trap 'rm -rf --one-file-system "$work"' EXIT

if [ -f "$target" ]; then
    deb=$target
elif [ -f "$target/CPackConfig.cmake" ]; then
    # Into the temporary folder, so a package build beside this one is not disturbed.
    if ! cpack --config "$target/CPackConfig.cmake" -B "$work/cpack" >"$work/cpack.log" 2>&1; then
        cat "$work/cpack.log" >&2
        echo "cpack failed" >&2
        exit 1
    fi
    debs=("$work"/cpack/brisvane_*.deb)
    if [ ${#debs[@]} -ne 1 ] || [ ! -f "${debs[0]}" ]; then
        echo "expected one brisvane_*.deb from cpack, found: ${debs[*]}" >&2
        exit 1
    fi
    deb=${debs[0]}
else
    echo "$target is neither a .deb nor a configured build folder" >&2
    exit 2
fi

echo "lintian $(lintian --version | sed 's/^Lintian v//') on $(basename "$deb")"
# Informational tags are shown but do not fail: they are suggestions, such as linking with
# -z now, rather than faults of the package.
status=0
lintian --fail-on error,warning --display-info --tag-display-limit 0 "$deb" || status=$?
if [ "$status" -eq 0 ]; then
    echo "no errors, no warnings"
fi
exit "$status"
