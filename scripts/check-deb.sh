#!/usr/bin/env bash
# Builds brisvane's Debian package from a build folder, or takes a finished package, and
# checks what a user would get: the files it holds, its control fields, its desktop files,
# the link paths of its programs, and what Debian's lintian says of it. Touches nothing outside a temporary folder unless
# asked to install.
#
#   scripts/check-deb.sh [options] <build folder | brisvane_<version>_<arch>.deb>
#
#   --no-build      package what the build folder holds, without building it first
#   --install       (root) install the package on this system with dpkg and apt-get, check
#                   the installed files, start the application once, then remove it again
#   --clean-system  (root) the same in a fresh minimal Debian 12 made with debootstrap:
#                   proves the package's dependencies are complete. Downloads from the
#                   Debian archive (BRISVANE_DEBIAN_MIRROR, default deb.debian.org).
set -euo pipefail

app_id=app.brisvane.Brisvane
build=1
install=0
clean_system=0
target=""

usage() {
    sed -n '2,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$0" >&2
    exit 2
}

while [ $# -gt 0 ]; do
    case "$1" in
        --no-build) build=0 ;;
        --install) install=1 ;;
        --clean-system) clean_system=1 ;;
        -h | --help) usage ;;
        -*) echo "unknown option $1" >&2; usage ;;
        *) [ -z "$target" ] || usage; target=$1 ;;
    esac
    shift
done
[ -n "$target" ] || usage

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
pass() {
    echo "ok: $*"
}
check() {
    local what=$1
    shift
    if "$@"; then pass "$what"; else fail "$what"; fi
}

work=$(mktemp -d /tmp/brisvane-check-deb.XXXXXX)
cleanup_steps=()
cleanup() {
    local step
    for ((i = ${#cleanup_steps[@]} - 1; i >= 0; i--)); do
        step=${cleanup_steps[i]}
        eval "$step" || echo "cleanup step failed: $step" >&2
    done
    rm -rf --one-file-system "$work"
}
trap cleanup EXIT

# --- the package -------------------------------------------------------------------------

if [ -f "$target" ]; then
    deb=$(realpath "$target")
elif [ -f "$target/CPackConfig.cmake" ]; then
    if [ "$build" -eq 1 ]; then
        cmake --build "$target"
    fi
    # Packaged into the temporary folder, so a package build running beside this one in
    # the same build folder is not disturbed.
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
echo "package: $deb ($(du -k "$deb" | cut -f1) KiB)"

field() { dpkg-deb --field "$deb" "$1"; }
version=$(field Version)
arch=$(field Architecture)
case "$arch" in
    amd64) helper=harlix-darwin-amd64 ;;
    arm64) helper=harlix-darwin-arm64 ;;
    *) helper="" ;;
esac

check "architecture $arch has a helper build" test -n "$helper"
check "file name is brisvane_<version>_<arch>.deb" \
    test "$(basename "$deb")" = "brisvane_${version}_${arch}.deb"
check "package name" test "$(field Package)" = brisvane
check "section net" test "$(field Section)" = net
check "homepage set" test -n "$(field Homepage)"
check "maintainer set" test -n "$(field Maintainer)"
check "description has a summary and a long text" \
    test "$(field Description | wc -l)" -ge 2
# Without dpkg-shlibdeps the list would be empty: this proves it ran.
check "shared-library dependencies computed" grep -q 'libc6' <<<"$(field Depends)"
# Debian's own checker: any error or warning fails. Informational tags are shown but do
# not fail: they are suggestions, such as linking with -z now, rather than faults.
if command -v lintian >/dev/null; then
    check "lintian finds no error and no warning" \
        lintian --fail-on error,warning --display-info --tag-display-limit 0 "$deb"
else
    echo "skipped: lintian is not installed"
fi

# --- the files it holds ------------------------------------------------------------------

dpkg-deb --contents "$deb" >"$work/contents"
awk '{print $6}' "$work/contents" | sed 's|^\./|/|; s|/$||' | sort >"$work/paths"
expected_files=(
    /usr/bin/brisvane
    "/usr/libexec/brisvane/$helper"
    "/usr/share/applications/$app_id.desktop"
    "/usr/share/metainfo/$app_id.metainfo.xml"
    "/usr/share/icons/hicolor/scalable/apps/$app_id.svg"
    "/usr/share/icons/hicolor/symbolic/apps/$app_id-symbolic.svg"
)
icon_sizes=(48 64 128 256)
for size in "${icon_sizes[@]}"; do
    expected_files+=("/usr/share/icons/hicolor/${size}x${size}/apps/$app_id.png")
done
for path in "${expected_files[@]}"; do
    check "holds $path" grep -qxF "$path" "$work/paths"
done
check "holds no self-updating bundle marker" bash -c '! grep -q "/\.brisvane-bundle$" "$1"' _ "$work/paths"
check "installs nothing outside /usr" bash -c '! grep -v -e "^$" -e "^/usr\(/\|$\)" "$1"' _ "$work/paths"
check "programs are root's and executable" bash -c '
    grep -E " \./usr/(bin/brisvane|libexec/brisvane/harlix-)" "$1" |
        awk "\$1 !~ /^-rwxr-xr-x$/ || \$2 != \"root/root\" { bad = 1 } END { exit bad }"' \
    _ "$work/contents"

root=$work/root
dpkg-deb --extract "$deb" "$root"
desktop=$root/usr/share/applications/$app_id.desktop
metainfo=$root/usr/share/metainfo/$app_id.metainfo.xml

# --- its desktop files -------------------------------------------------------------------

if [ -f "$desktop" ]; then
    check "desktop entry valid" desktop-file-validate "$desktop"
    exec_line=$(sed -n 's/^Exec=//p' "$desktop")
    check "desktop entry starts a program the package holds" \
        test -x "$root/usr/bin/${exec_line%% *}"
    check "desktop entry names the package's icon" \
        test "$(sed -n 's/^Icon=//p' "$desktop")" = "$app_id"
fi
if [ -f "$metainfo" ]; then
    check "metainfo valid" appstreamcli validate --no-net "$metainfo"
    check "metainfo launches the desktop entry" \
        grep -qF "<launchable type=\"desktop-id\">$app_id.desktop</launchable>" "$metainfo"
    check "metainfo's newest release is the package version $version" \
        grep -q "<release version=\"${version%%-*}\"" "$metainfo"
fi

# The PNG header's IHDR chunk holds the width and height, big-endian, at bytes 16 and 20.
png_size() {
    od -An -tu1 -j16 -N8 "$1" |
        awk '{ printf "%dx%d", $1 * 16777216 + $2 * 65536 + $3 * 256 + $4, $5 * 16777216 + $6 * 65536 + $7 * 256 + $8 }'
}
for size in "${icon_sizes[@]}"; do
    png=$root/usr/share/icons/hicolor/${size}x${size}/apps/$app_id.png
    [ -f "$png" ] && check "${size}x${size} icon is ${size}x${size} pixels" \
        test "$(png_size "$png")" = "${size}x${size}"
done

# --- its programs' link paths ------------------------------------------------------------

# A run path into the build tree, or any absolute one, would load libraries from places
# the user's system does not have or does not trust.
for program in "$root"/usr/bin/* "$root"/usr/libexec/brisvane/*; do
    [ -f "$program" ] && [ "$(head -c4 "$program" | od -An -c | tr -d ' ')" = '177ELF' ] || continue
    paths=$(readelf --dynamic "$program" | sed -n 's/.*(\(RPATH\|RUNPATH\)).*\[\(.*\)\]/\2/p')
    check "${program#"$root"} has no run path${paths:+ (has $paths)}" test -z "$paths"
done

# --- installed -----------------------------------------------------------------------------

# Checks the installed package in the system at $1 ("" for this one) and starts the
# application once there, in a throw-away home, with a display.
check_installed() {
    local system=$1
    local -a in_system=()
    [ -z "$system" ] || in_system=(chroot "$system")

    check "package installed" test "$("${in_system[@]}" dpkg-query -W -f '${Status}' brisvane 2>/dev/null)" = \
        "install ok installed"
    check "/usr/bin/brisvane installed" test -x "$system/usr/bin/brisvane"
    check "helper installed at /usr/libexec/brisvane/$helper" \
        test -x "$system/usr/libexec/brisvane/$helper"
    for program in /usr/bin/brisvane "/usr/libexec/brisvane/$helper"; do
        check "$program finds every shared library" \
            bash -c '! "$@" | grep -q "not found"' _ "${in_system[@]}" ldd "$program"
    done

    local -a display=()
    if [ -n "$system" ] || [ -z "${DISPLAY:-}" ]; then
        if ! "${in_system[@]}" sh -c 'command -v xvfb-run' >/dev/null; then
            echo "skipped: starting brisvane (no display and no xvfb-run)"
            return
        fi
        display=(xvfb-run -a)
    fi
    local home
    home=$(mktemp -d -p "$system/tmp" brisvane-start.XXXXXX)
    home=${home#"$system"}
    mkdir -m 700 "$system$home/run"
    # Its own home, so the autostart entry, the settings and the demo helper's state it
    # writes at start land there, and its own runtime folder, so a brisvane already running
    # here does not make this one end at once.
    local status=0
    "${in_system[@]}" env -u DBUS_SESSION_BUS_ADDRESS HOME="$home" \
        XDG_CONFIG_HOME="$home/config" XDG_STATE_HOME="$home/state" \
        XDG_CACHE_HOME="$home/cache" XDG_DATA_HOME="$home/data" XDG_RUNTIME_DIR="$home/run" \
        "${display[@]}" timeout 5 /usr/bin/brisvane \
        >"$system$home/stdout" 2>"$system$home/stderr" || status=$?
    check "brisvane still running after 5 s (timeout's status 124, got $status)" test "$status" -eq 124
    check "brisvane started its helper (a \"run release\" line)" \
        grep -q '^run release ' "$system$home/stdout"
    if [ "$failures" -gt 0 ]; then
        echo "--- brisvane's output:"; head -20 "$system$home/stdout"
        echo "--- brisvane's errors:"; head -20 "$system$home/stderr"
    fi
    rm -rf "$system$home"
}

require_root() {
    if [ "$(id -u)" -ne 0 ]; then
        echo "$1 needs root" >&2
        exit 2
    fi
}

if [ "$install" -eq 1 ]; then
    require_root --install
    if dpkg-query -W brisvane >/dev/null 2>&1; then
        echo "brisvane is installed here already; not touching it" >&2
        exit 2
    fi
    cleanup_steps+=("dpkg -r brisvane >/dev/null")
    # dpkg leaves the package unconfigured when a dependency is missing; apt-get brings it in.
    dpkg -i "$deb" || true
    DEBIAN_FRONTEND=noninteractive apt-get -f install -y
    check_installed ""
fi

if [ "$clean_system" -eq 1 ]; then
    require_root --clean-system
    command -v debootstrap >/dev/null || { echo "--clean-system needs debootstrap" >&2; exit 2; }
    system=$work/system
    started=$SECONDS
    debootstrap --variant=minbase bookworm "$system" \
        "${BRISVANE_DEBIAN_MIRROR:-http://deb.debian.org/debian}" >"$work/debootstrap.log" 2>&1 ||
        { tail -20 "$work/debootstrap.log" >&2; echo "debootstrap failed" >&2; exit 1; }
    echo "debootstrap: $((SECONDS - started)) s"
    mount -t proc proc "$system/proc"
    cleanup_steps+=("umount '$system/proc'")
    cp "$deb" "$system/tmp/"
    started=$SECONDS
    chroot "$system" dpkg -i "/tmp/$(basename "$deb")" >/dev/null 2>&1 || true
    # Only what the package depends on, not what it recommends: that must be enough.
    chroot "$system" env DEBIAN_FRONTEND=noninteractive \
        apt-get -f install -y --no-install-recommends >"$work/apt.log" 2>&1 ||
        { tail -20 "$work/apt.log" >&2; echo "apt-get -f install failed" >&2; exit 1; }
    chroot "$system" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends xvfb xauth >>"$work/apt.log" 2>&1 ||
        { tail -20 "$work/apt.log" >&2; echo "installing xvfb failed" >&2; exit 1; }
    echo "dependencies and xvfb: $((SECONDS - started)) s"
    check_installed "$system"
fi

if [ "$failures" -gt 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "all checks passed"
