#!/usr/bin/env bash
# Installs what is missing, builds, and starts ArgentPasswordMngr from build/bin.
set -euo pipefail
cd "$(dirname "$0")"
. tools/deps.sh
argent_ensure_deps
argent_build ArgentPasswordMngr argentpm argent_resources
if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
    echo "There is no display to show the window on (neither DISPLAY nor WAYLAND_DISPLAY is set)."
    echo "Run it on a virtual display instead:"
    echo "    xvfb-run -a -s '-screen 0 1280x800x24' ./run.sh"
    exit 1
fi
exec build/bin/ArgentPasswordMngr "$@"
