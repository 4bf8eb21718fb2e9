#!/usr/bin/env bash
# Summary table and pacing plot of a file-broadcast benchmark run (bench/file/run.sh calls it; run it again
# on an output directory to redo both):
#
#   bench/file/report.sh OUT
#
# Reads OUT/results.csv and OUT/samples/ (written by bcast-bench-transfer --csv/--samples), writes
# OUT/summary.txt (also printed) and OUT/pacing.png.
#
# summary.txt, one row per run (times in milliseconds):
#   pace p50/p99/max  |arrival of frame k at the first receiver - (arrival of frame 0 there + k x interval)|;
#                     the kernel arrival time stamp stands in for the send time. ffmpeg: ideal = first
#                     arrival + RTP media time
#   signed            median of arrival - ideal (negative: early)
#   late p99          arrival - the sender's own schedule at every receiver (the manager sends frame k at
#                     (k - 1) x interval; ffmpeg: its RTP time stamps)
#   packets           received / expected over all receivers
#   cpu s, peak MB    CPU seconds and peak RSS of the sending process in that run
#   cpu/ff, mem/ff, pace/ff   manager / ffmpeg at one receiver (same file, same codec, same run)
# pacing.png: per type (rows), the distribution of arrival - ideal at the first receiver for each receiver
# count and for ffmpeg: cumulative over the whole range (left), the bulk of the manager's frames (middle), and
# the tails, the fraction of frames at or later than x on a log scale (right).
set -euo pipefail

OUT=${1:?usage: report.sh OUT}
CSV=$OUT/results.csv
[ -s "$CSV" ] || { echo "report: no $CSV" >&2; exit 1; }

{
  printf "%-5s %-10s %9s | %8s %8s %8s %8s | %8s | %19s | %7s %7s | %7s %7s %7s\n" type sender receivers \
    "pace p50" p99 max signed "late p99" "packets/expected" "cpu s" "peak MB" "cpu/ff" "mem/ff" "pace/ff"
  printf '%.0s-' $(seq 150)
  printf "\n"
  awk -F, 'NR == 1 { for (i = 1; i <= NF; ++i) col[$i] = i; next }
    { rows[++n] = $0
      if ($col["sender"] == "ffmpeg") {
        ffcpu[$col["type"]] = $col["cpu_s"]; ffmem[$col["type"]] = $col["peak_rss_mb"]
        ffpace[$col["type"]] = $col["pace_p99_us"]
      } }
    function ratio(a, b) { return b > 0 ? sprintf("%7.3f", a / b) : sprintf("%7s", "-") }
    END {
      for (r = 1; r <= n; ++r) {
        split(rows[r], f, ",")
        t = f[col["type"]]
        cpu = "      -"; mem = "      -"; pace = "      -"
        if (f[col["sender"]] == "manager" && f[col["receivers"]] == 1 && (t in ffcpu)) {
          cpu = ratio(f[col["cpu_s"]], ffcpu[t]); mem = ratio(f[col["peak_rss_mb"]], ffmem[t])
          pace = ratio(f[col["pace_p99_us"]], ffpace[t])
        }
        printf "%-5s %-10s %9d | %8.3f %8.3f %8.3f %8.3f | %8.3f | %9d/%-9d | %7.2f %7.1f | %s %s %s\n",
          t, f[col["sender"]], f[col["receivers"]], f[col["pace_p50_us"]] / 1000, f[col["pace_p99_us"]] / 1000,
          f[col["pace_max_us"]] / 1000, f[col["pace_signed_p50_us"]] / 1000, f[col["late_p99_us"]] / 1000,
          f[col["packets"]], f[col["expected"]], f[col["cpu_s"]], f[col["peak_rss_mb"]], cpu, mem, pace
        if (f[col["peak_reset"]] == 0) noreset = 1
      }
      if (noreset) print "peak MB: the kernel refused to reset VmHWM, manager figures are peaks since the process started"
    }' "$CSV"
  printf "times in ms; ratios: manager / ffmpeg (ffmpeg -re, packets up to 1400 bytes) at one receiver, same\n"
  printf "type; ffmpeg332 / ffmpeg592 send one frame per packet as the manager does.\n"
} | tee "$OUT/summary.txt"

# Distributions: one file per run, "error_ms fraction_at_or_below fraction_at_or_above".
SAMPLES=$OUT/samples
PLOTDATA=$OUT/plotdata
mkdir -p "$PLOTDATA"
types=()
for type in g711 mp3; do
  ls "$SAMPLES"/pacing-"$type"-*.txt >/dev/null 2>&1 && types+=("$type")
done
[ ${#types[@]} -gt 0 ] || { echo "report: no samples in $SAMPLES" >&2; exit 1; }
for file in "$SAMPLES"/pacing-*.txt; do
  name=$(basename "$file" .txt)
  grep -v '^#' "$file" | sort -g -k2 | awk '{ v[NR] = $2 / 1000 } END { for (i = 1; i <= NR; ++i) print v[i], i / NR, (NR - i + 1) / NR }' \
    >"$PLOTDATA/$name.cdf"
done

command -v gnuplot >/dev/null || { echo "report: gnuplot not found (scripts/setup.sh installs gnuplot-nox)" >&2; exit 1; }
# The manager's runs of a type, by receiver count.
managers_of() {
  for f in "$PLOTDATA"/pacing-"$1"-manager-*.cdf; do
    [ -e "$f" ] || continue
    n=$(basename "$f" .cdf)
    echo "${n##*-} $f"
  done | sort -n | cut -d' ' -f2-
}
receivers_title() {
  if [ "$1" = 1 ]; then echo "1 receiver"; else echo "$1 receivers"; fi
}
# A plot command of column $2 of every sender's CDF file (the rest of the arguments), for type $1.
every_sender() {
  local type=$1 column=$2 plot="plot" f n title
  shift 2
  for f in "$@"; do
    n=$(basename "$f" .cdf)
    n=${n#pacing-"$type"-}
    case $n in
      manager-*) title="manager, $(receivers_title "${n#manager-}")" ;;
      *) title="${n%-1}, 1 receiver" ;;
    esac
    plot="$plot '$f' using 1:$column with lines lw 2 title '$title',"
  done
  echo "${plot%,}"
}
{
  rows=${#types[@]}
  echo "set terminal pngcairo size 2200,$((rows * 620)) font 'DejaVu Sans,12' noenhanced"
  echo "set output '$OUT/pacing.png'"
  echo "set multiplot layout $rows,3 title 'File broadcast: pacing error at the first receiver = arrival of frame k - (arrival of frame 0 + k x interval); kernel arrival time stamps' font ',14'"
  echo "set grid; set key below horizontal; set ylabel 'fraction of frames (cumulative)'; set yrange [0:1]"
  echo "set xlabel 'arrival - ideal, ms (negative: early)'"
  for type in "${types[@]}"; do
    if [ "$type" = mp3 ]; then label="MP3, 24 ms frames"; interval=24; else label="G.711 u-law, 40 ms frames"; interval=40; fi
    managers=$(managers_of "$type")
    peers=$(ls "$PLOTDATA"/pacing-"$type"-ffmpeg*.cdf 2>/dev/null || true)
    # Left: every sender, the ideal (0) and one interval early (where the manager's schedule puts frames).
    echo "set title '$label: manager and ffmpeg -re'"
    echo "set autoscale x"
    echo "set arrow 1 from 0, graph 0 to 0, graph 1 nohead dt 2 lc rgb 'black'"
    echo "set label 1 ' ideal' at 0, graph 0.05 left"
    echo "set label 2 ' one interval early' at -$interval, graph 0.95 left"
    # shellcheck disable=SC2086
    every_sender "$type" 2 $managers $peers
    echo "unset arrow 1; unset label 1; unset label 2"
    # Middle: the bulk of the manager's frames, from the earliest to 1.5 ms past the largest median.
    # shellcheck disable=SC2086
    range=$(for f in $managers; do awk 'NR == 1 { lo = $1 } $2 >= 0.5 { print lo, $1; exit }' "$f"; done |
      awk 'NR == 1 || $1 < lo { lo = $1 } NR == 1 || $2 > hi { hi = $2 } END { printf "%f:%f", lo - 0.2, hi + 1.5 }')
    echo "set title '$label: manager only, bulk of the frames'"
    echo "set xrange [$range]"
    # shellcheck disable=SC2086
    every_sender "$type" 2 $managers
    # Right: the tails, fraction of frames at or later than x on a log scale.
    echo "set title '$label: tails, every sender'"
    echo "set autoscale x"
    echo "set logscale y; set yrange [1e-4:1]; set format y '%g'; set ylabel 'fraction of frames at or later (log)'"
    # shellcheck disable=SC2086
    every_sender "$type" 3 $managers $peers
    echo "unset logscale y; set yrange [0:1]; set format y '% h'; set ylabel 'fraction of frames (cumulative)'"
  done
  echo "unset multiplot"
} >"$PLOTDATA/pacing.gp"
gnuplot "$PLOTDATA/pacing.gp"
echo "plot: $OUT/pacing.png"
