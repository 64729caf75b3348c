#!/usr/bin/env bash
# soak.sh [SECONDS]: mixed load for half an hour (or so long), then a drawing and the figures of what
# the process held meanwhile: docs/soak.svg, and a table on standard output.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=${1:-1800}
samples=$project/build/soak.samples

ensure_packages test soak
configure default -DVORTAN_BUILD_TESTS=ON -DVORTAN_REQUIRE_TEST_PEERS=ON \
    -DVORTAN_WARNINGS_AS_ERRORS=ON
build default vortan_stress
"$project/build/default/tests/stress/vortan_stress" --seconds "$seconds" --samples "$samples"

gnuplot <<END
set terminal svg size 800,600 background "white"
set output "$project/docs/soak.svg"
set multiplot layout 3,1
set key off
set yrange [0:*]
set title "Resident memory, MiB"
plot "$samples" using 1:(\$2/1024) with lines title "memory"
set title "Open file descriptors"
plot "$samples" using 1:3 with lines title "descriptors"
set title "Threads"
set xlabel "seconds"
plot "$samples" using 1:4 with lines title "threads"
END

# Each quarter of the time beside the others: what grows, grows from one to the next.
awk -v count="$(wc -l <"$samples")" '
    { quarter = int(4 * (NR - 1) / count)
      for (column = 2; column <= 4; ++column) {
          sum[quarter, column] += $column
          if ($column > most[quarter, column]) most[quarter, column] = $column
      }
      ++lines[quarter] }
    END {
      printf "%-8s %22s %22s %18s\n", "quarter", "memory KiB (mean, max)",
             "descriptors (mean, max)", "threads (mean, max)"
      for (quarter = 0; quarter < 4; ++quarter)
          printf "%-8d %13.0f %8d %16.1f %6d %11.1f %6d\n", quarter + 1,
                 sum[quarter, 2] / lines[quarter], most[quarter, 2],
                 sum[quarter, 3] / lines[quarter], most[quarter, 3],
                 sum[quarter, 4] / lines[quarter], most[quarter, 4]
    }' "$samples"
