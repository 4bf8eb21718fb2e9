#!/usr/bin/env bash
# Fan-out of a G.711 file to 1, 100, 1000 and 5000 RTP receivers on loopback: the voice transfer manager's
# RTP speaker group against ffmpeg's tee muxer sending the same file to the same receiver count in the same
# run. The receivers live in a separate process and take kernel arrival time stamps (SO_TIMESTAMPNS).
#
#   bench/transfer/run.sh                    builds build-release/ (Release) and runs everything
#   OUT=/some/dir bench/transfer/run.sh      where the outputs go (default: a new temporary directory)
#   SECONDS_PER_RUN=60 COUNTS=1,100,1000,5000 FFMPEG_MAX=1000 bench/transfer/run.sh   (defaults: 20 s, these)
#   PLOT_ONLY=1 OUT=/some/dir bench/transfer/run.sh    redraws $OUT/lateness.png from $OUT/cdf/
#   NOTE='quiet machine' bench/transfer/run.sh          adds a note to the plot's title
#   MULTICAST=1 bench/transfer/run.sh        the multicast mode instead: 10 to 10,000 members of one group,
#                                            and as many unicast receivers up to 1000 beside them; writes
#                                            $OUT/multicast.txt and $OUT/multicast.png (sender CPU and p99
#                                            lateness per receiver count)
#
# ffmpeg 5.1's tee muxer crashed (SIGSEGV) here with 2000 RTP outputs every time and with 1000 now and
# then: above FFMPEG_MAX receivers it runs once, at FFMPEG_MAX.
#
# Outputs in $OUT:
#   table.txt        the table: send error p50/p99/max, lateness p50/p99/max, jitter, packets, sender CPU
#                    seconds and % of one core, and the manager / ffmpeg ratios per receiver count
#   cdf/lateness-<manager|ffmpeg>-<receivers>.txt   lateness of every packet at every receiver, 1001
#                    quantiles (ms, fraction)
#   lateness.png     the lateness CDF per receiver count, ours and ffmpeg's
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/../.." && pwd)
RUN_SECONDS=${SECONDS_PER_RUN:-20}
COUNTS=${COUNTS:-1,100,1000,5000}
FFMPEG_MAX=${FFMPEG_MAX:-1000}
OUT=${OUT:-$(mktemp -d /tmp/bcast-bench-transfer-XXXXXX)}
mkdir -p "$OUT"

for program in sox ffmpeg gnuplot; do
  command -v "$program" >/dev/null || { echo "$program is missing: scripts/setup.sh installs it" >&2; exit 1; }
done

if [ "${PLOT_ONLY:-0}" != 1 ]; then
  cmake -S "$ROOT" -B "$ROOT/build-release" -DCMAKE_BUILD_TYPE=Release -DBCAST_BENCH=ON >/dev/null
  cmake --build "$ROOT/build-release" -j"$(nproc)" --target bcast-bench-transfer >/dev/null
fi

if [ "${MULTICAST:-0}" = 1 ]; then
  if [ "${PLOT_ONLY:-0}" != 1 ]; then
    "$ROOT/build-release/bin/bcast-bench-transfer" --multicast --seconds "$RUN_SECONDS" | tee "$OUT/multicast.txt"
  fi
  # Rows: sender receivers | p50 p99 max | packets/expected | datagrams/frame | cpu cpu% user
  for sender in multicast unicast; do
    awk -v s="$sender" '$1 == s && $3 == "|" { print $2, $5, $10, $13 }' "$OUT/multicast.txt" > "$OUT/$sender.dat"
  done
  gnuplot <<GNUPLOT
set terminal pngcairo size 1800,600
set output '$OUT/multicast.png'
set multiplot layout 1,3 title "One multicast group against as many unicast speakers (loopback, G.711, 40 ms frames)${NOTE:+\n$NOTE}"
set logscale x
set xlabel 'receivers'
set grid
set key top left
set title 'UDP datagrams sent per frame'
set logscale y
set yrange [0.5:20000]
set ylabel 'datagrams'
plot '$OUT/multicast.dat' using 1:3 with linespoints lw 2 title 'multicast', \
     '$OUT/unicast.dat' using 1:3 with linespoints lw 2 dt 2 title 'unicast'
unset logscale y
set yrange [0:*]
set title 'sender CPU (on loopback it includes the delivery to every member)'
set ylabel '% of one core'
plot '$OUT/multicast.dat' using 1:4 with linespoints lw 2 title 'multicast', \
     '$OUT/unicast.dat' using 1:4 with linespoints lw 2 dt 2 title 'unicast'
set title 'p99 arrival lateness at every receiver'
set ylabel 'ms'
plot '$OUT/multicast.dat' using 1:(\$2/1000) with linespoints lw 2 title 'multicast', \
     '$OUT/unicast.dat' using 1:(\$2/1000) with linespoints lw 2 dt 2 title 'unicast'
unset multiplot
GNUPLOT
  echo "plot: $OUT/multicast.png"
  exit 0
fi

if [ "${PLOT_ONLY:-0}" != 1 ]; then
  "$ROOT/build-release/bin/bcast-bench-transfer" --seconds "$RUN_SECONDS" --counts "$COUNTS" \
    --ffmpeg-max "$FFMPEG_MAX" --no-search --cdf "$OUT/cdf" | tee "$OUT/table.txt"
fi

plots=()
colours=('#1b9e77' '#d95f02' '#7570b3' '#e7298a' '#66a61e' '#e6ab02')
# One colour per receiver count, in increasing order; ffmpeg may have run at a count of its own.
mapfile -t ns < <(ls "$OUT"/cdf/lateness-*-*.txt 2>/dev/null | sed 's/.*-\([0-9]*\)\.txt$/\1/' | sort -n -u)
for i in "${!ns[@]}"; do
  n=${ns[$i]}
  colour=${colours[$((i % ${#colours[@]}))]}
  for sender in manager ffmpeg; do
    file="$OUT/cdf/lateness-$sender-$n.txt"
    [ -f "$file" ] || continue
    dash=$([ "$sender" = manager ] && echo 1 || echo 2)
    plots+=("'$file' using 1:2 with lines lw 2 dt $dash lc rgb '$colour' title '$sender, $n'")
  done
done
[ ${#plots[@]} -gt 0 ] || { echo "no lateness data in $OUT/cdf" >&2; exit 1; }
joined=$(IFS=,; echo "${plots[*]}")
gnuplot <<GNUPLOT
set terminal pngcairo size 1400,650
set output '$OUT/lateness.png'
set multiplot layout 1,2 title "Arrival lateness at every receiver (kernel time stamps): voice transfer manager solid, ffmpeg tee dashed${NOTE:+\n$NOTE}"
set xlabel 'lateness against the sender schedule (ms; negative: early)'
set ylabel 'fraction of packets'
set key bottom right
set grid
set yrange [0:1]
set title 'whole range'
plot $joined
set title 'from -2 to 10 ms'
set xrange [-2:10]
plot $joined
unset multiplot
GNUPLOT
echo "plot: $OUT/lateness.png"
