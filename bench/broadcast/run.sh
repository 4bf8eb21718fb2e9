#!/usr/bin/env bash
# Live-talk figures in one table: start latency (AsyncStartSpeakVoice to the first packet at each speaker)
# with the site's prompt tone on and off, one speaker per transport, median and p90; where the start time
# goes (REST calls, RTSP requests, the module's steps, first audio per transport); mouth-to-speaker delay
# (virtual microphone to the speaker's WAV) median and p99, with the part that is spent before the capture;
# the streaming transport's packets stage by stage, from the streaming client library to the speaker's WAV;
# and the host's resident memory (peak, and by mapping) during a live talk to 1,000 UDP speakers.
#
#   bench/broadcast/run.sh              builds an optimised bench in build-release/ and runs 20 talks per site
#   RUNS=5 SPEAKERS=200 bench/broadcast/run.sh
#   SMS_JITTER_MS=20 bench/broadcast/run.sh    the streaming server's jitter buffer in the site without tone
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/../.." && pwd)
RUNS=${RUNS:-20}
SPEAKERS=${SPEAKERS:-1000}
for program in pulseaudio paplay espeak-ng sox; do
  command -v "$program" >/dev/null || { echo "bench: $program not found (scripts/setup.sh installs it)" >&2; exit 1; }
done
# Optimised and without sanitizers; the tests' peers (platform process, PulseAudio) are needed, so tests on.
cmake -S "$ROOT" -B "$ROOT/build-release" -DCMAKE_BUILD_TYPE=Release -DBCAST_SANITIZE=OFF -DBCAST_BENCH=ON \
  -DBCAST_TESTS=ON >/dev/null
cmake --build "$ROOT/build-release" -j2 --target bcast-bench-broadcast >/dev/null
export BCAST_SOURCE_DIR="$ROOT" BCAST_BINARY_DIR="$ROOT/build-release"
export ALSA_CONFIG_PATH="$ROOT/tests/support/asound.conf"
exec "$ROOT/build-release/bin/bcast-bench-broadcast" --runs "$RUNS" --speakers "$SPEAKERS" \
  ${SMS_JITTER_MS:+--sms-jitter-ms "$SMS_JITTER_MS"}
