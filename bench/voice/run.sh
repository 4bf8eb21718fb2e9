#!/usr/bin/env bash
# Speed of the broadcast file pipeline (bcast-tool encode) against ffmpeg doing the same conversion, in the
# same run, on a 3-minute MP3 and a 3-minute stereo 44.1 kHz WAV, to G.711 u-law and to MP3.
# Prints wall time, times real time and peak memory of each, and the ratios ours / ffmpeg.
#
#   bench/voice/run.sh                   builds a release bcast-tool in build-bench/ and measures it
#   BCAST_TOOL=path/to/bcast-tool bench/voice/run.sh
#   RUNS=5 bench/voice/run.sh            best of 5 runs (default 3)
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/../.." && pwd)
RUNS=${RUNS:-3}
SECONDS_OF_AUDIO=180

for program in sox ffmpeg /usr/bin/time; do
  command -v "$program" >/dev/null || { echo "bench: $program not found (scripts/setup.sh installs it)" >&2; exit 1; }
done

TOOL=${BCAST_TOOL:-}
if [ -z "$TOOL" ]; then
  # Optimised and without sanitizers: the speed a user gets.
  cmake -S "$ROOT" -B "$ROOT/build-bench" -DCMAKE_BUILD_TYPE=Release -DBCAST_SANITIZE=OFF -DBCAST_TESTS=OFF >/dev/null
  cmake --build "$ROOT/build-bench" -j2 --target bcast-tool >/dev/null
  TOOL=$ROOT/build-bench/bin/bcast-tool
fi

WORK=$(mktemp -d "${TMPDIR:-/tmp}/bcast-bench-XXXXXX")
trap 'rm -rf "$WORK"' EXIT

echo "generating ${SECONDS_OF_AUDIO} s of test audio in $WORK"
# Left a sweep, right pink noise: both channels busy, the left one is what the pipeline keeps.
sox -n -r 44100 -c 2 -b 16 "$WORK/in.wav" synth "$SECONDS_OF_AUDIO" sine 100-4000 pinknoise vol 0.4
ffmpeg -nostdin -v error -i "$WORK/in.wav" -c:a libmp3lame -b:a 192k "$WORK/in.mp3"

# measure OUTFILE COMMAND...: best wall time of RUNS runs, and the peak memory of that run.
# Sets TIME (s) and PEAK_MB.
measure() {
  local out=$1
  shift
  local best="" best_kb=0
  for _ in $(seq "$RUNS"); do
    rm -f "$out"
    /usr/bin/time -f "%e %M" -o "$WORK/time" "$@" >/dev/null 2>"$WORK/stderr" || {
      echo "bench: failed: $*" >&2
      cat "$WORK/stderr" >&2
      exit 1
    }
    [ -s "$out" ] || { echo "bench: no output from: $*" >&2; exit 1; }
    read -r elapsed kb <"$WORK/time"
    if [ -z "$best" ] || awk -v a="$elapsed" -v b="$best" 'BEGIN { exit !(a < b) }'; then
      best=$elapsed
      best_kb=$kb
    fi
  done
  TIME=$best
  PEAK_MB=$(awk -v k="$best_kb" 'BEGIN { printf "%.1f", k / 1024 }')
}

printf "\nbest of %d runs; xRT = seconds of audio per second of wall time; ratio = ours / ffmpeg\n\n" "$RUNS"
printf "%-10s %-7s | %8s %8s %8s | %8s %8s %8s | %10s %10s\n" input target "ours s" "ours xRT" "ours MB" \
  "ffmpeg s" "ff xRT" "ff MB" "time ratio" "mem ratio"
printf '%.0s-' $(seq 112)
printf "\n"

for input in in.wav in.mp3; do
  for target in g711 mp3; do
    if [ "$target" = g711 ]; then
      measure "$WORK/ours.ul" "$TOOL" encode "$WORK/$input" --type 1 -o "$WORK/ours.ul"
      ours_time=$TIME ours_mb=$PEAK_MB
      measure "$WORK/ff.ul" ffmpeg -nostdin -v error -y -i "$WORK/$input" -ar 8000 -ac 1 -f mulaw "$WORK/ff.ul"
    else
      measure "$WORK/ours.mp3" "$TOOL" encode "$WORK/$input" --type 15 -o "$WORK/ours.mp3"
      ours_time=$TIME ours_mb=$PEAK_MB
      measure "$WORK/ff.mp3" ffmpeg -nostdin -v error -y -i "$WORK/$input" -c:a libmp3lame -ar 48000 -ac 1 \
        -b:a 192k "$WORK/ff.mp3"
    fi
    awk -v name="$input" -v t="$target" -v ot="$ours_time" -v om="$ours_mb" -v ft="$TIME" -v fm="$PEAK_MB" \
      -v len="$SECONDS_OF_AUDIO" 'BEGIN {
        oxrt = ot > 0 ? len / ot : 0; fxrt = ft > 0 ? len / ft : 0
        printf "%-10s %-7s | %8.2f %8.0f %8.1f | %8.2f %8.0f %8.1f | %10.2f %10.2f\n",
               name, t, ot, oxrt, om, ft, fxrt, fm, (ft > 0 ? ot / ft : 0), (fm > 0 ? om / fm : 0) }'
  done
done
printf "\nours: the broadcast pipeline (mono by the first channel, soxr in half-second blocks, LAME quality 3,\n"
printf "intermediate WAV files on disk); ffmpeg: its own decoder, resampler and LAME at its default quality.\n"
