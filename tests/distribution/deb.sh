#!/usr/bin/env bash
# deb.sh PACKAGES native|armhf: the Debian packages in the folder PACKAGES are installed into an empty
# root, used there, and removed. This machine's packages are not touched.
set -euo pipefail
# shellcheck source=tests/distribution/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
packages=$(realpath "$1")

case $machine in
native)
    architecture=$(dpkg --print-architecture)
    libraries=$root/usr/lib/$(gcc -print-multiarch)
    base=/var/lib/dpkg/status
    ;;
armhf)
    architecture=armhf
    libraries=$root/usr/lib/arm-linux-gnueabihf
    base=$sysroot/var/lib/dpkg/status
    ;;
esac
say "Debian packages for $architecture"

# What packages may depend on counts as installed in the root; ours, if this machine has them, do not.
admin=$root/var/lib/dpkg
mkdir -p "$admin"/{info,updates,triggers}
echo 1 >"$admin/info/format"
printf '%s\n' "$(dpkg --print-architecture)" "$architecture" | uniq >"$admin/arch"
awk -v RS= -v ORS='\n\n' '!/^Package: (lib)?vortan/' "$base" >"$admin/status"
dpkg-query --admindir="$admin" --show --showformat='${binary:Package}\n' |
    while read -r name; do : >"$admin/info/$name.list"; done

manage() {
    dpkg --root="$root" --log="$work/dpkg.log" --force-not-root --force-script-chrootless \
        --path-include='*' "$@" >"$work/log" 2>&1
}

install_packages() {
    local files=() name
    for name in "$@"; do
        files+=("$packages/${name}"_*_"$architecture.deb")
    done
    manage --install "${files[@]}" || wrong "cannot install $*: $(<"$work/log")"
}

before=$(installed_files)

# A device has libraries of its own in the stand-ins' place.
install_packages libvortantransferagent0 libvortantransferkit0 vortan-transfer
step "Without the stand-ins, the libraries and the program are installed"
dpkg-deb --extract "$packages"/vortan-standins_*_"$architecture.deb" "$work/device"
check_program "$libraries:$work/device${libraries#"$root"}"
step "With a device's own libraries, the program transfers a file"

install_packages vortan-standins libvortantransferagent-dev
check_program "$libraries"
step "With the stand-ins, the program transfers a file"
check_client "$libraries"

if manage --remove libvortantransferagent0:"$architecture"; then
    wrong "the library can be removed from under the packages that need it"
fi
step "The library stays while a package needs it"

manage --purge {libvortantransferagent0,libvortantransferkit0,libvortantransferagent-dev,vortan-transfer,vortan-standins}:"$architecture" ||
    wrong "cannot remove the packages: $(<"$work/log")"
check_nothing_is_left "$before"
