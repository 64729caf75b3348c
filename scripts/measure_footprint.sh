#!/usr/bin/env bash
# measure_footprint.sh: prints the figures of docs/footprint.md: what the library and the transfer kit
# take of a device, and what other ways to compile the library would. Builds everything it measures in build/footprint.
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
    ninja -C "$folder" vortan_footprint vortan_instructions >>"$folder.log"
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

# instructions VARIANT WORK COUNT: of the whole program.
instructions() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null \
        "$work/amd64-$1/benchmarks/vortan_instructions" "$2" "$3" 2>&1 |
        sed -n 's/.*Collected : //p'
}

# What one more takes.
print_instructions() {
    local few many
    few=$(instructions "$1" "$2" 1000)
    many=$(instructions "$1" "$2" 6000)
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

# nginx, as the tests start it, with a file of 16 MiB. Its authority is one among Debian's.
start_server() {
    local folder=$1
    exec {from_server}< <(exec python3 "$project/tests/integration/servers/serve.py" nginx "$folder")
    server=$!
    read -r -u "$from_server" _ _ _ port
    read -r -u "$from_server" _ _ _ tls_port _
    truncate --size 16M "$folder/files/body"
    cat /etc/ssl/certs/ca-certificates.crt "$folder/ca.pem" >"$folder/authorities.pem"
}

print_memory() {
    local folder
    folder=$(mktemp -d)
    # shellcheck disable=SC2064  # the folder of now
    trap "kill \"\${server:-}\" || true; rm -rf '$folder'" EXIT
    start_server "$folder"
    for machine in armhf amd64; do
        local emulator=()
        [[ $machine == armhf ]] && emulator=("$project/scripts/run_on_armhf.sh" "$sysroot")
        printf '\n%s\n' "$machine"
        "${emulator[@]}" "$work/$machine-shipped/benchmarks/vortan_footprint" \
            "http://127.0.0.1:$port/body" "https://127.0.0.1:$tls_port/body" "$folder/authorities.pem"
    done
}

ensure_packages test clang armhf footprint
"$project/scripts/armhf_sysroot.sh" "$sysroot"
mkdir -p "$work"
print_alternatives
for machine in armhf amd64; do
    build_variant "$machine" shipped
    ninja -C "$work/$machine-shipped" vortantransferkit >>"$work/$machine-shipped.log"
    printf '\n%s as it ships:' "$machine"
    print_size "$machine" shipped
    printf '\n%s, the transfer kit:' "$machine"
    print_size "$machine" shipped TransferKit/libvortantransferkit
    printf '\n'
done
print_memory
