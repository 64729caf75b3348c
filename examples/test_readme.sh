#!/usr/bin/env bash
# test_readme.sh README PROGRAM: the C++ in README is a piece of PROGRAM, apart from its indentation.
set -euo pipefail
readme=$1 program=$2

without_indentation() {
    sed 's/^ *//'
}

# shellcheck disable=SC2016  # the backquotes are Markdown's
shown=$(sed -n '/^```cpp$/,/^```$/p' "$readme" | sed '1d;$d' | without_indentation)
compiled=$(without_indentation <"$program")

[[ -n $shown ]] || { echo "$readme shows no C++"; exit 1; }
[[ $compiled == *"$shown"* ]] || { echo "$readme shows what is not in $program:"; echo "$shown"; exit 1; }
