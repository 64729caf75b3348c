#!/usr/bin/env bash
# find_mistakes.sh PRESET [NAME...]: each mistake NAME.patch in this folder, or all of them, is put into a
# copy of its source, and must be found by what its second line names: the compiler, or a test of the
# build of PRESET. These are mistakes that only 32 bits show: on 64 bits each compiles without a warning.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.sh"
folder=$project/tests/word_size
preset=$1 built=$project/build/$1
shift

# compile_command SOURCE: how the object is made that the libraries and most tests are linked from.
compile_command() {
    ninja -C "$built" -t commands "$(object_of "$1")" | tail -n 1
}

# object_of SOURCE
object_of() {
    local part=${1%%/*}
    local -A targets=([TransferAgent]=vortantransferagent_objects [TransferKit]=vortantransferkit_objects)
    echo "$part/CMakeFiles/${targets[$part]}.dir/${1#*/}.o"
}

# with_mistake NAME: prints what the compiler or the test says, and fails where it does.
with_mistake() {
    local name=$1 patch=$folder/$1.patch source object copy command test
    source=$(sed -n 's,^+++ b/,,p' "$patch")
    test=$(sed -n 's/^caught by: //p' "$patch")
    object=$(object_of "$source")
    copy=$built/mistakes/$name
    rm -rf "$copy"
    mkdir -p "$copy"
    patch --quiet --output "$copy/${source##*/}" "$project/$source" "$patch" ||
        fail "WRONG: $name.patch does not fit $source"
    command=$(compile_command "$source")
    command=${command//"$object"/"$copy/object.o"}
    command=${command//"-c $project/$source"/"-iquote $project/${source%/*} -c $copy/${source##*/}"}
    (cd "$built" && eval "$command" 2>&1) || return 1
    [[ $test != "the compiler" ]] || return 0
    command=$(ninja -C "$built" -t commands "${test%% *}" | tail -n 1)
    command=${command//"$object"/"$copy/object.o"}
    command=$(sed -E "s,-o (tests/[^ ]*/)?${test%% *}( |\$),-o $copy/test ," <<<"$command")
    (cd "$built" && eval "$command" 2>&1) || fail "WRONG: the test does not link with $name"
    # shellcheck disable=SC2046,SC2086  # options of the test are words
    timeout 120 $(emulator) "$copy/test" $([[ $test != *' '* ]] || echo ${test#* }) 2>&1
}

emulator() {
    [[ $preset != armhf ]] || echo "$project/scripts/run_on_armhf.sh" "$project/build/armhf-sysroot"
}

names=("$@")
(($# > 0)) || mapfile -t names < <(cd "$folder" && printf '%s\n' *.patch | sed 's/[.]patch$//')
status=0
for name in "${names[@]}"; do
    if said=$(with_mistake "$name"); then
        say "   WRONG: $name is not found by $(sed -n 's/^caught by: //p' "$folder/$name.patch"): $(tail -n 5 <<<"$said")"
        status=1
    elif ! grep -qE '^\[  FAILED  \]|error: (conversion|static assertion failed)' <<<"$said"; then
        say "   WRONG: $name is found for another reason: $(tail -n 5 <<<"$said")"
        status=1
    else
        say "   $name is found by $(sed -n 's/^caught by: //p' "$folder/$name.patch")"
    fi
done
exit $status
