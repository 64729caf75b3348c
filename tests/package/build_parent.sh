#!/usr/bin/env bash
# build_parent.sh add_subdirectory|FetchContent COMPILER CHECKOUT WORK: a project with a checkout of the
# library as a part of it gets the library alone, without its tests and its program; its own client of
# the library is built and transfers a file.
set -euo pipefail
method=$1 compiler=$2 checkout=$3 work=$4

rm -rf "$work"
cmake -S "$checkout/tests/package/parent" -B "$work" -G Ninja -DMETHOD="$method" -DCHECKOUT="$checkout" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Debug

echo "It has no tests and no programs but its own:"
ctest --test-dir "$work" --show-only | grep -x 'Total Tests: 0'
programs=$(ninja -C "$work" -t targets all | sed -n 's/: CXX_EXECUTABLE_LINKER_.*//p')
diff --label expected --label built <(echo client) <(echo "$programs")

cmake --build "$work"
head -c 1234567 /dev/urandom >"$work/source"
env -i "$work/client" "$work/source"
