#!/usr/bin/env bash
# armhf_sysroot.sh FOLDER: lays out Debian 12's libraries for 32-bit ARM in FOLDER, for the cross
# compiler to link with, for the emulator to run with, and for what packages depend on. The packages
# and the package manager's settings of this machine are not touched, and it does not matter which
# versions it has installed.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

packages=(
    libc6-dev libgcc-s1 libstdc++6
    libboost-dev libcli11-dev libcurl4-openssl-dev libssl-dev libsystemd-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev
)
(($# == 1)) || fail "Name the folder for the libraries: armhf_sysroot.sh FOLDER"
sysroot=$1
private=$sysroot.apt

# The address of Debian 12's archive, as this machine is set up to reach it.
archive() {
    # shellcheck disable=SC2016  # it is apt-get that fills it in
    apt-get indextargets --format '$(REPO_URI)' \
        'Created-By: Packages' 'Origin: Debian' 'Codename: bookworm' 'Component: main' |
        head -n 1
}

# A package manager that knows 32-bit ARM only, and of no installed package.
write_private_settings() {
    local address
    address=$(archive)
    [[ -n $address ]] || { apt_get update && address=$(archive); }
    [[ -n $address ]] || fail "This machine's package manager does not know Debian 12's archive."
    mkdir -p "$private"/{lists/partial,archives/partial}
    : >"$private/status"
    local keys=/usr/share/keyrings/debian-archive-keyring.gpg
    echo "deb [arch=armhf signed-by=$keys] $address bookworm main" >"$private/sources.list"
    cat >"$private/apt.conf" <<END
APT::Architecture "armhf";
#clear APT::Architectures;
APT::Architectures { "armhf"; };
APT::Sandbox::User "root";
Dir::State "$private";
Dir::State::status "$private/status";
Dir::Cache "$private";
Dir::Etc::sourcelist "$private/sources.list";
Dir::Etc::sourceparts "/dev/null";
END
}

download() {
    export APT_CONFIG=$private/apt.conf
    apt-get --quiet -o APT::Update::Error-Mode=any update || return
    apt-get --quiet --yes --no-install-recommends --download-only install "${packages[@]}" || return
    unset APT_CONFIG
}

# What package managers ask: which packages are there (var/lib/dpkg/status), and which of them in
# which version to depend on for a library (DEBIAN, where dpkg-shlibdeps looks for it).
record() {
    local package=$1 kind
    {
        dpkg-deb --field "$package"
        printf 'Status: install ok installed\n\n'
    } >>"$sysroot/var/lib/dpkg/status"
    for kind in shlibs symbols; do
        dpkg-deb --info "$package" $kind >>"$sysroot/DEBIAN/$kind" 2>/dev/null || true
    done
}

unpack() {
    local package link
    mkdir -p "$sysroot/var/lib/dpkg" "$sysroot/DEBIAN"
    for package in "$private"/archives/*.deb; do
        dpkg-deb --extract "$package" "$sysroot"
        record "$package"
    done
    # A link to /lib means the one in the folder.
    find "$sysroot" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
        ln --symbolic --force --relative "$sysroot$(readlink "$link")" "$link"
    done
}

complete=$sysroot/.complete
wanted=$(cksum <"${BASH_SOURCE[0]}")
if [[ "$wanted" != "$(cat "$complete" 2>/dev/null)" ]]; then
    say "Fetching the libraries for 32-bit ARM: ${packages[*]}"
    rm -rf "$sysroot" "$private"
    mkdir -p "$sysroot"
    sysroot=$(realpath "$sysroot") private=$(realpath "$private")
    write_private_settings
    with_progress "Fetching" "$sysroot.log" download || {
        [[ ! -s $sysroot.log ]] || what_matters "$sysroot.log" >&2
        fail "The libraries for 32-bit ARM could not be fetched: is there a network, and room on the disk?"
    }
    unpack
    rm -rf "$private"
    echo "$wanted" >"$complete"
fi
