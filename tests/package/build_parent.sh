#!/usr/bin/env bash
# build_parent.sh add_subdirectory|FetchContent ON|OFF CHECKOUT WORK OPTIONS...: a project with a checkout
# of the library as a part of it gets the library, with or without the transfer kit, but not the tests
# and the program; its own clients of the libraries are built and transfer a file. The options are for CMake.
set -euo pipefail
method=$1 kit=$2 checkout=$3 work=$4
clients=(client)
[[ $kit == OFF ]] || clients+=(kit_client)

rm -rf "$work"
cmake -S "$checkout/tests/package/parent" -B "$work" -G Ninja -DMETHOD="$method" -DCHECKOUT="$checkout" \
    -DVORTAN_BUILD_KIT="$kit" "${@:5}"

echo "It has no tests and no programs but its own:"
ctest --test-dir "$work" --show-only | grep -x 'Total Tests: 0'
programs=$(ninja -C "$work" -t targets all | sed -n 's/: CXX_EXECUTABLE_LINKER_.*//p' | LC_ALL=C sort)
diff --label expected --label built <(printf '%s\n' "${clients[@]}") <(echo "$programs")
if [[ $kit == OFF ]] && ninja -C "$work" -t targets all | grep -i transferkit; then
    echo "The kit is a part of it."
    exit 1
fi

cmake --build "$work"
head -c 1234567 /dev/urandom >"$work/source"
for client in "${clients[@]}"; do
    env -i "$work/$client" "$work/source"
done
