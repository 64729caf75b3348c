#!/usr/bin/env bash
# check_components.sh CMAKE BUILD PREFIX SOURCES WORK: each part of the package holds what belongs
# into it, and together they are the whole of PREFIX.
set -euo pipefail
cmake=$1 build=$2 prefix=$3 sources=$4 work=$5

files_in() {
    (cd "$1" && find . ! -type d | LC_ALL=C sort)
}

install_component() {
    mkdir -p "$work/$1"
    "$cmake" --install "$build" --component "$1" --prefix "$work/$1" >/dev/null
}

# only COMPONENT PATTERN: whatever the component installs matches the extended regular expression.
only() {
    install_component "$1"
    local strangers
    strangers=$(files_in "$work/$1" | grep -Ev "^\./($2)$") || return 0
    echo "The component $1 must not install:"
    echo "$strangers"
    exit 1
}

# headers FOLDER: those in the folder Inc of that part of the sources.
headers() {
    (cd "$sources/$1/Inc" && printf '%s\n' ./*.h) | LC_ALL=C sort
}

rm -rf "$work"
lib='lib(/[^/]+-linux-[^/]+)?'
only runtime "$lib/libvortantransferagent\.so\.0(\.[0-9]+)*"
only kit "$lib/libvortantransferkit\.so\.0(\.[0-9]+)*"
only development "$lib/(libvortantransfer(agent|kit)\.so|cmake/.*|pkgconfig/.*)|include/vortantransfer(agent|kit)/[^/]+|share/doc/vortantransferagent/examples/[^/]+"
only standins "$lib/lib(dlog|QXCurl)\.so\.0(\.[0-9]+)*"
install_component tools

echo "The program, if it is built, comes with its man page and with what the shells complete:"
[[ -z $(files_in "$work/tools") ]] || diff <(files_in "$work/tools") - <<END
./bin/vortan-transfer
./share/bash-completion/completions/vortan-transfer
./share/man/man1/vortan-transfer.1
./share/zsh/site-functions/_vortan-transfer
END

echo "The public headers are installed, and no others:"
diff <(headers TransferAgent) <(files_in "$work"/development/include/vortantransferagent)
diff <(headers TransferKit) <(files_in "$work"/development/include/vortantransferkit)

echo "The components are the whole package:"
diff <(files_in "$prefix") \
    <(for part in "$work"/*; do files_in "$part"; done | LC_ALL=C sort)
