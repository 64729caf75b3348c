#!/usr/bin/env bash
# check_missing_libraries.sh COMPILER PREFIX LIBDIR SOURCES WORK: where the package in PREFIX has neither
# stand-ins nor a device's libraries, CMake and the linker say what is missing. They are silent with them.
set -euo pipefail
compiler=$1 prefix=$2 libdir=$3 sources=$4 work=$5

# configure PREFIX
configure() {
    cmake -S "$sources" -B "$work/build" -DCMAKE_CXX_COMPILER="$compiler" \
        -DVortanTransferAgent_DIR="$1/$libdir/cmake/VortanTransferAgent" 2>&1
}

# link PREFIX
link() {
    local flags
    read -ra flags < <(PKG_CONFIG_PATH=$1/$libdir/pkgconfig pkg-config --cflags --libs vortantransferagent)
    LC_ALL=C "$compiler" "$work/client.o" -o "$work/client" "${flags[@]}" 2>&1
}

# expect TEXT SAID
expect() {
    tr -s ' \n' ' ' <<<"$2" | grep -qF "$1" || {
        printf 'Missing: %s\nin: %s\n' "$1" "$2"
        exit 1
    }
}

rm -rf "$work"
mkdir -p "$work"
cp -r "$prefix" "$work/prefix"
rm "$work/prefix/$libdir"/lib{dlog,QXCurl}.so.0*
cat >"$work/client.cpp" <<END
#include <AsyncTransferAgentManager.h>
int main() { return VORTAN_MW::AsyncTransferAgentManager::Create() ? 0 : 1; }
END
"$compiler" -std=c++14 -I"$prefix/include/vortantransferagent" -c "$work/client.cpp" -o "$work/client.o"

said=$(configure "$prefix")
[[ $said != *Warning* ]] || { echo "$said" && exit 1; }
link "$prefix"

expect "needs libdlog.so.0 libQXCurl.so.0, found neither beside it nor among the system's libraries. Install vortan-standins" \
    "$(configure "$work/prefix")"
said=$(link "$work/prefix") && { echo "it links" && exit 1; }
for library in libdlog.so.0 libQXCurl.so.0; do
    expect "warning: $library, needed by $work/prefix/" "$said"
done
