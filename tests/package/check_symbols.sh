#!/usr/bin/env bash
# check_symbols.sh NM LIBRARY EXPECTED: LIBRARY exports exactly the names in the file EXPECTED.
# Names are compared without their parameters, which differ from one machine to another.
set -euo pipefail
nm=$1 library=$2 expected=$3

exported() {
    "$nm" --dynamic --demangle --defined-only "$library" | sed -E 's/^[^ ]+ . //; s/\(.*//' |
        LC_ALL=C sort -u
}

diff --label expected --label exported --unified=0 <(LC_ALL=C sort -u "$expected") <(exported)
