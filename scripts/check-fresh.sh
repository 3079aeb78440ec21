#!/usr/bin/env bash
# (root) Runs the README's test command on a newcomer's machine: a fresh minimal Debian 12
# made with debootstrap (--variant=minbase, plus git, ca-certificates and sudo), holding a
# clean clone of this repository's committed HEAD with ../shared beside it. A package the
# tests need that scripts/install-deps.sh forgets shows here first, not on a newcomer's
# machine that happened to lack it.
#
#   scripts/check-fresh.sh [--keep]
#
#   --keep   leave the Debian system in place afterwards (its path is printed)
#
# Downloads from the Debian archive (BRISVANE_DEBIAN_MIRROR, default deb.debian.org).
set -euo pipefail

keep=0
case "${1:-}" in
    "") ;;
    --keep) keep=1 ;;
    *) sed -n '2,/^set -euo/{/^set -euo/d;s/^# \{0,1\}//;p}' "$0" >&2; exit 2 ;;
esac
if [ "$(id -u)" -ne 0 ]; then
    echo "check-fresh.sh makes a Debian system with debootstrap and must run as root" >&2
    exit 2
fi
command -v debootstrap >/dev/null || { echo "check-fresh.sh needs debootstrap" >&2; exit 2; }

source_dir=$(cd "$(dirname "$0")/.." && pwd)
shared_dir=$(cd "$source_dir/../shared" 2>/dev/null && pwd) || shared_dir=""
work=$(mktemp -d /var/tmp/brisvane-fresh.XXXXXX)
system="$work/system"
mounted=()

cleanup() {
    local index
    for ((index = ${#mounted[@]} - 1; index >= 0; index--)); do
        umount --lazy "${mounted[index]}" 2>/dev/null || true
    done
    if [ "$keep" -eq 1 ]; then
        echo "the Debian system stays in $system"
    else
        rm -rf --one-file-system "$work"
    fi
}
trap cleanup EXIT

mount_in_system() {
    mkdir -p "$system$2"
    mount "${@:3}" "$1" "$system$2"
    mounted+=("$system$2")
}

started=$SECONDS
echo "== a minimal Debian 12 in $system"
debootstrap --variant=minbase --include=git,ca-certificates,sudo bookworm "$system" \
    "${BRISVANE_DEBIAN_MIRROR:-http://deb.debian.org/debian}" >"$work/debootstrap.log" 2>&1 ||
    { tail -20 "$work/debootstrap.log" >&2; echo "debootstrap failed" >&2; exit 1; }
echo "debootstrap: $((SECONDS - started)) s"

cp /etc/resolv.conf "$system/etc/resolv.conf"
mount_in_system proc /proc -t proc
mount_in_system sysfs /sys -t sysfs
mount_in_system /dev /dev --rbind
mount_in_system tmpfs /dev/shm -t tmpfs -o mode=1777
mount_in_system tmpfs /tmp -t tmpfs -o mode=1777

echo "== a clean clone of $(git -C "$source_dir" rev-parse --short HEAD)"
mkdir -p "$system/work"
git clone --quiet "$source_dir" "$system/work/main"
if [ -n "$shared_dir" ]; then
    cp -a "$shared_dir" "$system/work/shared"
fi

echo "== the README's test command"
tests_started=$SECONDS
status=0
chroot "$system" env -i HOME=/root LANG=C.UTF-8 TERM=dumb \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    bash -c 'cd /work/main && bash scripts/test.sh' || status=$?
echo "test command: exit status $status after $((SECONDS - tests_started)) s;" \
    "whole check $((SECONDS - started)) s"
exit "$status"
