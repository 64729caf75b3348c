#!/usr/bin/env bash
# measure_client.sh: prints what vortan-transfer takes to start, beside curl's tool, and to download 100
# files over HTTPS, in user-level instructions counted by callgrind, as docs/performance.md has them. The
# server is nginx with a certificate of RSA-2048; the authorities are Debian's and the one that signed it.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

require_no_arguments "$@"
folder=$project/build/client
program=$folder/tools/vortan-transfer/vortan-transfer
files=100
work=$(mktemp -d)

make_certificates() {
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=test authority' \
        -keyout ca.key -out ca.pem
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj '/CN=test server' -CA ca.pem -CAkey ca.key \
        -addext subjectAltName=IP:127.0.0.1 -keyout server.key -out server.pem
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
        listen 127.0.0.1:$1;
        listen 127.0.0.1:$2 ssl;
        ssl_certificate server.pem;
        ssl_certificate_key server.key;
        location / { root files; }
    }
}
END
}

free_ports() {
    python3 -c 'import socket
ends = [socket.create_server(("127.0.0.1", 0)) for _ in range(2)]
print(*(end.getsockname()[1] for end in ends))'
}

start_server() {
    local plain secure name
    cd "$work"
    read -r plain secure < <(free_ports)
    http=http://127.0.0.1:$plain
    https=https://127.0.0.1:$secure
    make_certificates 2>/dev/null
    write_configuration "$plain" "$secure"
    mkdir files got
    for name in $(seq -f "file%.0f" "$files"); do
        head -c 1024 /dev/zero >"files/$name"
    done
    nginx -p "$work" -e error.log -c nginx.conf &
    server=$!
    until curl --silent --cacert ca.pem --output /dev/null "$https/file1"; do
        kill -0 "$server" || fail "nginx does not start: $(<error.log)"
    done
}

# counts OPTION... COMMAND...: what callgrind counted of each part of the run, a line each.
counts() {
    rm -f callgrind.out*
    valgrind --tool=callgrind --callgrind-out-file=callgrind.out "$@" >said 2>&1 || fail "$*: $(<said)"
    [[ $(<said) == *"Collected : "* ]] || fail "$*: $(<said)"
}

# part NUMBER: of a run that was divided.
part() {
    sed -n 's/^totals: //p' "callgrind.out.$1"
}

# until_sent COMMAND...: from the start of the process to the first byte that it sends.
until_sent() {
    counts --dump-before=send "$@"
    part 1
}

altogether() {
    counts "$@"
    sed -n 's/.*Collected : //p' said
}

row() {
    printf '%-66s %12d\n' "$1" "$2"
}

# beside NAME INSTRUCTIONS CURLS
beside() {
    row "$1" "$2"
    row "the same, curl's tool" "$3"
    printf '%-66s %12s\n' "ratio" "$(awk "BEGIN { printf \"%.2f\", $2 / $3 }")"
}

# many COUNT: downloads so many files, one after the other.
many() {
    local list
    mapfile -t list < <(seq -f "$https/file%.0f" "$1")
    altogether "$program" -q -O --output-dir got --cacert authorities.pem --parallel-max 1 "${list[@]}"
}

ensure_packages test footprint
(cd "$project" && cmake --preset default -B "$folder" -DVORTAN_BUILD_TESTS=OFF \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(compiler_launcher)" >&2)
ninja -C "$folder" vortan-transfer >&2
trap 'kill "${server:-}" || true; rm -rf "$work"' EXIT
start_server
beside "from the start to the first byte sent, http" \
    "$(until_sent "$program" -q -o got/1 "$http/file1")" "$(until_sent curl -s -o got/1 "$http/file1")"
beside "a file over https, altogether" \
    "$(altogether "$program" -q -o got/1 --cacert authorities.pem "$https/file1")" \
    "$(altogether curl -s -o got/1 --cacert authorities.pem "$https/file1")"
first=$(many 1)
row "$files files over https from one server, the first" "$first"
row "all but the first, together" $(($(many "$files") - first))
