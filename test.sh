#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test headless.
set -euo pipefail
cd "$(dirname "$0")"
. tools/deps.sh
ARGENT_PACKAGES="$ARGENT_PACKAGES $ARGENT_TEST_PACKAGES"
argent_ensure_deps
argent_build
export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure -j2 "$@"
