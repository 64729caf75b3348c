#!/usr/bin/env bash
# build_examples.sh COMPILER PREFIX LIBRARIES WORK: the examples are installed with the package, and build
# with nothing else, each program; one of them is tried.
set -euo pipefail
compiler=$1 prefix=$2 libraries=$3 work=$4

rm -rf "$work"
cmake -S "$prefix/share/doc/vortantransferagent/examples" -B "$work" -G Ninja \
    -DVortanTransferAgent_DIR="$libraries/cmake/VortanTransferAgent" -DCMAKE_CXX_COMPILER="$compiler"
cmake --build "$work"

echo "what is in a file" >"$work/file"
env -i "$work/read_file" "$work/file" | cmp "$work/file"
