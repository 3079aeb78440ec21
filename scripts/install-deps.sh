#!/usr/bin/env bash
# Installs every Debian package the project builds, tests and benchmarks with.
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev clang-format
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev libgl-dev
    libarchive-dev
    libssl-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libcpp-httplib-dev
    python3 python3-cryptography
    stress-ng iproute2
    xvfb openbox trayer xdotool imagemagick x11-utils libxcb1-dev
    dbus dbus-x11 libglib2.0-bin at-spi2-core python3-pyatspi
    sway waybar grim qt6-wayland wtype jq python3-pil
    passwd fonts-dejavu-core
    desktop-file-utils appstream dpkg-dev debootstrap file lintian
)

sudo=()
if [ "$(id -u)" -ne 0 ]; then
    sudo=(sudo)
fi

export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update
"${sudo[@]}" apt-get install -y --no-install-recommends "${packages[@]}"
