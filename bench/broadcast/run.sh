#!/usr/bin/env bash
# Live-talk latency: start latency (AsyncStartSpeakVoice to the first packet at each speaker) and
# mouth-to-speaker delay (virtual microphone to the speaker's WAV), median and worst over the runs, for one
# speaker per transport of the reference platform.
#
#   bench/broadcast/run.sh              builds an optimised bench in build-bench-broadcast/ and runs 20 talks
#   RUNS=5 bench/broadcast/run.sh
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/../.." && pwd)
RUNS=${RUNS:-20}
for program in pulseaudio paplay espeak-ng; do
  command -v "$program" >/dev/null || { echo "bench: $program not found (scripts/setup.sh installs it)" >&2; exit 1; }
done
# Optimised and without sanitizers; the tests' peers (platform process, PulseAudio) are needed, so tests on.
cmake -S "$ROOT" -B "$ROOT/build-bench-broadcast" -DCMAKE_BUILD_TYPE=Release -DBCAST_SANITIZE=OFF -DBCAST_BENCH=ON \
  -DBCAST_TESTS=ON >/dev/null
cmake --build "$ROOT/build-bench-broadcast" -j2 --target bcast-bench-broadcast >/dev/null
export BCAST_SOURCE_DIR="$ROOT" BCAST_BINARY_DIR="$ROOT/build-bench-broadcast"
export ALSA_CONFIG_PATH="$ROOT/tests/support/asound.conf"
exec "$ROOT/build-bench-broadcast/bin/bcast-bench-broadcast" --runs "$RUNS"
