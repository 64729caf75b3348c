#!/usr/bin/env bash
# check_hardening.sh READELF OBJDUMP PREFIX BUILD: whatever binary is installed in PREFIX has full RELRO,
# no executable stack, and the stack protector; programs can be placed anywhere; no container checks its
# indices. On x86, each claims a shadow stack, and each object that they are linked from has landing places,
# too. What the C library fortifies leaves no trace of its own in a binary, and what keeps large frames from
# passing the stack's guard only where there is a large frame, so the compiler's commands tell.
set -euo pipefail
readelf=$1 objdump=$2 prefix=$3 build=$4
wrong=0

# expect WHAT PATTERN: the description of the binary has a line like that.
expect() {
    local what=$1 pattern=$2
    if ! grep -Eq -- "$pattern" <<<"$description"; then
        echo "  $what: no"
        wrong=1
    fi
}

is_x86() { [[ $("$readelf" --file-header "$1") =~ Machine:.*(X86-64|80386) ]]; }

binaries=0
while IFS= read -r -d '' file; do
    description=$("$readelf" --headers --dynamic --dyn-syms --notes --wide "$file" 2>/dev/null) || continue
    [[ $description == *'Dynamic section'* ]] || continue
    binaries=$((binaries + 1))
    echo "${file#"$prefix"/}"
    expect "placed anywhere" '^ *Type: +DYN'
    expect "RELRO" '^ *GNU_RELRO '
    expect "all symbols bound at start" '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW|\(BIND_NOW\)'
    expect "stack that is not executable" '^ *GNU_STACK .* RW +0x'
    expect "stack protector" '__stack_chk_fail'
    ! is_x86 "$file" || expect "shadow stack" 'x86 feature: .*SHSTK'
    if [[ $description == *__glibcxx_assert_fail* ]]; then
        echo "  containers without checks: no"
        wrong=1
    fi
done < <(find "$prefix" -type f ! -name '*.h' ! -name '*.cmake' ! -name '*.pc' -print0)

objects=0
while IFS= read -r object; do
    objects=$((objects + 1))
    if is_x86 "$object" && [[ $("$readelf" --notes "$object") != *'x86 feature: IBT, SHSTK'* ]]; then
        echo "${object#"$build"/} has no landing places, or cannot do with a shadow stack."
        wrong=1
    fi
done < <(find "$build"/{TransferAgent,TransferKit,platform,tools} -name '*.o')

# The agent has one large frame, of the generator of random numbers. Each of its pages is touched.
agent=$(find "$prefix" -name 'libvortantransferagent.so.*.*')
touch_of_page='(or|mov)[lq][[:space:]]+[$]0(x0)?, ?[(]%[er]sp[)]'  # as GNU and LLVM write it
if is_x86 "$agent" && [[ ! $("$objdump" --disassemble --no-show-raw-insn "$agent") =~ $touch_of_page ]]; then
    echo "The agent touches no page of a large frame."
    wrong=1
fi

compiled=$(grep '"command":' "$build/compile_commands.json")
for option in -D_FORTIFY_SOURCE=2 -fstack-clash-protection; do
    if grep -Fv -- " $option" <<<"$compiled"; then
        echo "These are compiled without $option."
        wrong=1
    fi
done
((binaries > 0 && objects > 0 && wrong == 0))
