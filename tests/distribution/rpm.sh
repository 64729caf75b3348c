#!/usr/bin/env bash
# rpm.sh PACKAGES native|armhf LIBRARIES: the RPMs in the folder PACKAGES are installed into an empty root,
# used there, and removed. This machine's packages are not touched.
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
    printf '%s\n' 'rtld(GNU_HASH)' /bin/sh /sbin/ldconfig /usr/bin/pkg-config boost-devel
}

# install_record NAME: a package that provides what standard input lists, and has no files.
install_record() {
    {
        printf '%s: %s\n' Name "$1" Version 1 Release 1 Summary "$1" License none
        sort -u | sed 's/^/Provides: /'
        printf '%s\n' %description "$1" %files
    } >"$work/$1.spec"
    rpmbuild -bb --target "$architecture" --define "_topdir $work/$1" "$work/$1.spec" \
        >"$work/log" 2>&1 || wrong "cannot make a package of the $1: $(<"$work/log")"
    install_files --justdb "$work/$1"/RPMS/*/"$1"-1-1.*.rpm ||
        wrong "cannot install the $1: $(<"$work/log")"
}

# try_to_install NAME...: fails where a package lacks what it requires.
try_to_install() {
    local files=() name
    for name in "$@"; do
        files+=("$packages/${name}"-[0-9]*."$architecture.rpm")
    done
    install_files "${files[@]}"
}

install_packages() {
    try_to_install "$@" || wrong "cannot install $*: $(<"$work/log")"
}

# These folders belong to the distribution, and stay.
mkdir -p "$root/var/lib/rpm" "$root"/usr/{bin,include,lib,share/{doc,licenses,man/man1,bash-completion/completions,zsh/site-functions}} \
    "$libraries"/{cmake,pkgconfig}
before=$(installed_files)

manage --initdb || wrong "cannot make a database: $(<"$work/log")"
provided_by_the_system | install_record system
ours=(libvortantransferagent0 libvortantransferkit0 libvortantransferagent-devel vortan-transfer)
[[ ! -e $(echo "$packages"/vortan-standins-*.rpm) ]] || ours+=(vortan-standins)

try_to_install libvortantransferagent0 libvortantransferkit0 vortan-transfer &&
    wrong "the library is installed without a log and a curl wrapper"
for soname in libdlog.so.0 libQXCurl.so.0; do
    grep -qF "$soname" "$work/log" || wrong "$soname is not named: $(<"$work/log")"
done
step "Without the stand-ins or a device's libraries, the library and the program are not installed"
printf '%s\n' "$device_libraries"/*.so.* | /usr/lib/rpm/elfdeps --provides | install_record device
install_packages libvortantransferagent0 libvortantransferkit0 vortan-transfer
check_program_on_device "$libraries"

if [[ " ${ours[*]} " == *" vortan-standins "* ]]; then
    install_packages vortan-standins
    manage --erase device || wrong "the stand-ins do not replace the device: $(<"$work/log")"
    check_program "$libraries"
    step "With the stand-ins, the program transfers a file"
    install_packages libvortantransferagent-devel
    check_client "$libraries"
else
    install_packages libvortantransferagent-devel
fi

mkdir "$work/symbols"
(cd "$work/symbols" && cmake -E tar xf "$packages"/vortantransferagent-debuginfo-*."$architecture.rpm")
check_backtrace "$libraries" "$work/symbols/usr/lib/debug"

if manage --erase --noscripts libvortantransferagent0; then
    wrong "the library can be removed from under the packages that need it"
fi
step "The library stays while a package needs it"

manage --erase --noscripts "${ours[@]}" || wrong "cannot remove the packages: $(<"$work/log")"
check_nothing_is_left "$before"
