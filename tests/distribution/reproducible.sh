#!/usr/bin/env bash
# reproducible.sh PRESET: makes the packages again from a copy of the sources in another folder, in
# other circumstances, and compares them byte for byte with those that are there.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.sh"

preset=$1
packages=$project/build/$preset/packages
copy=$project/build/a-copy-in-another-folder/$preset

say "The packages of $preset, made again in $copy"
rm -rf "$copy"
mkdir -p "$copy/build"
(cd "$project" && git ls-files -z | xargs -0 cp --parents --target-directory "$copy")
ln -s "$project/build/armhf-sysroot" "$copy/build/armhf-sysroot"
(
    cd "$copy"
    umask 077
    # A cache would hand out what the first build has made.
    export TZ=Pacific/Auckland LC_ALL=C.UTF-8 CMAKE_CXX_COMPILER_LAUNCHER='' CCACHE_DISABLE=1
    cmake --workflow --preset "$preset" >log 2>&1 || fail "   WRONG: $(tail -n 50 log)"
)

status=0
count=0
for package in "$packages"/*.{deb,rpm}; do
    count=$((count + 1))
    cmp "$package" "$copy/build/$preset/packages/${package##*/}" || status=1
done
((count > 0 && status == 0)) || fail "   WRONG: they differ (diffoscope tells in what)"
say "   $count packages, the same byte for byte"
rm -rf "$copy"
