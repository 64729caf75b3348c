#!/usr/bin/env bash
# check_macros.sh COMPILER INCLUDE...: the headers in the folders INCLUDE define no macro. What they
# include from elsewhere is on both sides, so that only their own macros make a difference.
set -euo pipefail
compiler=$1
folders=("${@:2}")
mapfile -t headers < <(find "${folders[@]}" -name '*.h')

macros() {
    "$compiler" -std=c++14 -dM -E "${folders[@]/#/-I}" -x c++ - | sort
}

of_others() {
    grep -h '^ *# *include *<' "${headers[@]}" | sort -u
}

of_all() {
    of_others
    local header
    for header in "${headers[@]}"; do
        echo "#include \"$(basename "$header")\""
    done
}

before=$(of_others | macros)
after=$(of_all | macros)
diff --label before --label after --unified=0 <(echo "$before") <(echo "$after")
