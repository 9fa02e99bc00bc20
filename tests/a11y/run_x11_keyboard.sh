#!/usr/bin/env bash
# The main window and its dialogs as a screen reader and a keyboard-only user meet them:
# called by CTest through xvfb-run; the accessibility bus is a private one of this run.
# Arguments: the build's bin folder (the program, argentpm and their resources).
set -u
here="$(cd "$(dirname "$0")" && pwd)"
# The X server may still be coming up.
for _ in $(seq 50); do
    xdotool getdisplaygeometry >/dev/null 2>&1 && break
    sleep 0.1
done
exec timeout -k 5 90 dbus-run-session -- /usr/bin/python3 "$here/keyboard_walk.py" "$@"
