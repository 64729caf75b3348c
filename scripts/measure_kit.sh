#!/usr/bin/env bash
# measure_kit.sh: prints what an HTTPS transfer through agent and transfer kit takes, in instructions
# counted by callgrind, as docs/performance.md has them. The peer is nginx with a certificate of
# RSA-2048; the authorities are Debian's and the one that signed it.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

require_no_arguments "$@"
folder=$project/build/kit
hosts=12
work=$(mktemp -d)

# Addresses of the loopback interface are hosts to a client.
urls() {
    printf "https://127.0.0.%d:$port/body\n" $(seq "$hosts")
}

make_certificates() {
    local names
    names=$(printf 'IP:127.0.0.%d,' $(seq "$hosts"))
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=test authority' \
        -keyout ca.key -out ca.pem
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=test server' -CA ca.pem -CAkey ca.key \
        -addext "subjectAltName=${names%,}" -keyout server.key -out server.pem
    cat /etc/ssl/certs/ca-certificates.crt ca.pem >authorities.pem
}

write_configuration() {
    local user=""
    ((EUID != 0)) || user="user root;"
    cat >nginx.conf <<END
daemon off;
$user
pid nginx.pid;
events {}
http {
    access_log off;
    client_body_temp_path temp;
    proxy_temp_path temp;
    fastcgi_temp_path temp;
    uwsgi_temp_path temp;
    scgi_temp_path temp;
    keepalive_requests 1000000;
    server {
$(printf "        listen 127.0.0.%d:$port ssl;\n" $(seq "$hosts"))
        ssl_certificate server.pem;
        ssl_certificate_key server.key;
        location / { root .; }
    }
}
END
}

start_server() {
    cd "$work"
    port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("", 0)); print(s.getsockname()[1])')
    make_certificates 2>/dev/null
    write_configuration
    head -c 1024 /dev/zero >body
    nginx -p "$work" -e error.log -c nginx.conf &
    server=$!
    until curl --silent --cacert ca.pem --output /dev/null "https://127.0.0.1:$port/body"; do
        kill -0 "$server" || fail "nginx does not start: $(<error.log)"
    done
    cd "$project"
}

# instructions PROGRAM WORK COUNT: of the whole program.
instructions() {
    local said list
    mapfile -t list < <(urls)
    said=$(VORTAN_DLOG=file:$work/log valgrind --tool=callgrind --callgrind-out-file=/dev/null \
        "$folder/benchmarks/$1" "$2" "$3" "$work/authorities.pem" "${list[@]}" 2>&1) ||
        fail "$1 $2 $3: $said"
    sed -n 's/.*Collected : //p' <<<"$said"
}

# row NAME PROGRAM WORK FEW MANY: what one of the transfers takes that MANY has and FEW has not.
row() {
    local few many
    few=$(instructions "$2" "$3" "$4")
    many=$(instructions "$2" "$3" "$5")
    printf '%-60s %12d\n' "$1" $(((many - few) / ($5 - $4)))
}

# queue_instructions WAITING PERFORMED: of the whole program.
queue_instructions() {
    local said
    said=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null \
        "$folder/benchmarks/vortan_queue_instructions" "$1" "$2" 2>&1) || fail "queue $1 $2: $said"
    sed -n 's/.*Collected : //p' <<<"$said"
}

# queue_row WAITING: what a ticket takes while so many wait.
queue_row() {
    printf '%-60s %12d\n' "a ticket of a queue in which $1 wait, the log dropped" \
        $((($(queue_instructions "$1" 3000) - $(queue_instructions "$1" 1000)) / 2000))
}

ensure_packages test footprint
(cd "$project" && cmake --preset default -B "$folder" -DVORTAN_BUILD_TESTS=OFF \
    -DVORTAN_BUILD_TOOLS=OFF -DVORTAN_BUILD_FOOTPRINT=ON \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(compiler_launcher)" >&2)
ninja -C "$folder" vortan_kit_instructions vortan_kit_instructions_logged \
    vortan_queue_instructions >&2
trap 'kill "${server:-}" || true; rm -rf "$work"' EXIT
start_server
row "on a kept connection, the log dropped" vortan_kit_instructions kept 10 60
row "on a kept connection, the log in a file" vortan_kit_instructions_logged kept 10 60
row "to a further host" vortan_kit_instructions hosts 2 12
printf '%-60s %12d\n' "the first on each of four workers, together" \
    $(($(instructions vortan_kit_instructions workers 4) - $(instructions vortan_kit_instructions workers 0)))
row "through the agent's own handler, without the kit" vortan_kit_instructions fresh 1 3
queue_row 1000
queue_row 100000
