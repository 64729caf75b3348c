#!/usr/bin/env bash
# simulate_pacing.sh: what the random delay does to a server when a whole fleet of devices asks at once,
# and the kit's retries when it returns after an outage: writes the tables of docs/pacing.md and draws
# docs/pacing.svg and docs/outage.svg. A few minutes, nearly all of it the
# seeding of engines. Every run writes the same, except for the line of the system's random device.
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

require_no_arguments "$@"
folder=$project/build/pacing
program=$folder/benchmarks/vortan_pacing
document=$project/docs/pacing.md

# Puts a table between the comments <!-- NAME --> and <!-- end --> of the document.
replace_table() {
    say "Simulating ($1)"
    "$program" "$1" >"$folder/$1"
    awk -v begin="<!-- $1 -->" -v table="$folder/$1" '
        $0 == "<!-- end -->" { inside = 0 }
        !inside { print }
        $0 == begin { inside = 1; while ((getline line < table) > 0) print line }
    ' "$document" >"$folder/document"
    cp "$folder/document" "$document"
}

# The lines of a fleet in the table: window, mean, 99 %, expected, peak, expected.
lines_of_fleet() {
    awk -F ' *[|] *' -v fleet="$1" '$2 == fleet { print $3, $4, $5, $6, $7 + 0, $8 }' "$folder/fleets"
}

draw() {
    local fleet
    for fleet in 10000 100000 1000000; do
        lines_of_fleet "$fleet" >"$folder/fleet-$fleet"
    done
    "$program" hours >"$folder/hours"
    gnuplot <<END
set terminal svg size 800,760 background "white"
set output "$project/docs/pacing.svg"
set multiplot layout 2,1
set title "Requests in the busiest second (points: simulated, lines: expected, broken: mean)"
set xlabel "window"
set ylabel "requests a second"
set logscale xy
set yrange [0.5:100000]
set xrange [40:900000]
set xtics ("1 min" 60, "10 min" 600, "1 h" 3600, "6 h" 21600, "1 day" 86400, "1 week" 604800)
folder = "$folder"
fleet(n) = sprintf("%s/fleet-%d", folder, n)
plot for [i=1:3] fleet(10**(i + 3)) using 1:5 with points pointtype 7 pointsize 0.6 \
         linecolor i title sprintf("%d devices", 10**(i + 3)), \
     for [i=1:3] fleet(10**(i + 3)) using 1:6 with lines linecolor i notitle, \
     for [i=1:3] fleet(10**(i + 3)) using 1:2 with lines linecolor i dashtype 2 notitle
unset logscale
set title "A million devices with bounds of 0 and 6000000: waits above 4294967 s begin again at 0"
set xlabel "days after the devices were asked"
set ylabel "requests an hour"
set xtics auto
set xrange [0:70]
set yrange [0:*]
set key off
plot "$folder/hours" using (\$1/24):2 with lines linecolor 3 title "requests"
END
}

draw_outage() {
    "$program" seconds >"$folder/seconds"
    gnuplot <<END
set terminal svg size 800,400 background "white"
set output "$project/docs/outage.svg"
set title "100000 devices after an outage of ten minutes, by when they try again"
set xlabel "seconds after the outage"
set ylabel "requests a second"
set logscale y
set yrange [0.9:200000]
set key outside bottom center horizontal
plot "$folder/seconds" using 1:4 with impulses title "after 60 s", \
     "$folder/seconds" using 1:3 with impulses title "after 30 s", \
     "$folder/seconds" using 1:5 with steps linewidth 2 title "as the kit does"
END
}

ensure_packages build pacing
(cd "$project" && cmake --preset default -B "$folder" -DVORTAN_BUILD_TESTS=OFF \
    -DVORTAN_BUILD_TOOLS=OFF -DVORTAN_BUILD_PACING=ON \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(compiler_launcher)" >&2)
ninja -C "$folder" vortan_pacing >&2
for table in fleets rule seeds bounds outages; do
    replace_table "$table"
done
draw
draw_outage
