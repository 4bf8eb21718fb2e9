#!/usr/bin/env bash
# Soak: live talks, file broadcasts, listens and stops in cycles against the reference platform (speakers on
# every transport) for N minutes, on an optimised build; prints RSS, threads, descriptors and the UDP
# speaker's arrival lateness per minute, then the growth from the first to the last minute.
#   scripts/soak.sh --minutes N [--max-rss-growth-mb M]
#   JOBS=N  parallel build jobs (default 2)
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
JOBS=${JOBS:-2}
if [ "$#" -eq 0 ]; then
  set -- --minutes 10
fi
# Optimised and without sanitizers; the soak uses the tests' peers (platform process, PulseAudio).
cmake -S "$ROOT" -B "$ROOT/build-soak" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBCAST_SANITIZE=OFF -DBCAST_TSAN=OFF \
  -DBCAST_TESTS=ON >/dev/null
cmake --build "$ROOT/build-soak" -j"$JOBS" --target bcast-soak bcast-platform >/dev/null
export BCAST_SOURCE_DIR="$ROOT" BCAST_BINARY_DIR="$ROOT/build-soak"
export ALSA_CONFIG_PATH="$ROOT/tests/support/asound.conf" QT_QPA_PLATFORM=offscreen
exec "$ROOT/build-soak/bin/bcast-soak" "$@"
