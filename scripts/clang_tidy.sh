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
clang++-14 -std=c++17 -fno-rtti -fPIC -shared -isystem /usr/lib/llvm-14/include \
    scripts/skip_system_headers.cpp -o "$plugin"
exec scripts/tidy_sources.py build/tidy "$plugin" "$@"
