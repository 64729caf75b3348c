#!/usr/bin/env bash
# measure_scale.sh [ROUNDS]: what a transfer and a chunk cost for growing numbers of them. Writes
# the tables of docs/performance.md. Five rounds unless told otherwise.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

require_count ROUNDS "${1:-5}"
tables=$project/build/benchmarks/scale.tables

ensure_packages build clang
configure benchmarks
build benchmarks vortan_scale
"$project/build/benchmarks/benchmarks/vortan_scale" "${1:-5}" >"$tables"
write_section "$project/docs/performance.md" scale <"$tables"
cat "$tables"
