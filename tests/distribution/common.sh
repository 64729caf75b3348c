# shellcheck shell=bash
# Shared by the tests of the packages. Each gets the folder with the packages, the machine that they are
# for, which is this one (native) or 32-bit ARM (armhf), which is emulated, and a folder with libraries
# as that machine's device has them (tests/device/make_libraries.sh).

# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/common.sh"
tests=$project/tests
sysroot=$project/build/armhf-sysroot

machine=$2
device_libraries=$(realpath "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
mkdir "$root"
# Users other than root may lack the folder where a package manager looks for ldconfig.
export PATH=$PATH:/usr/sbin:/sbin

step() {
    say "   $*"
}

wrong() {
    fail "   WRONG: $*"
}

# run_with LIBRARIES: sets `run` to what runs a program that finds them in that folder.
run_with() {
    run=(env -i "LD_LIBRARY_PATH=$1")
    if [[ $machine == armhf ]]; then
        run+=("PATH=$PATH" "$project/scripts/run_on_armhf.sh" "$sysroot")
    fi
}

# check_program LIBRARIES: the installed program runs.
check_program() {
    local run
    run_with "$1"
    "$tests/package/run_program.sh" "$root/usr/bin/vortan-transfer" "$work/program" "${run[@]}"
    rm -f "$root/usr/bin/vortan-transfer.emulated"
}

# check_program_on_device LIBRARIES: the installed program runs with the device's libraries.
check_program_on_device() {
    local run program=$root/usr/bin/vortan-transfer
    check_program "$1:$device_libraries"
    run_with "$1:$device_libraries"
    "${run[@]}" "$program" --verbose -o "$work/program/copy" "$work/program/source" 2>"$work/log" ||
        wrong "$(<"$work/log")"
    rm -f "$program.emulated"
    grep -q '^device 3 VORTAN FileReader.cpp: ' "$work/log" ||
        wrong "the device's log got no line: $(<"$work/log")"
    step "With a device's own libraries, the program transfers a file and logs"
}

# check_client LIBRARIES: a client is built with the installed files only, and runs.
check_client() {
    local run tool kind compiler=g++
    run_with "$1"
    if [[ $machine == armhf ]]; then
        compiler=arm-linux-gnueabihf-g++
        export CMAKE_TOOLCHAIN_FILE=$project/cmake/armhf.cmake CXXFLAGS=--sysroot=$sysroot
        # A cross linker does not look beside the library for what the library needs.
        export LDFLAGS=-Wl,-rpath-link,$1
    fi
    local -A modules=([client]=vortantransferagent [kit_client]=vortantransferkit)
    for kind in client kit_client; do
        for tool in cmake pkg-config; do
            "$tests/package/build_client.sh" "$tool" "$compiler" 17 "$1" "${modules[$kind]}" \
                "$tests/package/$kind" "$work/$kind-$tool" "${run[@]}" >"$work/log" 2>&1 ||
                wrong "${modules[$kind]} with $tool: $(<"$work/log")"
            step "A client that finds ${modules[$kind]} through $tool transfers a file"
        done
    done
}

# check_backtrace LIBRARIES DEBUG: a stripped client prints a backtrace when it crashes, and the debug
# symbols in the folder DEBUG tell which functions and lines it went through.
check_backtrace() {
    local run crash=$work/crash tool='' flags=() expected id
    [[ $machine == native ]] || tool=arm-linux-gnueabihf- flags=(--sysroot="$sysroot")
    run_with "$1:$device_libraries"
    "${tool}g++" -std=c++17 -g "${flags[@]}" "$tests/device/crash.cpp" -o "$crash" \
        -I"$root/usr/include/vortantransferagent" "$1/libvortantransferagent.so.0" -pthread \
        -Wl,--build-id "-Wl,-rpath-link,$device_libraries" || wrong "cannot build a client"
    id=$("${tool}readelf" --notes "$crash" | sed -n 's/.*Build ID: //p')
    mkdir -p "$2/.build-id/${id:0:2}"
    "${tool}objcopy" --only-keep-debug "$crash" "$2/.build-id/${id:0:2}/${id:2}.debug"
    "${tool}strip" "$crash"
    (ulimit -c 0 && ! "${run[@]}" "$crash" /etc/hostname 2>"$work/backtrace") 2>/dev/null ||
        wrong "the client does not crash"
    # The emulator calls a program by its launcher's name.
    sed -i 's/[.]emulated(/(/' "$work/backtrace"
    "$project/scripts/symbolise.py" --debug "$2" <"$work/backtrace" >"$work/log"
    for expected in 'Crash at .*/crash.cpp:14' \
        'm_PerformDataTransfer(.* at .*TransferAgent/Src/AsyncTransferAgentManager.cpp:[1-9]'; do
        grep -q "$expected" "$work/log" || wrong "no frame is: $expected: $(<"$work/log")"
    done
    step "A backtrace of a stripped client gets its functions and lines"
}

# Names what is in the root beside the package manager's own records.
installed_files() {
    (cd "$root" && find . -mindepth 1 -path ./var -prune -o -print | LC_ALL=C sort)
}

# check_nothing_is_left BEFORE: the root is as it was when installed_files said BEFORE.
check_nothing_is_left() {
    local after
    after=$(installed_files)
    diff --label before --label after <(echo "$1") <(echo "$after") >&2 ||
        wrong "the packages leave something behind, or take it with them"
    step "Removed, the packages leave nothing behind"
}
