#!/usr/bin/env bash
# measure_footprint.sh [alternatives|shipped|memory|tls]...: prints the figures of docs/footprint.md: what
# other ways to compile the library would take of a device, what the library and the transfer kit take as
# they ship, heap and stack, and the instructions of transfers over TLS. All of it unless told otherwise.
# Builds everything it measures in build/footprint.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

work=$project/build/footprint
sysroot=$project/build/armhf-sysroot
version=$(sed -n 's/^project(VortanTransferAgent VERSION \([0-9.]*\).*/\1/p' "$project/CMakeLists.txt")

# build_variant MACHINE NAME OPTIONS...: in a folder of its own.
build_variant() {
    local machine=$1 folder=$work/$1-$2 preset=default
    [[ $machine == armhf ]] && preset=armhf
    say "Building $machine $2"
    (cd "$project" && cmake --preset "$preset" -B "$folder" -DVORTAN_BUILD_TESTS=OFF \
        -DVORTAN_BUILD_TOOLS=OFF -DVORTAN_BUILD_FOOTPRINT=ON \
        -DCMAKE_CXX_COMPILER_LAUNCHER="$(compiler_launcher)" "${@:3}") >"$folder.log"
    ninja -C "$folder" vortan_footprint vortan_instructions vortan_tls_instructions >>"$folder.log"
}

# print_size MACHINE VARIANT [LIBRARY]: the size of the variant's library, stripped, and its relocations:
# all, and those without a symbol.
print_size() {
    local folder=$work/$1-$2 library=${3:-TransferAgent/libvortantransferagent} strip=strip relocations
    [[ $1 == armhf ]] && strip=arm-linux-gnueabihf-strip
    "$strip" --strip-unneeded -o "$folder/stripped" "$folder/$library.so.$version"
    relocations=$(readelf --relocs --wide "$folder/stripped" | grep -E '^[0-9a-f]+ ')
    printf ' %9d %6d %6d' "$(stat --format %s "$folder/stripped")" \
        "$(wc -l <<<"$relocations")" "$(grep -c RELATIVE <<<"$relocations")"
}

# instructions VARIANT PROGRAM ARGUMENTS...: of the whole program.
instructions() {
    local said
    said=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null \
        "$work/amd64-$1/benchmarks/$2" "${@:3}" 2>&1) || fail "$2 ${*:3}: $said"
    sed -n 's/.*Collected : //p' <<<"$said"
}

# What one more takes.
print_instructions() {
    local few many
    few=$(instructions "$1" vortan_instructions "$2" 1000)
    many=$(instructions "$1" vortan_instructions "$2" 6000)
    printf ' %8d' $(((many - few) / 5000))
}

print_alternatives() {
    local name
    printf '%-9s %9s %6s %6s %9s %6s %6s %8s %8s\n' \
        "" armhf reloc. rel. amd64 reloc. rel. transfer chunk
    for name in -O2 -Os -O3 -O2-lto -Os-lto; do
        local options=("-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=${name%-lto} -g -DNDEBUG")
        [[ $name == *-lto ]] && options+=(-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON)
        build_variant armhf "$name" "${options[@]}"
        build_variant amd64 "$name" "${options[@]}"
        printf '%-9s' "$name"
        print_size armhf "$name"
        print_size amd64 "$name"
        print_instructions "$name" dispatch
        print_instructions "$name" chunks
        printf '\n'
    done
}

# nginx, as the tests start it, with files of 1 KiB, 16 MiB and 240 MiB. Its authority is one among Debian's.
start_server() {
    exec {from_server}< <(exec python3 "$project/tests/integration/servers/serve.py" nginx "$folder")
    server=$!
    read -r -u "$from_server" _ _ _ port
    read -r -u "$from_server" _ _ _ tls_port _
    truncate --size 16M "$folder/files/body"
    truncate --size 240M "$folder/files/long"
    truncate --size 1K "$folder/files/small"
    cat /etc/ssl/certs/ca-certificates.crt "$folder/ca.pem" >"$folder/authorities.pem"
}

print_shipped() {
    local machine
    for machine in armhf amd64; do
        build_variant "$machine" shipped
        ninja -C "$work/$machine-shipped" vortantransferkit >>"$work/$machine-shipped.log"
        printf '\n%s as it ships:' "$machine"
        print_size "$machine" shipped
        printf '\n%s, the transfer kit:' "$machine"
        print_size "$machine" shipped TransferKit/libvortantransferkit
        printf '\n'
    done
}

print_memory() {
    local machine
    for machine in armhf amd64; do
        local emulator=()
        [[ $machine == armhf ]] && emulator=("$project/scripts/run_on_armhf.sh" "$sysroot")
        build_variant "$machine" shipped
        printf '\n%s\n' "$machine"
        "${emulator[@]}" "$work/$machine-shipped/benchmarks/vortan_footprint" \
            "http://127.0.0.1:$port/body" "https://127.0.0.1:$tls_port/body" \
            "https://127.0.0.1:$tls_port/small" "$folder/authorities.pem" "$folder/authorities"
    done
}

# tls_instructions agent|libcurl|libcurl-vectors AUTHORITIES FILE COUNT
tls_instructions() {
    instructions shipped vortan_tls_instructions "$1" "$2" "https://127.0.0.1:$tls_port/$3" "$4"
}

# tls_row AUTHORITIES LABEL: one more GET of 1 KiB, and what it would take with the long body.
tls_row() {
    local who small=() large=() once
    for who in agent libcurl libcurl-vectors; do
        once=$(tls_instructions "$who" "$1" small 1)
        small+=($((($(tls_instructions "$who" "$1" small 3) - once) / 2)))
        large+=($(($(tls_instructions "$who" "$1" long 1) - once + ${small[-1]})))
    done
    printf '%-40s %12d %12d %15d\n' "GET of 1 KiB, $2" "${small[@]}" "stream of 240 MiB, $2" "${large[@]}"
}

print_tls() {
    build_variant amd64 shipped
    printf '\n%-40s %12s %12s %15s\n' "instructions over TLS" agent libcurl libcurl-vectors
    tls_row "$folder/authorities.pem" "Debian's bundle"
    tls_row "$folder/authorities" "hashed folder"
}

(($# > 0)) || set -- alternatives shipped memory tls
for part in "$@"; do
    [[ $part =~ ^(alternatives|shipped|memory|tls)$ ]] || fail "There is nothing called $part to print"
done
ensure_packages test clang armhf footprint
"$project/scripts/armhf_sysroot.sh" "$sysroot"
mkdir -p "$work"
folder=$(mktemp -d)
trap 'kill "${server:-}" || true; rm -rf "$folder"' EXIT
start_server
for part in "$@"; do
    "print_$part"
done
