#!/usr/bin/env bash
# check_search_paths.sh READELF PREFIX: whatever binary is installed in PREFIX looks for libraries
# relative to its own place, and nowhere else.
set -euo pipefail
readelf=$1 prefix=$2

search_path() {
    "$readelf" --dynamic --wide "$1" | sed -nE 's/.*\((RPATH|RUNPATH)\).*\[(.*)\]/\2/p'
}

binaries=0
wrong=0
while IFS= read -r -d '' file; do
    path=$(search_path "$file" 2>/dev/null) || continue
    binaries=$((binaries + 1))
    echo "${file#"$prefix"/}: ${path:-none}"
    while IFS= read -r -d : folder; do
        if [[ $folder != \$ORIGIN* ]]; then
            echo "  looks in $folder"
            wrong=1
        fi
    done < <([[ -z $path ]] || printf '%s:' "$path")
done < <(find "$prefix" -type f ! -name '*.h' ! -name '*.cmake' ! -name '*.pc' -print0)
((binaries > 0 && wrong == 0))
