#!/usr/bin/env bash
# Runs a test executable on a real X server (Xvfb) with trayer as the tray host.
# Called by CTest through xvfb-run.
set -u
trayer --edge top --align right --widthtype request --height 32 --SetDockType true --transparent false \
    --tint 0x808080 >/dev/null 2>&1 &
tray_pid=$!
# Give the tray host a moment to claim the tray selection; the test waits for it too.
sleep 1
QT_QPA_PLATFORM=xcb "$@"
rc=$?
kill "$tray_pid" 2>/dev/null
wait "$tray_pid" 2>/dev/null
exit $rc
