# shellcheck shell=bash
# Shared by run, test and .ci/run: what they need is installed, and what they build is up to date.
# Whatever is said here goes to standard error; standard output is for results.

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

say() {
    echo "$*" >&2
}

fail() {
    say "$*"
    exit 1
}

# The packages of Debian 12 for each purpose.
packages_for() {
    local build=(
        g++ cmake ninja-build pkg-config
        libboost-dev libcli11-dev libcurl4-openssl-dev libsystemd-dev nlohmann-json3-dev
        ca-certificates # libcurl only recommends them, and refuses every https: URL without
    )
    case $1 in
    build) echo "${build[@]}" ;;
    demonstration) echo "${build[@]}" python3 ;;
    test)
        echo "${build[@]}" libgtest-dev libgmock-dev \
            python3 nginx libnginx-mod-http-brotli-filter gunicorn python3-httpbin python3-pyftpdlib openssl curl zsh
        ;;
    clang) echo clang-14 libclang-rt-14-dev llvm-14 libbenchmark-dev ;;
    armhf) echo "${build[@]}" g++-arm-linux-gnueabihf qemu-user-static ;;
    soak | pacing) echo gnuplot-nox ;;
    peers)
        echo gnuplot-nox libaria2-0-dev libboost-dev libcpp-httplib-dev libcpprest-dev \
            libcurlpp-dev libpoco-dev libssl-dev
        ;;
    abi) echo abigail-tools python3 ;;
    reference) echo doxygen graphviz libxml2-utils mandoc python3 ;;
    model) echo gcc libc6-dev spin ;;
    packages) echo git dpkg-dev rpm lintian man-db mandoc ;;
    footprint) echo binutils ca-certificates valgrind ;;
    static-checks) echo git clang-14 clang-format-14 clang-tidy-14 shellcheck ;;
    esac
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
        apt-get --yes -qq -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@" </dev/null >&2
}

# The package lists are fetched only if they turn out to be missing or out of date.
apt_install() {
    apt_get install --no-install-recommends "$@" 2>/dev/null && return
    say "Fetching the lists of packages first"
    apt_get update
    apt_get install --no-install-recommends "$@"
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
    [[ -z ${VORTAN_NO_INSTALL:-} ]] || return 0
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
        cannot_install "apt-get could not install them: is there a network?" "${missing[@]}"
    rm -f "$project"/build/*/.configured
}

use_ccache_if_present() {
    if command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
    fi
}

# quietly COMMAND...: what it says is shown to a person who watches, and when it fails.
quietly() {
    if [[ -t 2 ]]; then
        "$@" >&2
        return
    fi
    local said
    said=$("$@" 2>&1) || {
        say "$said"
        return 1
    }
}

# configure PRESET OPTIONS...: unless that was done before, with the same presets and options.
configure() {
    local preset=$1 stamp=$project/build/$1/.configured wanted
    shift
    wanted="$(cksum <"$project/CMakePresets.json") $*"
    [[ ! -e $stamp || $(<"$stamp") != "$wanted" ]] || return 0
    use_ccache_if_present
    say "Configuring ($preset)"
    (cd "$project" && quietly cmake --preset "$preset" "$@")
    echo "$wanted" >"$stamp"
}

# build PRESET TARGETS...: all targets if none is named. Silent when there is nothing to do.
build() {
    local folder=$project/build/$1
    shift
    if ninja -C "$folder" -n "$@" | grep -q 'no work to do'; then
        return
    fi
    say "Building"
    # Where nobody watches, all that failed is of more use than where the build is.
    [[ -t 2 ]] || set -- --quiet -k 0 "$@"
    ninja -C "$folder" "$@" >&2
}

# run_tests PRESET ARGUMENTS...: for ctest.
run_tests() {
    local preset=$1
    shift
    (cd "$project" && ctest --preset "$preset" --parallel "$(nproc)" "$@")
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
