#!/usr/bin/env bash
# demonstrate.sh PROGRAM: transfers of each kind with vortan-transfer, against a server that is
# started for them. Fails if one does not do what it should.
set -euo pipefail
[[ -x ${1:-} ]] || {
    echo "Name the program to demonstrate: demonstrate.sh PROGRAM" >&2
    exit 1
}
program=$1
scripts=$(dirname "${BASH_SOURCE[0]}")
work=$(mktemp -d)

exec {from_server}< <(exec python3 "$scripts/file_server.py" "$work")
server=$!
trap 'kill "$server" || true; rm -rf "$work"' EXIT

wrong() {
    echo "   WRONG: $*"
    exit 1
}

checksum() {
    sha256sum <"$1" | cut -d ' ' -f 1
}

title() {
    echo
    echo "$*"
}

# transfer ARGUMENTS...: in the work folder, shown as a person would type it.
transfer() {
    echo "   vortan-transfer $*"
    local status=0
    (cd "$work" && "$program" "$@") || status=$?
    ((status == 0)) || wrong "exit status $status"
}

agree() {
    cmp "$work/$1" "$work/$2" || wrong "$1 and $2 differ"
    echo "   $(stat --format %s "$work/$2") bytes, the same as were sent: sha256 $(checksum "$work/$2")"
}

read -r -u "$from_server" _ _ _ port || wrong "the demonstration's server did not start"
url=http://127.0.0.1:$port
head -c 1234567 /dev/urandom >"$work/source"
echo "source: 1234567 random bytes, sha256 $(checksum "$work/source")"

title "1. A file, by its path"
transfer -o by-path "$work/source"
agree source by-path

title "2. A body over HTTP, collected by the libcurl handler and handed over whole"
transfer --handler curl --plain -o plain "$url/source"
agree source plain

title "3. The same, handed over as it arrives"
transfer --handler curl -o segmented "$url/source"
agree source segmented

title "4. An upload, by the maker's handler"
transfer --handler vendor -X PUT -d @source -o answer "$url/uploaded"
agree source uploaded

title "5. A download whose connection breaks twice, by the transfer kit"
transfer --retry-delay 0.1 --sha256 "$(checksum "$work/source")" -o whole "$url/cut/source"
for _ in 1 2 3; do
    read -r -t 60 -u "$from_server" _ first last || wrong "the download was not resumed"
    echo "   the server sent bytes $first to $last and hung up"
done
agree source whole

title "6. A download without an end, cancelled with Ctrl-C"
mkdir "$work/cancelled"
echo "   vortan-transfer -o cancelled/endless $url/endless"
# A shell has its background jobs ignore Ctrl-C.
env --default-signal=INT "$program" -o "$work/cancelled/endless" "$url/endless" &
client=$!
read -r -t 60 -u "$from_server" _ || wrong "the client sent no request"
kill -INT "$client"
status=0
wait "$client" || status=$?
((status == 130)) || wrong "exit status $status, not 130"
[[ -z $(ls -A "$work/cancelled") ]] || wrong "left behind: $(ls -A "$work/cancelled")"
echo "   exit status 130, and no half of a file left behind"

echo
echo "All six did what they should."
