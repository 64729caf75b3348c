#!/usr/bin/env bash
# check_headers.sh COMPILER INCLUDE [OTHER...]: each header in the folder INCLUDE compiles by itself,
# without a warning, in C++14 and in C++20. It may include headers from the folders OTHER.
set -euo pipefail
compiler=$1 include=$2
folders=("${@:2}")

for header in "$include"/*.h; do
    for standard in 14 20; do
        echo "$(basename "$header") in C++$standard"
        echo "#include <$(basename "$header")>" |
            "$compiler" "-std=c++$standard" -fsyntax-only -Wall -Wextra -Wconversion -Wshadow \
                -Wpedantic -Werror "${folders[@]/#/-I}" -x c++ -
    done
done
