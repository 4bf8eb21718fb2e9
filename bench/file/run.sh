#!/usr/bin/env bash
# File broadcast to 1, 100 and 1000 RTP speakers on loopback: a 3-minute speech file goes through the real
# pipeline (CVoiceFileEncode feeding CVoiceTransferManager, wired as a file broadcast wires them), as G.711
# u-law (40 ms frames) and as MP3 (24 ms frames), with ffmpeg as the named peer in the same run.
#
#   bench/file/run.sh                      builds build-bench/ (Release, no sanitizers) and runs everything
#   OUT=/some/dir bench/file/run.sh        where the outputs go (default: a new temporary directory)
#   LENGTH=30 COUNTS=1,100 bench/file/run.sh    a shorter file, other receiver counts (180 s, 1,100,1000)
#   CONVERSION=0 bench/file/run.sh         leaves out the conversion part
#
# Steps: build bcast-bench-transfer and bcast-tool; make the test file (espeak-ng speech repeated to LENGTH
# seconds, 44.1 kHz stereo 16-bit WAV, so the pipeline converts to mono and resamples as for a user's file);
# bench/voice/run.sh (conversion speed: bcast-tool encode against ffmpeg); bcast-bench-transfer --file for
# type 1 and type 15; bench/file/report.sh (summary table and plot). Takes about 35 minutes at 180 s: per
# type, three broadcasts and two ffmpeg runs in real time.
#
# Outputs in $OUT:
#   speech.wav               the test file
#   conversion.txt           bench/voice/run.sh: file conversion, ours / ffmpeg (time, memory)
#   transfer-g711.txt, .log  bcast-bench-transfer --file speech.wav --type 1: its table, and its stderr
#   transfer-mp3.txt, .log   the same with --type 15
#   results.csv              one line per run; samples/: pacing error of every frame at the first receiver
#   summary.txt              the summary table; pacing.png: the pacing-error distribution per receiver count
#
# Figures (details in bench/transfer/TransferBench.cpp and bench/file/report.sh):
#   pace p50/p99/max   |arrival of frame k at the first receiver - (arrival of frame 0 + k x interval)|; the
#                      kernel arrival time stamp (SO_TIMESTAMPNS) stands in for the send time. signed: median
#                      of arrival - ideal (negative: early)
#   late p99           arrival - the sender's own schedule at every receiver
#   packets/expected   received / expected over all receivers
#   cpu s, peak MB     CPU seconds and peak RSS of the sending process in that run (VmHWM reset per run)
#   cpu/ff mem/ff pace/ff   manager / ffmpeg -re at one receiver: same file, same codec, same run
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/../.." && pwd)
LENGTH=${LENGTH:-180}
COUNTS=${COUNTS:-1,100,1000}
CONVERSION=${CONVERSION:-1}

for program in sox espeak-ng ffmpeg gnuplot /usr/bin/time; do
  command -v "$program" >/dev/null || { echo "bench: $program not found (scripts/setup.sh installs it)" >&2; exit 1; }
done

if [ -z "${OUT:-}" ]; then
  OUT=$(mktemp -d "${TMPDIR:-/tmp}/bcast-file-bench-XXXXXX")
fi
mkdir -p "$OUT"
OUT=$(cd "$OUT" && pwd)
rm -rf "$OUT/results.csv" "$OUT/samples" "$OUT/plotdata"

# Optimised and without sanitizers: the speed a user gets.
echo "building bcast-bench-transfer and bcast-tool in build-bench/"
cmake -S "$ROOT" -B "$ROOT/build-bench" -DCMAKE_BUILD_TYPE=Release -DBCAST_SANITIZE=OFF -DBCAST_BENCH=ON \
  -DBCAST_TESTS=OFF >/dev/null
cmake --build "$ROOT/build-bench" -j2 --target bcast-bench-transfer bcast-tool >/dev/null
BENCH=$ROOT/build-bench/bin/bcast-bench-transfer

echo "generating ${LENGTH} s of speech in $OUT/speech.wav"
espeak-ng -s 150 -w "$OUT/voice.wav" "Attention please. This is a test of the public address system. \
The north entrance will close in ten minutes. Visitors are asked to move to the main hall and to follow the \
instructions of the staff. Please keep the emergency exits clear. Vehicles parked in the loading zone will \
be removed. Thank you for your cooperation, and have a pleasant evening."
voice_seconds=$(soxi -D "$OUT/voice.wav")
repeats=$(awk -v l="$LENGTH" -v v="$voice_seconds" 'BEGIN { print int(l / v) + 1 }')
sox "$OUT/voice.wav" -r 44100 -c 2 -b 16 "$OUT/speech.wav" repeat "$repeats" trim 0 "$LENGTH"
rm -f "$OUT/voice.wav"

if [ "$CONVERSION" != 0 ]; then
  echo
  echo "== conversion: bench/voice/run.sh"
  BCAST_TOOL=$ROOT/build-bench/bin/bcast-tool "$ROOT/bench/voice/run.sh" | tee "$OUT/conversion.txt"
fi

status=0
for type in 1 15; do
  name=g711
  [ "$type" = 15 ] && name=mp3
  echo
  echo "== file broadcast, type $type: bcast-bench-transfer --file speech.wav --type $type --seconds $LENGTH --counts $COUNTS"
  if ! "$BENCH" --file "$OUT/speech.wav" --type "$type" --seconds "$LENGTH" --counts "$COUNTS" \
    --csv "$OUT/results.csv" --samples "$OUT/samples" 2>"$OUT/transfer-$name.log" | tee "$OUT/transfer-$name.txt"; then
    echo "bench: type $type failed, see $OUT/transfer-$name.log" >&2
    status=1
  fi
done

echo
echo "== summary"
"$ROOT/bench/file/report.sh" "$OUT"
echo
echo "outputs in $OUT"
exit "$status"
