#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks it as a user of the installed
# programs would: the menu entry and AppStream data validate, argentpm finds its data
# folder under <prefix>/share/argentpm and creates the first user's folder from it, and
# the shell completion offers commands and user names.
# Usage: check_install.sh BUILD_DIR
set -euo pipefail
build=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$tmp/usr" >/dev/null
share=$tmp/usr/share
id=org.argentpm.ArgentPasswordMngr
for f in bin/ArgentPasswordMngr bin/argentpm bin/argentpm-clipkeeper bin/argentpm-browser share/argentpm/start.dat share/argentpm/SampleUser.bdb \
         share/argentpm/Languages/English.lng share/argentpm/Languages/Russian.lng \
         share/applications/$id.desktop share/metainfo/$id.metainfo.xml \
         share/icons/hicolor/scalable/apps/$id.svg share/icons/hicolor/48x48/apps/$id.png \
         share/man/man1/argentpm.1 share/man/man1/ArgentPasswordMngr.1 \
         share/bash-completion/completions/argentpm share/zsh/site-functions/_argentpm; do
    [ -e "$tmp/usr/$f" ] || fail "$f was not installed"
done

if command -v desktop-file-validate >/dev/null; then
    desktop-file-validate "$share/applications/$id.desktop" || fail "desktop-file-validate"
fi
if command -v appstreamcli >/dev/null; then
    appstreamcli validate --no-net "$share/metainfo/$id.metainfo.xml" || fail "appstreamcli validate"
fi
grep -q '^Name\[ru\]=' "$share/applications/$id.desktop" || fail "no Russian name"
grep -q "^Icon=$id\$" "$share/applications/$id.desktop" || fail "icon name"
if command -v man >/dev/null; then
    for page in argentpm ArgentPasswordMngr; do
        warn=$(MANWIDTH=80 man --warnings -l "$share/man/man1/$page.1" 2>&1 >/dev/null || true)
        [ -z "$warn" ] || fail "man page $page: $warn"
    done
fi

# No D-Bus activation file for org.freedesktop.secrets: on a desktop with a keyring the bus
# could start this program in its place (README: the desktop's secret storage).
if grep -rlqs 'org.freedesktop.secrets' "$share/dbus-1"; then fail "a D-Bus activation file for org.freedesktop.secrets is installed"; fi

# A user's first command: the per-user folder is made from the installed data folder.
export HOME=$tmp/home XDG_DATA_HOME=$tmp/data XDG_CONFIG_HOME=$tmp/config XDG_RUNTIME_DIR=$tmp/run
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
before=$(ls -lR --full-time "$share/argentpm")
users=$("$tmp/usr/bin/argentpm" users) || fail "argentpm users"
[ "$users" = SampleUser ] || fail "argentpm users printed '$users'"
[ -f "$XDG_DATA_HOME/ArgentPM/DataBases/SampleUser.bdb" ] || fail "no SampleUser in the user folder"
[ "$(ls -lR --full-time "$share/argentpm")" = "$before" ] || fail "the data folder was written to"

# bash completion: commands, then user names from the installed argentpm.
complete_words() {
    PATH=$tmp/usr/bin:$PATH bash -c '
        source "$1"; shift
        COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _argentpm
        printf "%s\n" "${COMPREPLY[@]}"' _ "$share/bash-completion/completions/argentpm" "$@"
}
[ "$(complete_words argentpm de)" = "$(printf 'delete-user\ndelete-backup')" ] || fail "commands: $(complete_words argentpm de)"
[ "$(complete_words argentpm ls S)" = SampleUser ] || fail "user names: $(complete_words argentpm ls S)"
[ "$(complete_words argentpm add SampleUser 0 --ti)" = --title ] || fail "options"
if command -v zsh >/dev/null; then
    zsh -n "$share/zsh/site-functions/_argentpm" || fail "zsh completion does not parse"
fi
echo "install checks passed"
