#!/usr/bin/env bash
# Two machines sharing a databases folder through two real Syncthing instances, on the
# loopback interface only, and a user changed on both while one engine is stopped.
#
#   tools/sync_two_machines.sh [BIN_DIR]     (BIN_DIR holds argentpm; default build/bin)
#
# Each "machine" has its own home (settings, per-user data folder with its kept versions),
# its own databases folder and its own Syncthing. Nothing listens or sends beyond
# 127.0.0.1: every discovery, relay, NAT, STUN, crash and usage report and upgrade is off,
# and each instance knows the other only as tcp://127.0.0.1:PORT. Every wait is bounded.
#
# It proves: a user made on machine A opens on machine B; both change it (add, edit, move,
# delete) while B's engine is stopped; once B's engine is back and both have settled, the
# conflict copy Syncthing made is never listed as a user, a read-only command says it
# waits, "argentpm merge" takes it in, and afterwards both machines hold every change of
# both sides (the deletions included: this computer kept the version both started from)
# with no conflict copy left beside the user's file. Exit status 0 when all of that holds.
#
# With WINDOW=1 (and a display: xvfb-run -a WINDOW=1 tools/sync_two_machines.sh) the window
# is open on machine A with the user during the whole run, and it, not "argentpm merge",
# takes in the conflict copy as soon as the copy appears; it is closed (as a session end
# closes it) before the last checks.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
bin=${1:-$here/build/bin}
argentpm=$bin/argentpm
[ -x "$argentpm" ] || { echo "no argentpm in $bin" >&2; exit 2; }
command -v syncthing >/dev/null || { echo "syncthing is not installed (apt-get install syncthing)" >&2; exit 2; }
py=/usr/bin/python3

root=$(mktemp -d /tmp/argent-sync.XXXXXX)
pids=()
cleanup() {
    local p
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
    if [ "${KEEP:-0}" = 1 ]; then echo "kept: $root"; else rm -rf "$root"; fi
}
trap cleanup EXIT

fail() { echo "FAILED: $*" >&2; exit 1; }
start=$SECONDS
say() { printf '[%3ds] %s\n' $((SECONDS - start)) "$*"; }

# A free port on 127.0.0.1.
free_port() { $py -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }

declare -A ST_PID LISTEN GUI KEY DEVID
for m in A B; do
    mkdir -p "$root/$m/home" "$root/$m/st" "$root/$m/dbs"
    chmod 700 "$root/$m/dbs"
    LISTEN[$m]=$(free_port)
    GUI[$m]=$(free_port)
    KEY[$m]=key$RANDOM$RANDOM$m
    timeout 30 syncthing generate --home="$root/$m/st" --no-default-folder >/dev/null 2>&1 ||
        fail "syncthing generate"
    DEVID[$m]=$(timeout 30 syncthing serve --home="$root/$m/st" --device-id)
done

# The configuration of machine M: the databases folder shared with the other machine.
write_config() {
    local m=$1 o=$2
    cat >"$root/$m/st/config.xml" <<EOF
<configuration version="36">
    <folder id="argent-dbs" label="argent" path="$root/$m/dbs" type="sendreceive" rescanIntervalS="2"
            fsWatcherEnabled="true" fsWatcherDelayS="1" ignorePerms="false" autoNormalize="true">
        <filesystemType>basic</filesystemType>
        <device id="${DEVID[$m]}"></device>
        <device id="${DEVID[$o]}"></device>
        <versioning></versioning>
        <markerName>.stfolder</markerName>
        <maxConflicts>10</maxConflicts>
    </folder>
    <device id="${DEVID[$m]}" name="machine-$m" compression="metadata" introducer="false">
        <address>dynamic</address>
    </device>
    <device id="${DEVID[$o]}" name="machine-$o" compression="metadata" introducer="false">
        <address>tcp://127.0.0.1:${LISTEN[$o]}</address>
    </device>
    <gui enabled="true" tls="false">
        <address>127.0.0.1:${GUI[$m]}</address>
        <apikey>${KEY[$m]}</apikey>
        <theme>default</theme>
    </gui>
    <options>
        <listenAddress>tcp://127.0.0.1:${LISTEN[$m]}</listenAddress>
        <globalAnnounceServer>default</globalAnnounceServer>
        <globalAnnounceEnabled>false</globalAnnounceEnabled>
        <localAnnounceEnabled>false</localAnnounceEnabled>
        <relaysEnabled>false</relaysEnabled>
        <natEnabled>false</natEnabled>
        <crashReportingEnabled>false</crashReportingEnabled>
        <urAccepted>-1</urAccepted>
        <urSeen>3</urSeen>
        <autoUpgradeIntervalH>0</autoUpgradeIntervalH>
        <stunKeepaliveStartS>0</stunKeepaliveStartS>
        <stunKeepaliveMinS>0</stunKeepaliveMinS>
        <announceLANAddresses>false</announceLANAddresses>
        <startBrowser>false</startBrowser>
        <reconnectionIntervalS>1</reconnectionIntervalS>
        <progressUpdateIntervalS>1</progressUpdateIntervalS>
    </options>
</configuration>
EOF
}
write_config A B
write_config B A
mkdir -p "$root/A/dbs/.stfolder" "$root/B/dbs/.stfolder"

start_st() {
    local m=$1
    STNOUPGRADE=1 STNORESTART=1 syncthing serve --home="$root/$m/st" --no-browser --no-restart \
        --no-default-folder --skip-port-probing --logfile="$root/$m/st.log" >/dev/null 2>&1 &
    ST_PID[$m]=$!
    pids+=("$!")
}
stop_st() {
    local m=$1
    kill "${ST_PID[$m]}" 2>/dev/null || true
    wait "${ST_PID[$m]}" 2>/dev/null || true
}
rest() { curl -s --max-time 5 -H "X-API-Key: ${KEY[$1]}" "http://127.0.0.1:${GUI[$1]}/rest/$2"; }

# Waits up to $1 seconds for the command after it to succeed.
wait_for() {
    local limit=$1
    shift
    local end=$((SECONDS + limit))
    until "$@"; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.5
    done
}
connected() {
    rest "$1" system/connections | $py -c "import json,sys; d=json.load(sys.stdin); \
sys.exit(0 if d['connections'].get('${DEVID[$2]}',{}).get('connected') else 1)" 2>/dev/null
}
# Both engines idle, each up to date with the other, nothing left to pull.
settled() {
    local m o
    for m in A B; do
        o=$([ $m = A ] && echo B || echo A)
        rest $m "db/status?folder=argent-dbs" | $py -c "import json,sys; d=json.load(sys.stdin); \
sys.exit(0 if d['state']=='idle' and d['needTotalItems']==0 else 1)" 2>/dev/null || return 1
        rest $m "db/completion?folder=argent-dbs&device=${DEVID[$o]}" | $py -c "import json,sys; \
d=json.load(sys.stdin); sys.exit(0 if d['completion']==100 else 1)" 2>/dev/null || return 1
    done
    [ -z "$(find "$root/A/dbs" "$root/B/dbs" -name '.syncthing.*' -print -quit)" ]
}
same_file() { [ -f "$root/A/dbs/$1" ] && [ -f "$root/B/dbs/$1" ] && cmp -s "$root/A/dbs/$1" "$root/B/dbs/$1"; }

# argentpm on machine M, with its own home and databases folder.
pm() {
    local m=$1
    shift
    HOME="$root/$m/home" XDG_CONFIG_HOME="$root/$m/home/.config" XDG_DATA_HOME="$root/$m/home/.local/share" \
        timeout 60 "$argentpm" --databases "$root/$m/dbs" "$@"
}
PASW="pat's password 1"
pmp() { local m=$1; shift; printf '%s\n' "$PASW" | pm "$m" "$@" --password-stdin; }
# A user list that names a conflict copy fails the run.
users_ok() {
    local out
    out=$(pm "$1" users)
    [ "$out" = pat ] || fail "machine $1 lists users: $(echo $out)"
}

start_st A
start_st B
wait_for 60 connected A B || fail "the engines did not connect"
say "engines connected over 127.0.0.1 (A ${LISTEN[A]}, B ${LISTEN[B]})"

pmp A add-user pat >/dev/null
mail=$(pmp A mkdir pat 0 Mail)
bank=$(pmp A mkdir pat 0 Bank)
inbox=$(pmp A add pat "$mail" --title Inbox --login me)
spam=$(pmp A add pat "$mail" --title Spam)
card=$(pmp A add pat "$bank" --title Card)
old=$(pmp A add pat 0 --title Old)
gone=$(pmp A add pat 0 --title Gone)
wait_for 60 same_file pat.bdb || fail "pat.bdb did not reach machine B"
wait_for 60 settled || fail "the engines did not settle"
pmp B ls pat >/dev/null || fail "the user made on A does not open on B"
say "user made on A opens on B"

window=${WINDOW:-0}
win=
if [ "$window" = 1 ]; then
    [ -n "${DISPLAY:-}" ] || fail "WINDOW=1 needs a display"
    command -v xdotool >/dev/null || fail "WINDOW=1 needs xdotool"
    # Machine A's settings: its databases folder, and the user opened at the start.
    cfg="$root/A/home/.local/share/ArgentPM/config.dat"
    mkdir -p -m 700 "$root/A/run"
    [ -f "$cfg" ] || fail "no settings on machine A: $cfg"
    $py - "$cfg" "$root/A/dbs" <<'PY'
import sys
p, dbs = sys.argv[1], sys.argv[2]
lines = open(p, 'rb').read().split(b'\r\n')
lines[3], lines[4], lines[6] = b'pat', dbs.encode(), b'1'
open(p, 'wb').write(b'\r\n'.join(lines))
PY
    HOME="$root/A/home" XDG_CONFIG_HOME="$root/A/home/.config" XDG_DATA_HOME="$root/A/home/.local/share" \
        XDG_RUNTIME_DIR="$root/A/run" dbus-run-session -- "$bin/ArgentPasswordMngr" >"$root/window.log" 2>&1 &
    win=$!
    pids+=("$win")
    ask=$(timeout 30 xdotool search --sync --onlyvisible --name "^(Enter password|Ввод пароля)$" | head -1) ||
        fail "the window did not ask for pat's password"
    xdotool windowfocus "$ask" 2>/dev/null || true
    sleep 0.5
    xdotool type --delay 20 "$PASW"
    xdotool key Return
    sleep 3
    kill -0 "$win" || fail "the window ended: $(cat "$root/window.log")"
    say "window open on machine A with pat"
fi

stop_st B
say "engine B stopped; both machines change pat"
pmp A add pat "$mail" --title "Added on A" >/dev/null
pmp A edit pat "$inbox" --title "Inbox (A)" >/dev/null
pmp A mv pat "$spam" "$bank" >/dev/null
pmp A rm pat "$old" --yes >/dev/null
sleep 1.2 # the other side's change is the later one
pmp B add pat "$bank" --title "Added on B" >/dev/null
pmp B edit pat "$card" --login "card (B)" >/dev/null
pmp B mv pat "$inbox" 0 >/dev/null
pmp B rm pat "$gone" --yes >/dev/null
users_ok A
users_ok B

start_st B
wait_for 60 connected A B || fail "the engines did not connect again"
copy_there() { ls "$root/A/dbs" "$root/B/dbs" | grep -q 'sync-conflict'; }
no_copy() { ! copy_there; }
if [ "$window" = 1 ]; then
    # The window merges the copy itself: it may be gone before anyone looks.
    wait_for 60 settled || fail "the engines did not settle after the restart"
    wait_for 60 no_copy || fail "the window left the conflict copy: $(ls "$root/A/dbs")"
    users_ok A
    users_ok B
    ls "$root/A/dbs/Backup" | grep -q merged || fail "the window merged no copy (nothing in Backup/)"
    grep -h -i "conflict\|merged" "$root"/A/home/.local/share/ArgentPM/DbgFile.dat 2>/dev/null | tail -3 |
        sed 's/^/    window log: /' || true
    say "the window took in the conflict copy"
    kill "$win" 2>/dev/null || true
    wait "$win" 2>/dev/null || true
    say "window closed"
else
    wait_for 60 copy_there || fail "no conflict copy was made"
    wait_for 60 settled || fail "the engines did not settle after the restart"
    ls "$root/A/dbs" | sed 's/^/    A: /'
    users_ok A
    users_ok B
    note=$(pmp A ls pat 2>&1 >/dev/null || true)
    echo "$note" | grep -q 'conflict cop.* wait' || fail "ls did not say that a copy waits: $note"
    say "conflict copy never listed as a user; ls says: $note"
    pmp A merge pat | sed 's/^/    merge: /'
fi
wait_for 60 settled || fail "the engines did not settle after the merge"
wait_for 30 same_file pat.bdb || fail "machines hold different files after the merge"

for m in A B; do
    ls "$root/$m/dbs" | grep -q 'conflict' && fail "a conflict copy is left on machine $m"
    users_ok $m
    tree=$(pmp $m ls pat)
    for want in "Added on A" "Added on B" "Inbox (A)" "Card" "Spam"; do
        echo "$tree" | grep -q "$want" || fail "machine $m lacks $want: $tree"
    done
    for gone_title in "Old" "Gone"; do
        echo "$tree" | grep -q " $gone_title\$" && fail "machine $m still has $gone_title (deleted): $tree"
    done
    # Moves of both sides: Spam under Bank, Inbox at the root.
    [ "$(pmp $m show pat "$inbox" --json | $py -c 'import json,sys; print(json.load(sys.stdin)["parent"])')" = 0 ] ||
        fail "machine $m: Inbox not moved to the root"
    [ "$(pmp $m show pat "$spam" --json | $py -c 'import json,sys; print(json.load(sys.stdin)["parent"])')" = "$bank" ] ||
        fail "machine $m: Spam not moved into Bank"
    [ "$(pmp $m show pat "$card" --field login)" = "card (B)" ] || fail "machine $m: Card's login not taken in"
    say "machine $m holds every change of both"
done
echo "$tree" | sed 's/^/    /'
ls "$root/A/dbs/Backup" | sed 's/^/    Backup: /'
say "OK"
