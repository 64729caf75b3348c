#!/usr/bin/env bash
# measure_costs.sh: prints what the library costs, as benchmarks/footprint/costs.txt records it: instructions
# executed in the library itself (libcurl's and the C library's are left out), and bytes of the stripped
# library. Neither depends on how busy the machine is.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

require_no_arguments "$@"
folder=$project/build/costs
counted=$(mktemp)
trap 'rm -f "$counted" "$counted.stripped"' EXIT

# instructions WORK COUNT
instructions() {
    valgrind --tool=callgrind --callgrind-out-file="$counted" \
        "$folder/benchmarks/vortan_instructions" "$1" "$2" >"$folder/valgrind.log" 2>&1 ||
        fail_with "$folder/valgrind.log" "vortan_instructions $1 $2 failed"
    "$project/scripts/own_instructions.py" "$counted" libvortantransferagent.so
}

# one_more NAME WORK COUNT: what one more of the work takes, as the difference of two counts.
one_more() {
    local few many
    few=$(instructions "$2" "$3")
    many=$(instructions "$2" $((2 * $3)))
    printf '%s %d\n' "$1" $(((many - few) / $3))
}

# size NAME STRIP LIBRARY
size() {
    "$2" --strip-unneeded -o "$counted.stripped" "$3"
    printf '%s %d\n' "$1" "$(stat --format %s "$counted.stripped")"
}

ensure_packages build footprint armhf
"$project/scripts/armhf_sysroot.sh" "$project/build/armhf-sysroot"
configure armhf
build armhf vortantransferagent
configure costs
build costs vortan_instructions

one_more chunk chunks 1000
one_more request requests 50
one_more dispatch dispatch 200
one_more upload-of-1-MiB uploads 10
printf 'start-up %d\n' "$(instructions start 0)"
size bytes-amd64 strip "$folder/TransferAgent/libvortantransferagent.so"
size bytes-armhf arm-linux-gnueabihf-strip "$project/build/armhf/TransferAgent/libvortantransferagent.so"
