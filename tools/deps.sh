# Sourced by run.sh and test.sh: installs the Debian packages that are missing.
# When everything is there this is one dpkg-query (about 0.1 s).
ARGENT_PACKAGES="cmake ninja-build g++ pkgconf qt6-base-dev libsodium-dev libxml2-dev libzxcvbn-dev xvfb xauth xdotool xclip trayer imagemagick fonts-dejavu-core desktop-file-utils appstream"
# The desktop's secret storage: its key exchange and AES come from OpenSSL's libcrypto.
ARGENT_PACKAGES="$ARGENT_PACKAGES libssl-dev"
# Only the tests need these (test.sh adds them): keepassxc-cli for the import/export round trip,
# oathtool for the one-time codes.
ARGENT_TEST_PACKAGES="keepassxc oathtool"
# The keyboard and screen reader test: AT-SPI from Python on a private D-Bus session.
ARGENT_TEST_PACKAGES="$ARGENT_TEST_PACKAGES python3-pyatspi at-spi2-core dbus-daemon"
# The browser tests: a client of the extension's protocol in Python with libsodium's
# bindings, and Firefox ESR with the packaged KeePassXC-Browser extension.
ARGENT_TEST_PACKAGES="$ARGENT_TEST_PACKAGES python3 python3-nacl firefox-esr webext-keepassxc-browser"
# The Secret Service tests: a private session bus and two real clients (libsecret's
# secret-tool, python3-secretstorage with jeepney, run by Debian's /usr/bin/python3).
ARGENT_TEST_PACKAGES="$ARGENT_TEST_PACKAGES dbus libsecret-tools python3-secretstorage"
# Two machines sharing a databases folder through real Syncthing instances (tools/sync_two_machines.sh).
ARGENT_TEST_PACKAGES="$ARGENT_TEST_PACKAGES syncthing curl"

argent_ensure_deps() {
    local missing=""
    local p
    for p in $ARGENT_PACKAGES; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null)" != "installed" ]; then
            missing="$missing $p"
        fi
    done
    [ -z "$missing" ] && return 0
    echo "Installing:$missing"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends $missing
}

# argent_build [TARGET...]: configures once, then builds the targets (all by default).
argent_build() {
    if [ ! -f build/build.ninja ]; then
        cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    fi
    if [ $# -gt 0 ]; then
        cmake --build build -j2 --target "$@"
    else
        cmake --build build -j2
    fi
}
