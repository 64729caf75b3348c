#!/usr/bin/env bash
# install.sh CMAKE BUILD PREFIX: installs the build into the empty PREFIX. The tree is installed
# elsewhere and then moved, so that every test of it also tests that it can be moved.
set -euo pipefail
cmake=$1 build=$2 prefix=$3

rm -rf "$prefix" "$prefix.staged"
"$cmake" --install "$build" --prefix "$prefix.staged"
mv "$prefix.staged" "$prefix"
