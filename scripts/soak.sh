#!/usr/bin/env bash
# soak.sh [SECONDS]: mixed load for half an hour (or so long). Then writes what the process held
# meanwhile: the table of docs/reliability.md and the drawing docs/soak.svg, from the same samples.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=${1:-1800}
require_count SECONDS "$seconds"
samples=$project/build/soak.samples
bands=$project/build/soak.bands

# minutes COLUMN: the least, the median and the most of it in each minute, at the minute's middle.
minutes() {
    sort -k "1,1n" "$samples" | awk -v column="$1" '{ print int($1 / 60), $column }' |
        sort -k 1,1n -k 2,2n | awk '
        function tell() { if (count) print minute + 0.5, values[1], values[int((count + 1) / 2)], values[count] }
        $1 != minute { tell(); count = 0; minute = $1 }
        { values[++count] = $2 }
        END { tell() }'
}

# Each quarter of the time beside the others: what grows, grows from one to the next.
print_table() {
    echo "| Quarter of the time | Resident memory, KiB: mean, most | Descriptors: mean, most | Threads: mean, most |"
    echo "|---|---|---|---|"
    awk -v count="$(wc -l <"$samples")" '
        { quarter = int(4 * (NR - 1) / count)
          for (column = 2; column <= 4; ++column) {
              sum[quarter, column] += $column
              if ($column > most[quarter, column]) most[quarter, column] = $column
          }
          ++lines[quarter] }
        END {
          for (quarter = 0; quarter < 4; ++quarter)
              printf "| %d | %.0f, %d | %.1f, %d | %.1f, %d |\n", quarter + 1,
                     sum[quarter, 2] / lines[quarter], most[quarter, 2],
                     sum[quarter, 3] / lines[quarter], most[quarter, 3],
                     sum[quarter, 4] / lines[quarter], most[quarter, 4]
        }' "$samples"
}

draw() {
    local column
    for column in 2 3 4; do
        minutes "$column" >"$bands.$column"
    done
    gnuplot <<END
set terminal svg size 800,600 background "white"
set output "$project/docs/soak.svg"
set multiplot layout 3,1
set key top right horizontal
set yrange [0:*]
set style fill solid 0.3 noborder
set title "Resident memory, MiB, minute by minute"
plot "$bands.2" using 1:(\$2/1024):(\$4/1024) with filledcurves linecolor 3 title "least to most", \
     "" using 1:(\$3/1024) with lines linecolor 3 linewidth 2 title "median"
set key off
set title "Open file descriptors"
plot "$bands.3" using 1:2:4 with filledcurves linecolor 3, "" using 1:3 with lines linecolor 3 linewidth 2
set title "Threads"
set xlabel "minutes"
plot "$bands.4" using 1:2:4 with filledcurves linecolor 3, "" using 1:3 with lines linecolor 3 linewidth 2
END
}

ensure_packages test soak
configure ci
build ci vortan_stress
say "Load for $seconds s"
"$project/build/ci/tests/stress/vortan_stress" --seconds "$seconds" --samples "$samples"
print_table | tee "$samples.table"
write_section "$project/docs/reliability.md" soak <"$samples.table"
draw
