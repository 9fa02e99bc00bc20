#!/usr/bin/env bash
# The activation file the README offers a desktop without a keyring: a client's call makes the
# bus start the program, which takes org.freedesktop.secrets before anything else. Runs on a
# private session bus whose service folders are in a temporary home.
# Usage: activation.sh BIN_DIR
set -euo pipefail
bin=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export HOME=$tmp/home XDG_DATA_HOME=$tmp/data XDG_CONFIG_HOME=$tmp/config XDG_RUNTIME_DIR=$tmp/run
export QT_QPA_PLATFORM=offscreen
mkdir -p "$HOME" "$XDG_DATA_HOME/dbus-1/services" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
cat > "$XDG_DATA_HOME/dbus-1/services/org.freedesktop.secrets.service" <<EOT
[D-BUS Service]
Name=org.freedesktop.secrets
Exec=$bin/ArgentPasswordMngr
EOT

dbus-run-session -- bash -c '
    set -eu
    bus() { dbus-send --session --print-reply=literal --reply-timeout=30000 --dest=org.freedesktop.DBus \
            /org/freedesktop/DBus "org.freedesktop.DBus.$@"; }
    started=$(bus StartServiceByName string:org.freedesktop.secrets uint32:0)
    pid=$(bus GetConnectionUnixProcessID string:org.freedesktop.secrets | awk "{print \$2}")
    exe=$(readlink /proc/$pid/exe)
    # The collection answers (locked: no user is open yet).
    locked=$(dbus-send --session --print-reply=literal --dest=org.freedesktop.secrets \
        /org/freedesktop/secrets/aliases/default org.freedesktop.DBus.Properties.Get \
        string:org.freedesktop.Secret.Collection string:Locked)
    kill $pid
    for _ in $(seq 50); do kill -0 $pid 2>/dev/null || break; sleep 0.1; done
    kill -9 $pid 2>/dev/null || true
    echo "started: $started; program: $exe; locked: $locked"
    [ "$exe" = "$(readlink -f '"$bin"'/ArgentPasswordMngr)" ] || { echo "FAIL: the bus started $exe"; exit 1; }
    case "$locked" in *true*) ;; *) echo "FAIL: the collection answered \"$locked\""; exit 1;; esac
'
echo "activation: the bus started the program, which serves the secret storage"
