#!/usr/bin/env bash
# check_hardening.sh READELF PREFIX COMPILE_COMMANDS: whatever binary is installed in PREFIX has
# full RELRO, no executable stack, and the stack protector; programs can be placed anywhere. What
# the C library fortifies leaves no trace of its own in a binary, so the compiler's commands tell.
set -euo pipefail
readelf=$1 prefix=$2 commands=$3
wrong=0

# expect WHAT PATTERN: the description of the binary has a line like that.
expect() {
    local what=$1 pattern=$2
    if ! grep -Eq -- "$pattern" <<<"$description"; then
        echo "  $what: no"
        wrong=1
    fi
}

binaries=0
while IFS= read -r -d '' file; do
    description=$("$readelf" --headers --dynamic --dyn-syms --wide "$file" 2>/dev/null) || continue
    [[ $description == *'Dynamic section'* ]] || continue
    binaries=$((binaries + 1))
    echo "${file#"$prefix"/}"
    expect "placed anywhere" '^ *Type: +DYN'
    expect "RELRO" '^ *GNU_RELRO '
    expect "all symbols bound at start" '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW|\(BIND_NOW\)'
    expect "stack that is not executable" '^ *GNU_STACK .* RW +0x'
    expect "stack protector" '__stack_chk_fail'
done < <(find "$prefix" -type f ! -name '*.h' ! -name '*.cmake' ! -name '*.pc' -print0)

compiled=$(grep '"command":' "$commands")
if grep -Fv -- '-D_FORTIFY_SOURCE=2' <<<"$compiled"; then
    echo "These are compiled without _FORTIFY_SOURCE."
    wrong=1
fi
((binaries > 0 && wrong == 0))
