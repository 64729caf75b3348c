#!/usr/bin/env bash
# deb.sh PACKAGES native|armhf LIBRARIES: the Debian packages in the folder PACKAGES are installed into an
# empty root, used there, and removed. This machine's packages are not touched.
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

# try_to_install NAME...: fails where a package lacks what it depends on.
try_to_install() {
    local files=() name
    for name in "$@"; do
        files+=("$packages/${name}"_*_"$architecture.deb")
    done
    manage --install "${files[@]}"
}

install_packages() {
    try_to_install "$@" || wrong "cannot install $*: $(<"$work/log")"
}

# The package by which a device's image says that it has the libraries.
install_device_package() {
    mkdir -p "$work/vortan-device/DEBIAN"
    printf '%s: %s\n' Package vortan-device Version 1 Architecture "$architecture" Maintainer nobody \
        Description libraries Provides vortan-device-libraries >"$work/vortan-device/DEBIAN/control"
    dpkg-deb --root-owner-group --build "$work/vortan-device" "$work/vortan-device.deb" >/dev/null
    manage --install "$work/vortan-device.deb" || wrong "cannot install a device: $(<"$work/log")"
}

before=$(installed_files)
ours=(libvortantransferagent0 libvortantransferkit0 libvortantransferagent-dev vortan-transfer)
[[ ! -e $(echo "$packages"/vortan-standins_*) ]] || ours+=(vortan-standins)

try_to_install libvortantransferagent0 libvortantransferkit0 vortan-transfer &&
    wrong "the library is configured without a log and a curl wrapper"
grep -q 'depends on .*vortan-device-libraries' "$work/log" || wrong "$(<"$work/log")"
for name in libvortantransferagent0 libvortantransferkit0 vortan-transfer; do
    # shellcheck disable=SC2016  # it is dpkg-query that fills it in
    [[ $(dpkg-query --admindir="$admin" --show --showformat='${db:Status-Status}' \
        "$name:$architecture") == unpacked ]] || wrong "$name is not merely unpacked"
done
step "Without the stand-ins or a device's libraries, the library and the program are not configured"
install_device_package
manage --configure --pending || wrong "not configured on a device: $(<"$work/log")"
check_program_on_device "$libraries"

if [[ " ${ours[*]} " == *" vortan-standins "* ]]; then
    install_packages vortan-standins
    manage --purge vortan-device:"$architecture" || wrong "the stand-ins do not replace the device: $(<"$work/log")"
    check_program "$libraries"
    step "With the stand-ins, the program transfers a file"
    install_packages libvortantransferagent-dev
    check_client "$libraries"
else
    install_packages libvortantransferagent-dev
    ours+=(vortan-device)
fi

dpkg-deb --extract "$packages"/vortan-transfer-agent-dbgsym_*_"$architecture.deb" "$work/symbols"
check_backtrace "$libraries" "$work/symbols/usr/lib/debug"

if manage --remove libvortantransferagent0:"$architecture"; then
    wrong "the library can be removed from under the packages that need it"
fi
step "The library stays while a package needs it"

manage --purge "${ours[@]/%/:$architecture}" || wrong "cannot remove the packages: $(<"$work/log")"
check_nothing_is_left "$before"
