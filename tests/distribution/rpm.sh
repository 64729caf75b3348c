#!/usr/bin/env bash
# rpm.sh PACKAGES native|armhf: the RPMs in the folder PACKAGES are installed into an empty root, used
# there, and removed. This machine's packages are not touched.
set -euo pipefail
# rpm changes its root, which takes a root.
if ((EUID != 0)); then
    exec unshare --map-root-user "$0" "$@"
fi
# shellcheck source=tests/distribution/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
packages=$(realpath "$1")

case $machine in
native)
    architecture=$(uname -m)
    libraries=$root/usr/lib64
    base=/
    triplet=$(gcc -print-multiarch)
    ;;
armhf)
    architecture=armv7hl
    libraries=$root/usr/lib
    base=$sysroot
    triplet=arm-linux-gnueabihf
    ;;
esac
say "RPMs for $architecture"

manage() {
    rpm --root="$root" --dbpath=/var/lib/rpm "$@" >"$work/log" 2>&1
}

# There is no shell in the root for the packages' scripts.
install_files() {
    manage --install --ignorearch --noscripts "$@"
}

# What packages may depend on, in the words of rpm's own reading of the system's libraries.
provided_by_the_system() {
    find "$base"/{,usr/}lib/"$triplet" -maxdepth 1 -print |
        grep -E '/(ld-linux.*|lib(c|m|gcc_s|stdc[+][+]|curl|ssl|crypto|systemd))[.]so[.][0-9]+$' |
        xargs realpath | sort -u | /usr/lib/rpm/elfdeps --provides
    printf '%s\n' 'rtld(GNU_HASH)' /bin/sh /usr/bin/pkg-config boost-devel
}

make_system_package() {
    {
        printf '%s: %s\n' Name system Version 1 Release 1 Summary system License none
        provided_by_the_system | sort -u | sed 's/^/Provides: /'
        printf '%s\n' %description system %files
    } >"$work/system.spec"
    rpmbuild -bb --target "$architecture" --define "_topdir $work/system" "$work/system.spec" \
        >"$work/log" 2>&1 || wrong "cannot make a package of the system: $(<"$work/log")"
}

install_packages() {
    local files=() name
    for name in "$@"; do
        files+=("$packages/${name}"-[0-9]*."$architecture.rpm")
    done
    install_files "${files[@]}" || wrong "cannot install $*: $(<"$work/log")"
}

# These folders belong to the distribution, and stay.
mkdir -p "$root/var/lib/rpm" "$root"/usr/{bin,include,share/{doc,man/man1,bash-completion/completions,zsh/site-functions}} \
    "$libraries"/{cmake,pkgconfig}
before=$(installed_files)

manage --initdb || wrong "cannot make a database: $(<"$work/log")"
make_system_package
install_files --justdb "$work"/system/RPMS/*/system-1-1.*.rpm ||
    wrong "cannot install the system: $(<"$work/log")"

# A device has libraries of its own in the stand-ins' place.
install_packages libvortantransferagent0 libvortantransferkit0 vortan-transfer
step "Without the stand-ins, the libraries and the program are installed"
mkdir "$work/device"
(cd "$work/device" && cmake -E tar xf "$packages"/vortan-standins-*."$architecture.rpm")
check_program "$libraries:$work/device${libraries#"$root"}"
step "With a device's own libraries, the program transfers a file"

install_packages vortan-standins libvortantransferagent-devel
check_program "$libraries"
step "With the stand-ins, the program transfers a file"
check_client "$libraries"

if manage --erase --noscripts libvortantransferagent0; then
    wrong "the library can be removed from under the packages that need it"
fi
step "The library stays while a package needs it"

manage --erase --noscripts libvortantransferagent0 libvortantransferkit0 libvortantransferagent-devel \
    vortan-transfer vortan-standins ||
    wrong "cannot remove the packages: $(<"$work/log")"
check_nothing_is_left "$before"
