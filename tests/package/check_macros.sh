#!/usr/bin/env bash
# check_macros.sh COMPILER INCLUDE: the headers in the folder INCLUDE define no macro. What they
# include from elsewhere is on both sides, so that only their own macros make a difference.
set -euo pipefail
compiler=$1 include=$2

macros() {
    "$compiler" -std=c++14 -dM -E "-I$include" -x c++ - | sort
}

of_others() {
    grep -h '^ *# *include *<' "$include"/*.h | sort -u
}

of_all() {
    of_others
    local header
    for header in "$include"/*.h; do
        echo "#include \"$(basename "$header")\""
    done
}

before=$(of_others | macros)
after=$(of_all | macros)
diff --label before --label after --unified=0 <(echo "$before") <(echo "$after")
