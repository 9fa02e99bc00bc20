#!/usr/bin/env bash
# Fails when a file of the program includes a header of a floor above its own. The floors
# and what may call what are described in LAYERS.md at the top of the tree; the table
# below is the same list, folder by folder. A folder on a floor may include its own
# floor and every floor below. Tests, benchmarks, tools and fuzz targets are not checked.
# Usage: check_layers.sh SOURCE_DIR
set -euo pipefail
src=${1:-$(dirname "$0")/../..}
cd "$src"

declare -A floor=(
    [diagnostics]=0
    [app]=1
    [storage]=2
    [users]=3
    [records]=4 [maintenance]=4 [options]=4 [tray]=4 [browser]=4 [secrets]=4
    [mainwindow]=5 [cli]=5
    [main]=6
)

# Known breaches, to be removed as they are mended: "file -> included folder/header".
# A new breach fails the check; a listed one that is gone is reported so that the list
# can shrink.
allowed=(
    "users/guiOpenUser.cpp -> maintenance/frmRestore.h"
    "users/frmSelectUser.cpp -> options/guiFolderChooser.h"
)

failed=0
seen=()
for dir in "${!floor[@]}"; do
    [[ -d $dir ]] || continue
    own=${floor[$dir]}
    while IFS= read -r file; do
        while IFS= read -r header; do
            target=${header%%/*}
            [[ -n ${floor[$target]+x} ]] || continue
            (( floor[$target] <= own )) && continue
            breach="$file -> $header"
            if printf '%s\n' "${allowed[@]}" | grep -qxF -- "$breach"; then
                seen+=("$breach")
                continue
            fi
            echo "FAIL: $breach (floor $own includes floor ${floor[$target]})" >&2
            failed=1
        done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\/[^"]*\)".*/\1/p' "$file")
    done < <(find "$dir" -type f \( -name '*.cpp' -o -name '*.h' \) | sort)
done

for breach in "${allowed[@]}"; do
    if ! printf '%s\n' "${seen[@]+"${seen[@]}"}" | grep -qxF -- "$breach"; then
        echo "note: '$breach' is mended: take it off the list in $0" >&2
    fi
done
if (( failed )); then
    echo "A file may include its own floor and the floors below it only (see LAYERS.md)." >&2
    exit 1
fi
echo "layers: no file includes a floor above its own (${#seen[@]} known breaches listed)"
