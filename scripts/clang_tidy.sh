#!/usr/bin/env bash
# clang_tidy.sh [FILE...]: clang-tidy on these sources of the build that the preset tidy configured; on
# all of them if none is named.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$project"

[[ -e build/tidy/compile_commands.json ]] ||
    fail "build/tidy is not configured. Run .ci/stages/static-checks, or: cmake --preset tidy"
plugin=build/tidy/skip_system_headers.so
sources=("$@")
if (($# == 0)); then
    # Once each: the list names a source once for each program that contains it. Generated sources, into
    # which mistakes are seeded on purpose, are left out.
    mapfile -t sources < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/tidy/compile_commands.json |
        grep -v "^$project/build/" | sort -u)
fi

clang++-14 -std=c++17 -fno-rtti -fPIC -shared -isystem /usr/lib/llvm-14/include \
    scripts/skip_system_headers.cpp -o "$plugin"
# shellcheck disable=SC2016 # The inner shell expands that.
printf '%s\0' "${sources[@]}" | xargs -0 --max-procs "$(nproc)" -I '{}' bash -c '
    echo "$2"
    exec clang-tidy-14 --quiet --load "$1" --checks vortan-skip-system-headers -p build/tidy "$2"
' clang-tidy "$plugin" '{}'
