#!/usr/bin/env bash
# measure_peers.sh [ROUNDS [MIB [REQUESTS]]]: what the same work takes with other libraries. Writes the
# tables of docs/performance.md and draws docs/peers.svg. 11 rounds of 240 MiB and of 2000 requests
# unless told otherwise. With a power of two it would be a matter of luck whether a buffer that doubles
# has to grow once more for the last bytes.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

rounds=${1:-11}
mib=${2:-240}
requests=${3:-2000}
require_count ROUNDS "$rounds"
require_count MIB "$mib"
require_count REQUESTS "$requests"
work=$project/build/peers

# nginx, as the tests start it.
start_server() {
    exec {from_server}< <(exec python3 "$project/tests/integration/servers/serve.py" nginx "$folder")
    server=$!
    read -r -u "$from_server" _ _ _ port
    read -r -u "$from_server" _ _ _ tls_port _
    truncate --size "${mib}M" "$folder/files/body"
    truncate --size 1K "$folder/files/small"
    cat /etc/ssl/certs/ca-certificates.crt "$folder/ca.pem" >"$folder/authorities.pem"
}

# panel FILE COLUMN TITLE: commands for gnuplot that draw one. Untitled data would go by its path.
panel() {
    printf 'set title "%s"\n' "$3"
    printf 'plot "%s" using 0:%d:4:xtic(1) with boxes linecolor variable title "%s"\n' \
        "$work/$1" "$2" "$1"
}

draw() {
    gnuplot <<END
set terminal svg size 900,1200 background "white"
set output "$project/docs/peers.svg"
set multiplot layout 4,2
set key off
set boxwidth 0.7
set style fill solid 0.6
set xtics rotate by -30
set yrange [0:*]
$(panel stream 2 "Streamed: CPU seconds per GiB")
$(panel stream 3 "Streamed: peak memory, MiB")
$(panel memory 2 "Whole in memory: CPU seconds per GiB")
$(panel memory 3 "Whole in memory: peak memory, MiB")
$(panel upload 2 "Upload: CPU seconds per GiB")
$(panel upload 3 "Upload: peak memory, MiB")
$(panel many 2 "1 KiB: CPU microseconds per request")
$(panel many 3 "1 KiB: peak memory, MiB")
END
}

ensure_packages test peers
configure benchmarks -DVORTAN_BUILD_BENCHMARKS=OFF -DVORTAN_BUILD_PEERS=ON
build benchmarks benchmarks/peers/all
mkdir -p "$work"
folder=$(mktemp -d)
trap 'kill "${server:-}" || true; rm -rf "$folder"' EXIT
start_server
TMPDIR=$folder "$project/scripts/compare_peers.py" "$project/build/benchmarks/benchmarks/peers" \
    "http://127.0.0.1:$port/" "https://127.0.0.1:$tls_port/" "$folder" "$rounds" "$mib" "$requests" \
    "$work" >"$work/tables"
draw
printf '\n![CPU time and peak memory of each library](peers.svg)\n' >>"$work/tables"
write_section "$project/docs/performance.md" peers <"$work/tables"
cat "$work/tables"
