#!/usr/bin/env bash
# make_libraries.sh COMPILER FOLDER: compiles libraries into FOLDER as a device has them: of the same
# sonames as the stand-ins, with the stated symbols only. The log's lines go to standard error.
set -euo pipefail
compiler=$1 folder=$2
sources=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)

# make_library SONAME EXPORTS INTERFACE SOURCE
make_library() {
    "$compiler" -std=c++17 -O1 -fPIC -shared "-Wl,-soname,$1" "-Wl,--version-script=$2" "-I$3" "$4" \
        -o "$folder/$1"
}

mkdir -p "$folder"
cd "$sources"
make_library libdlog.so.0 platform/dlog/exports.map platform/dlog/Inc tests/device/Log.cpp
make_library libQXCurl.so.0 platform/QXCurl/exports.map platform/QXCurl/Inc \
    tests/device/SecondQXCurl.cpp
make_library libVortanFileSystem.so.0 tests/device/accessor.map platform/filesystem/Inc \
    platform/filesystem/Src/ThreadSafeFileSystemAccessor.cpp
