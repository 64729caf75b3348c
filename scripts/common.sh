# shellcheck shell=bash
# Shared by run, test and .ci/run: what they need is installed, and what they build is up to date.
# Whatever is said here goes to standard error; standard output is for results.

# A compiler cache recognises what was compiled with a precompiled header only if it is not particular
# about dates.
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
# Every source is compiled by its absolute path. The folder that the compiler is started in differs
# between builds with the same options, and is only noted in the debug information.
export CCACHE_NOHASHDIR=1

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

# .ci/run passes on where progress is shown while a stage's own output is kept back.
say() {
    echo "$*" >&2
    [[ -z ${VORTAN_PROGRESS_FD:-} ]] || echo "    $*" >&"$VORTAN_PROGRESS_FD"
}

fail() {
    say "$*"
    exit 1
}

# in_one_piece COMMAND...: what it says is said once it has ended, because others run at the same time.
# A function must not leave it to `set -e` to end it.
in_one_piece() {
    local said status=0
    said=$(VORTAN_PROGRESS_FD='' && "$@" 2>&1) || status=$?
    [[ -z $said ]] || say "$said"
    return $status
}

# wait_for PID...: fails if one of them did.
wait_for() {
    local pid status=0
    for pid in "$@"; do
        wait "$pid" || status=1
    done
    return $status
}

# require_count NAME VALUE: ends the script unless the value is an integer above 0.
require_count() {
    [[ $2 =~ ^[1-9][0-9]*$ ]] || fail "$1 must be an integer above 0, not \"$2\"."
}

# require_no_arguments ARGUMENTS...: for a script that takes none.
require_no_arguments() {
    (($# == 0)) || fail "${0##*/} takes no arguments, but got: $*"
}

# The packages of Debian 12 for each purpose.
packages_for() {
    local build=(
        g++ cmake ninja-build pkg-config
        libboost-dev libcli11-dev libcurl4-openssl-dev libssl-dev libsystemd-dev nlohmann-json3-dev
        ca-certificates # libcurl only recommends them, and refuses every https: URL without
    )
    case $1 in
    build) echo "${build[@]}" ;;
    demonstration) echo "${build[@]}" python3 ;;
    test)
        echo "${build[@]}" ccache libglib2.0-dev libgtest-dev libgmock-dev \
            python3 nginx libnginx-mod-http-brotli-filter gunicorn python3-httpbin \
            python3-pyftpdlib openssl curl libcurl3-gnutls zsh
        ;;
    clang) echo ccache clang-14 libbenchmark-dev libclang-rt-14-dev lld-14 llvm-14 ;;
    armhf) echo "${build[@]}" ccache g++-arm-linux-gnueabihf qemu-user-static ;;
    soak | pacing) echo gnuplot-nox ;;
    peers)
        echo gnuplot-nox libaria2-0-dev libboost-dev libcpp-httplib-dev libcpprest-dev \
            libcurlpp-dev libpoco-dev libssl-dev
        ;;
    abi) echo abigail-tools python3 ;;
    reference) echo doxygen graphviz libxml2-utils mandoc python3 ;;
    schedules) echo binutils patch ;;
    packages) echo git dpkg-dev rpm lintian man-db mandoc ;;
    device) echo git debugedit elfutils rpm ;;
    footprint) echo binutils ca-certificates valgrind ;;
    static-checks)
        echo black clang-14 clang-format-14 clang-tidy-14 flake8 git libclang-14-dev llvm-14-dev shellcheck
        ;;
    esac
}

# The programs that each purpose cannot do without.
programs_for() {
    case $1 in
    build) echo g++ cmake ninja pkg-config ;;
    demonstration | test) echo g++ cmake ninja pkg-config python3 ;;
    clang) echo clang++-14 ;;
    armhf) echo arm-linux-gnueabihf-g++ qemu-arm-static dpkg-deb apt-get ;;
    soak | pacing | peers) echo gnuplot ;;
    abi) echo abidw c++filt python3 ;;
    reference) echo doxygen dot xmllint ;;
    schedules) echo addr2line nm patch ;;
    packages) echo git dpkg-deb rpmbuild lintian man mandoc ;;
    device) echo git eu-strip find-debuginfo rpmbuild ;;
    footprint) echo readelf valgrind ;;
    static-checks) echo black clang++-14 clang-format-14 clang-tidy-14 flake8 git shellcheck ;;
    esac
}

# require_programs PURPOSE...: ends the script if one of its programs is missing.
require_programs() {
    local purpose program missing=()
    for purpose in "$@"; do
        for program in $(programs_for "$purpose"); do
            command -v "$program" >/dev/null || missing+=("$program")
        done
    done
    ((${#missing[@]} == 0)) || fail "Not installed, but needed here ($*): ${missing[*]}"
}

# Prints those of the packages that are not installed.
missing_packages() {
    local known
    # It complains, and fails, when it is asked about a package that it never heard of.
    known=$(dpkg-query --show --showformat='${Package} ${db:Status-Status}\n' "$@" 2>/dev/null) || true
    comm -23 <(printf '%s\n' "$@" | sort -u) <(sed -n 's/ installed$//p' <<<"$known" | sort -u)
}

# as_root COMMAND...: as it is for root, through sudo for anyone else.
as_root() {
    if ((EUID == 0)); then
        "$@"
    else
        sudo -- "$@"
    fi
}

apt_get() {
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get --yes -q -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@" </dev/null >&2
}

# The package lists are fetched only if they turn out to be missing or out of date.
apt_install() {
    local log=$project/build/apt.log
    mkdir -p "$project/build"
    with_progress Installing "$log" apt_get install --no-install-recommends "$@" && return
    say "Fetching the lists of packages first"
    if with_progress Fetching "$log" apt_get update &&
        with_progress Installing "$log" apt_get install --no-install-recommends "$@"; then
        return
    fi
    [[ ! -s $log ]] || what_matters "$log" >&2
    return 1
}

# Debian starts the servers that it installs. The tests start theirs by themselves, on ports of
# their own: no other server is to come of it.
apt_install_without_servers() {
    local policy=/usr/sbin/policy-rc.d
    if [[ -e $policy ]]; then
        apt_install "$@"
        return
    fi
    (
        trap 'as_root rm -f "$policy"' EXIT
        printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
        as_root chmod +x "$policy"
        apt_install "$@"
    ) || return
    if [[ " $* " == *" nginx "* ]]; then
        say "nginx is there for the tests to start; it does not run by itself, nor at the next boot"
        as_root update-rc.d nginx disable >/dev/null 2>&1 || true
    fi
}

cannot_install() {
    local reason=$1
    shift
    fail "$reason
Please have these packages of Debian 12 installed, then try again:
    apt-get install --no-install-recommends $*
Where packages have other names, install their counterparts and set VORTAN_NO_INSTALL=1."
}

# ensure_packages PURPOSE...: installs what is missing, or says how to, and ends the script. With
# something installed, what was configured without it is configured again.
ensure_packages() {
    if [[ -n ${VORTAN_NO_INSTALL:-} ]]; then
        require_programs "$@"
        return
    fi
    local purpose names wanted=() list missing
    for purpose in "$@"; do
        read -ra names <<<"$(packages_for "$purpose")"
        wanted+=("${names[@]}")
    done
    command -v apt-get dpkg-query >/dev/null ||
        cannot_install "There is no apt-get here to install packages with." "${wanted[@]}"
    list=$(missing_packages "${wanted[@]}")
    [[ -n $list ]] || return 0
    mapfile -t missing <<<"$list"
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        cannot_install "Only root can install packages, and there is no sudo." "${missing[@]}"
    fi
    say "Installing what is missing ($*): ${missing[*]}"
    apt_install_without_servers "${missing[@]}" ||
        cannot_install "apt-get could not install them: is there a network, and room on the disk?" \
            "${missing[@]}"
    rm -f "$project"/build/*/.configured
}

# with_progress WHAT LOG COMMAND...: a person who watches sees what the command prints. Where nobody
# does, it goes to LOG, whose last line is shown every half minute.
with_progress() {
    local what=$1 log=$2 never ticker status=0
    shift 2
    if [[ -t 2 ]]; then
        rm -f "$log"
        "$@" >&2
        return
    fi
    : >"$log"
    exec {never}<> <(:)
    while ! read -r -t "${VORTAN_PROGRESS_SECONDS:-30}" -u "$never"; do
        say "$what: $(grep . "$log" | tail -n 1 | cut -c -90)"
    done &
    ticker=$!
    "$@" >"$log" 2>&1 || status=$?
    kill "$ticker"
    wait "$ticker" 2>/dev/null || true
    exec {never}<&-
    return $status
}

# what_matters LOG: at most ten lines of it that say what went wrong; its end if none is known to.
what_matters() {
    local wrong='[Ee]rror: |ERROR|FAILED|FAIL:|: Failure$|\*\*\*|WRONG|SUMMARY: |runtime error|^E: '
    wrong+='|No space left|ot installed|[Cc]annot|found something|gave up waiting'
    grep -E -A 3 --no-group-separator "$wrong" "$1" | grep . | head -n 10 | cut -c -200 | grep . ||
        grep . "$1" | tail -n 10 | cut -c -200
}

# free_in FOLDER: KiB on its disk.
free_in() {
    df --output=avail "$1" | tail -n 1 | tr -d ' '
}

# fail_with LOG WHAT: ends the script with the lines that matter. A compiler removes what it could not
# finish, so a disk may have been full that no longer is.
fail_with() {
    local folder temporary=${TMPDIR:-/tmp}
    folder=$(dirname "$1")
    if (($(free_in "$folder") < 1024)) || grep -qs 'No space left on device' "$1"; then
        fail "$2: the disk is full." \
            "KiB free in $folder: $(free_in "$folder"), in $temporary: $(free_in "$temporary")"
    fi
    [[ -s $1 ]] || fail "$2"
    what_matters "$1" >&2
    fail "$2 (all of it: $1)"
}

# Where ccache is installed, it is used, unless CMAKE_CXX_COMPILER_LAUNCHER says otherwise.
compiler_launcher() {
    local installed=
    ! command -v ccache >/dev/null || installed=ccache
    echo "${CMAKE_CXX_COMPILER_LAUNCHER-$installed}"
}

# configure PRESET OPTIONS...: unless that was done before, with the same presets, options and compiler
# cache. What was configured otherwise is forgotten.
configure() {
    local preset=$1 folder=$project/build/$1 launcher wanted
    shift
    launcher=$(compiler_launcher)
    wanted="$(cksum <"$project/CMakePresets.json") launcher=$launcher $*"
    [[ ! -e $folder/.configured || $(<"$folder/.configured") != "$wanted" ]] || return 0
    say "Configuring ($preset)"
    mkdir -p "$folder"
    rm -f "$folder/.configured"
    (cd "$project" && cmake --fresh --preset "$preset" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" "$@") \
        >"$folder/configure.log" 2>&1 || fail_with "$folder/configure.log" "CMake stopped"
    echo "$wanted" >"$folder/.configured"
}

# build PRESET TARGETS...: all targets if none is named. Silent when there is nothing to do.
build() {
    local preset=$1 folder=$project/build/$1 log=$project/build/$1/build.log
    shift
    if ninja -C "$folder" -n "$@" | grep -q 'no work to do'; then
        return
    fi
    say "Building ($preset)"
    # Where nobody watches, ten failures are of more use than the first alone; on a full disk, than all.
    local keep_going=()
    [[ -t 2 ]] || keep_going=(-k 10)
    with_progress "Building ($preset)" "$log" ninja -C "$folder" "${keep_going[@]}" "$@" ||
        fail_with "$log" "The build failed"
}

# run_tests PRESET ARGUMENTS...: for ctest.
run_tests() {
    local preset=$1 run=()
    shift
    say "Testing ($preset)"
    use_sanitizer_options
    [[ $preset != tsan ]] || run=(with_fixed_addresses)
    (cd "$project" && "${run[@]}" ctest --preset "$preset" --parallel "$(nproc)" "$@")
}

# use_sanitizer_options: for the programs that are started from here on.
use_sanitizer_options() {
    local symbolizer=/usr/lib/llvm-14/bin/llvm-symbolizer
    export ASAN_OPTIONS=external_symbolizer_path=$symbolizer
    export LSAN_OPTIONS=suppressions=$project/cmake/lsan.supp:print_suppressions=0
    export UBSAN_OPTIONS=print_stacktrace=1:external_symbolizer_path=$symbolizer
    export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:external_symbolizer_path=$symbolizer
    TSAN_OPTIONS+=:suppressions=$project/cmake/tsan.supp
}

# with_fixed_addresses COMMAND...: ThreadSanitizer finds no room for itself if the kernel spreads
# addresses too widely.
with_fixed_addresses() {
    if setarch --addr-no-randomize true 2>/dev/null; then
        setarch --addr-no-randomize "$@"
    else
        "$@"
    fi
}

# write_section FILE NAME: what stands in FILE between the comments "NAME begins" and "NAME ends" is
# replaced by standard input.
write_section() {
    local file=$1 text result
    text=$(cat)
    result=$(text=$text awk -v first="<!-- $2 begins -->" -v last="<!-- $2 ends -->" '
        $0 == last { inside = 0 }
        !inside { print }
        $0 == first { inside = 1; ++found; print ENVIRON["text"] }
        END { exit !(found && !inside) }' "$file") || fail "$file has no section $2"
    printf '%s\n' "$result" >"$file"
}
