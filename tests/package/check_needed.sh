#!/usr/bin/env bash
# check_needed.sh READELF BINARY LIBRARY...: BINARY needs exactly the given libraries, beside those
# of the C++ run time.
set -euo pipefail
readelf=$1 binary=$2
shift 2

runtime='^(libstdc\+\+|libgcc_s|libm|libc|ld-linux[^.]*)\.so\.[0-9]+$'

needed() {
    "$readelf" --dynamic --wide "$binary" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'
}

diff --label expected --label needed --unified=0 \
    <(printf '%s\n' "$@" | LC_ALL=C sort) <(needed | grep -Ev "$runtime" | LC_ALL=C sort)
