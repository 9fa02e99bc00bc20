#!/usr/bin/env bash
# Proves the Debian package and the portable copy on fresh Debian 12 roots (debootstrap +
# chroot, a host Xvfb shared into the roots). Needs root, debootstrap, Xvfb, xdotool and
# the network; takes some minutes, so it is not part of ./test.sh.
#
#   tools/debian-proof.sh WORK_DIR [BUILD_DIR]
#
# 1. Package: cpack -G DEB; installed with apt-get into a fresh root; the menu entry's
#    Exec starts the window; argentpm --help works; apt-get remove leaves nothing of the
#    package behind but the user's own folder.
# 2. Portable copy: argentpm install-portable into a folder of a fresh root that has no Qt
#    (only a desktop's X client libraries and fonts); the folder is moved; started from
#    there, the window opens the sample user, a record is added, the window is closed,
#    and the record is found in the copy's DataBases.
# Screenshots go to WORK_DIR/*.png.
set -euo pipefail
work=$(realpath -m "$1")
src=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath "${2:-$src/build}")
mkdir -p "$work"
mirror=$(sed -n 's/^URIs: *\(http[^ ]*\/debian\)$/\1/p; s/^deb \(http[^ ]*\/debian\) bookworm main.*/\1/p' \
    /etc/apt/sources.list /etc/apt/sources.list.d/* 2>/dev/null | head -1 || true)
mirror=${mirror:-http://deb.debian.org/debian}
display=:$((70 + RANDOM % 20))
xvfb=""
# unmount_under DIR: every mount below DIR, deepest first.
unmount_under() {
    { awk '{print $2}' /proc/mounts | grep "^$1/" || true; } | sort -r | while read -r m; do umount -l "$m"; done
}
cleanup() {
    [ -n "$xvfb" ] && kill "$xvfb" 2>/dev/null || true
    unmount_under "$work/pkg"
    unmount_under "$work/port"
}
trap cleanup EXIT
say() { printf '\n== %s\n' "$*"; }
fail() { echo "FAIL: $*" >&2; exit 1; }

base=$work/base
if [ ! -d "$base/usr" ]; then
    say "debootstrap bookworm (minbase) from $mirror"
    /usr/bin/time -f "debootstrap: %e s" debootstrap --variant=minbase bookworm "$base" "$mirror" >"$work/debootstrap.log"
fi

# fresh_root NAME: WORK_DIR/NAME, a copy of the base root with /proc and the host's X
# socket folder mounted. Whatever is mounted below an old copy is unmounted before it is
# removed: the X socket folder is the host's own.
fresh_root() {
    local r=$work/$1
    unmount_under "$r"
    if awk '{print $2}' /proc/mounts | grep -q "^$r/"; then fail "$r still has mounts"; fi
    rm -rf --one-file-system "$r"
    cp -a "$base" "$r"
    cp /etc/resolv.conf "$r/etc/"
    mount -t proc proc "$r/proc"
    mkdir -p "$r/tmp/.X11-unix" && mount --bind /tmp/.X11-unix "$r/tmp/.X11-unix"
    chroot "$r" useradd -m anna
    chroot "$r" sh -c 'mkdir -p /tmp/rt && chmod 700 /tmp/rt && chown anna /tmp/rt'
}
as_anna() { chroot "$1" su anna -c "cd; export DISPLAY=$display XDG_RUNTIME_DIR=/tmp/rt; $2"; }
wait_window() {
    for _ in $(seq 1 40); do
        DISPLAY=$display xdotool search --name "$1" >/dev/null 2>&1 && return 0
        sleep 0.5
    done
    return 1
}
shot() { DISPLAY=$display import -window root "$work/$1.png"; }
click() { DISPLAY=$display xdotool mousemove "$1" "$2" click 1; sleep "${3:-0.5}"; }
typed() { DISPLAY=$display xdotool type --delay 30 "$1"; }
snapshot() {
    chroot "$1" find / -xdev \( -path /proc -o -path /tmp -o -path /home -o -path /var/lib/dpkg \
        -o -path /var/lib/apt -o -path /var/cache -o -path /var/log \) -prune -o -print | sort
}

Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
sleep 1

# ---------------------------------------------------------------- 1. the package
say "package"
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/argentpm_*_amd64.deb)
echo "$(basename "$deb"): $(stat -c %s "$deb") bytes; Depends: $(dpkg-deb -f "$deb" Depends)"
fresh_root pkg
r=$work/pkg
cp "$deb" "$r/tmp/"
chroot "$r" apt-get update -qq
n0=$(chroot "$r" dpkg -l | grep -c '^ii')
start=$(date +%s)
chroot "$r" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "/tmp/$(basename "$deb")" >"$work/pkg-install.log"
n1=$(chroot "$r" dpkg -l | grep -c '^ii')
echo "apt-get install: $((n1 - n0)) packages (argentpm and its dependencies) in $(($(date +%s) - start)) s"
exec_line=$(sed -n 's/^Exec=//p' "$r/usr/share/applications/org.argentpm.ArgentPasswordMngr.desktop")
echo "menu entry: Exec=$exec_line"
as_anna "$r" "command -v $exec_line && { setsid $exec_line >/tmp/window.log 2>&1 & echo \$! >/tmp/window.pid; }"
wait_window "Enter password" || fail "the menu entry's command showed no window"
shot package-window
echo "window: $(DISPLAY=$display xdotool search --name 'Argent Password Manager' getwindowname 2>/dev/null | head -1)"
as_anna "$r" "argentpm --help | head -3"
as_anna "$r" "argentpm users"
kill "$(cat "$r/tmp/window.pid")"
sleep 1
installed=$(snapshot "$r")
chroot "$r" dpkg -L argentpm | sort >"$work/pkg-files.txt"
chroot "$r" env DEBIAN_FRONTEND=noninteractive apt-get remove -y -qq argentpm >/dev/null
removed=$(snapshot "$r")
gone=$(comm -23 <(echo "$installed") <(echo "$removed"))
new=$(comm -13 <(echo "$installed") <(echo "$removed"))
[ -z "$new" ] || fail "apt-get remove added files: $new"
leftover=$(comm -12 <(echo "$removed") <(grep -vE '^/(usr|usr/bin|usr/share(/[^/]+)*)$' "$work/pkg-files.txt" | grep -E 'argentpm|ArgentPasswordMngr' ) || true)
[ -z "$leftover" ] || fail "left behind: $leftover"
echo "apt-get remove: $(echo "$gone" | wc -l) files and folders removed; left outside /home: nothing"
echo "the user's own folder stays: $(cd "$r/home/anna" && find .local/share/ArgentPM -maxdepth 2 | tr '\n' ' ')"

# ---------------------------------------------------------------- 2. the portable copy
say "portable copy"
fresh_root port
r=$work/port
chroot "$r" apt-get update -qq
chroot "$r" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    libx11-6 libx11-xcb1 libxcb1 libxcb-randr0 libxcb-render0 libxcb-shape0 libxcb-shm0 libxcb-sync1 \
    libxcb-xfixes0 libxcb-xkb1 libxkbcommon0 libxkbcommon-x11-0 libgl1 libegl1 libopengl0 libfontconfig1 \
    libfreetype6 libdbus-1-3 libwayland-client0 libwayland-cursor0 libwayland-egl1 fonts-dejavu-core \
    >"$work/port-install.log"
if chroot "$r" sh -c 'ls /usr/lib/x86_64-linux-gnu | grep -E "^lib(Qt6|sodium)"'; then fail "the root has Qt or libsodium"; fi
echo "root without Qt and libsodium: $(chroot "$r" dpkg -l | grep -c '^ii') packages"
home=$(mktemp -d)
mkdir -m 700 "$home/run"
copy=$r/media/stick/Argent
mkdir -p "$(dirname "$copy")"
sync
start=$(date +%s.%N)
HOME=$home XDG_DATA_HOME=$home/data XDG_CONFIG_HOME=$home/config XDG_RUNTIME_DIR=$home/run \
    "$build/bin/argentpm" install-portable "$copy"
sync
echo "copy: $(du -sb "$copy" | awk '{printf "%.1f MiB", $1 / 1048576}'), $(find "$copy" | wc -l) entries," \
    "$(echo "$(date +%s.%N) - $start" | bc | xargs printf '%.2f') s (with sync)"
rm -rf "$home"
mkdir -p "$r/opt/elsewhere"
mv "$copy" "$r/opt/elsewhere/Moved Copy"
chroot "$r" chown -R anna "/opt/elsewhere"
moved="/opt/elsewhere/Moved Copy"
as_anna "$r" "cd '$moved' && ./argentpm users"
as_anna "$r" "setsid '$moved/ArgentPasswordMngr' >/tmp/window.log 2>&1 & echo \$! >/tmp/window.pid"
wait_window "Enter password" || { cat "$r/tmp/window.log"; fail "the copy showed no window"; }
sleep 1
shot portable-1-password
click 583 356 0.3; typed 12345678; DISPLAY=$display xdotool key Return; sleep 2
shot portable-2-opened
click 351 158 1                                   # tool bar: add a record
click 589 222 0.2; typed "Portable proof"
click 589 250 0.2; typed "traveller"
click 642 498 1.5                                 # Add
shot portable-3-added
click 180 129 0.8; click 205 308 1                # File, Exit
click 649 379 2                                   # Yes
kill -0 "$(cat "$r/tmp/window.pid")" 2>/dev/null && fail "the window did not close"
found=$(as_anna "$r" "echo 12345678 | '$moved/argentpm' find SampleUser 'Portable proof' --password-stdin")
echo "record in the moved copy's DataBases: $found"
[ -n "$found" ] || fail "the record is not in the copy"
echo "settings of the copy: entry 5 = $(sed -n 5p "$r$moved/config.dat" | tr -d '\r')"
say "all proofs passed"
