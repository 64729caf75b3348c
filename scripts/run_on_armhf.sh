#!/usr/bin/env bash
# run_on_armhf.sh SYSROOT PROGRAM ARGUMENTS...: runs a program for 32-bit ARM under emulation.
#
# The program believes itself to be a script beside it that brings it back here: thereby it can run
# itself again, as death tests do, on a machine whose kernel does not know the emulator.
set -euo pipefail
(($# >= 2)) || {
    echo "Name what to run: run_on_armhf.sh SYSROOT PROGRAM ARGUMENTS..." >&2
    exit 1
}
sysroot=$1 program=$(realpath "$2")
launcher=$program.emulated

if [[ ! -x $launcher ]]; then
    # Tests run side by side: what is under the launcher's name is always whole.
    draft=$(mktemp "$launcher.XXXXXX")
    printf '#!/bin/sh\nexec "%s" "%s" "%s" "$@"\n' "$(realpath "$0")" "$sysroot" "$program" >"$draft"
    chmod 755 "$draft"
    mv "$draft" "$launcher"
fi
exec qemu-arm-static -L "$sysroot" -0 "$launcher" "$program" "${@:3}"
