#!/usr/bin/env bash
# run_program.sh PROGRAM WORK [RUN...]: the installed client program transfers a file. RUN is what runs
# it; otherwise there is nothing in the environment to help.
set -euo pipefail
program=$1 work=$2
run=("${@:3}")
((${#run[@]} > 0)) || run=(env -i)

rm -rf "$work"
mkdir -p "$work"
head -c 1234567 /dev/urandom >"$work/source"
"${run[@]}" "$program" -q -o "$work/copy" "$work/source"
cmp "$work/source" "$work/copy"
