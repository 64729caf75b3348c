#!/usr/bin/env bash
# test_download.sh SERVER DOWNLOAD...: what a server has and what is printed is the same.
set -euo pipefail
server=$1 download=("${@:2}")
work=$(mktemp -d)

exec {from_server}< <(exec python3 "$server" "$work")
server_process=$!
trap 'kill "$server_process" || true; rm -rf "$work"' EXIT
read -r -u "$from_server" _ _ _ port

head -c 1234567 /dev/urandom >"$work/source"
"${download[@]}" "http://127.0.0.1:$port/source" >"$work/copy"
cmp "$work/source" "$work/copy"

echo "A missing file is a failure"
status=0
"${download[@]}" "http://127.0.0.1:$port/missing" || status=$?
((status == 1))
