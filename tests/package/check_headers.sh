#!/usr/bin/env bash
# check_headers.sh COMPILER INCLUDE: each header in the folder INCLUDE compiles by itself, without a
# warning, in C++14 and in C++20.
set -euo pipefail
compiler=$1 include=$2

for header in "$include"/*.h; do
    for standard in 14 20; do
        echo "$(basename "$header") in C++$standard"
        echo "#include <$(basename "$header")>" |
            "$compiler" "-std=c++$standard" -fsyntax-only -Wall -Wextra -Wconversion -Wshadow \
                -Wpedantic -Werror "-I$include" -x c++ -
    done
done
