#!/usr/bin/env bash
# build_client.sh cmake|pkg-config COMPILER STANDARD LIBRARIES MODULE SOURCES WORK [RUN...]: builds a
# client of the package whose libraries are in the folder LIBRARIES, and has it transfer a file. MODULE
# is the library's name for pkg-config. RUN is what runs the client; otherwise there is nothing in the
# environment to help. CXXFLAGS and LDFLAGS are heeded.
set -euo pipefail
tool=$1 compiler=$2 standard=$3 libraries=$4 module=$5 sources=$6 work=$7
run=("${@:8}")
((${#run[@]} > 0)) || run=(env -i)

with_cmake() {
    cmake -S "$sources" -B "$work" -G Ninja \
        -DVortanTransferAgent_DIR="$libraries/cmake/VortanTransferAgent" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_CXX_STANDARD="$standard" -DCMAKE_CXX_STANDARD_REQUIRED=ON \
        -DCMAKE_CXX_EXTENSIONS=OFF
    cmake --build "$work" --verbose
}

with_pkg_config() {
    export PKG_CONFIG_PATH="$libraries/pkgconfig"
    local flags
    read -ra flags < <(
        echo "${CXXFLAGS:-} $(pkg-config --cflags --libs "$module") ${LDFLAGS:-}"
    )
    mkdir -p "$work"
    "$compiler" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror "$sources"/*.cpp \
        -o "$work/client" "${flags[@]}" \
        "-Wl,-rpath,$(pkg-config --variable=libdir "$module")"
}

rm -rf "$work"
case $tool in
cmake) with_cmake ;;
pkg-config) with_pkg_config ;;
esac

# No multiple of any block.
head -c 1234567 /dev/urandom >"$work/source"
"${run[@]}" "$work/client" "$work/source"
