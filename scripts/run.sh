#!/usr/bin/env bash
# Builds brisvane with its demo helper and runs it.
#
# On a desktop (DISPLAY or WAYLAND_DISPLAY set) brisvane starts in the foreground and
# its icon appears in the tray. Without one, it is shown once on a virtual desktop
# instead: the panel opened from the tray, a login, a watched folder brought up to
# date, and screenshots of the login, status and settings screens.
set -euo pipefail

cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset default
cmake --build --preset default --target brisvane demo_helper

app=build/default/bin/brisvane

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    exec "$app"
fi

echo "No display here: showing brisvane on a virtual desktop instead."
if ! /usr/bin/python3 scripts/virtual_desktop.py "$app" build/default/screenshots; then
    echo "run: showing brisvane on the virtual desktop failed (see above)" >&2
    exit 1
fi
