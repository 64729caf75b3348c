#!/usr/bin/env bash
# run_program.sh PROGRAM WORK: the installed client program transfers a file with nothing in the
# environment to help.
set -euo pipefail
program=$1 work=$2

rm -rf "$work"
mkdir -p "$work"
head -c 1234567 /dev/urandom >"$work/source"
env -i "$program" -q -o "$work/copy" "$work/source"
cmp "$work/source" "$work/copy"
