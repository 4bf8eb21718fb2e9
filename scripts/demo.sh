#!/usr/bin/env bash
# Sets up the machine, builds the host, the module, the reference platform and the tool, and runs the main job:
# a live broadcast from a virtual microphone to simulated speakers on all three transports (scripts/demo.py).
#   JOBS=N  parallel build jobs (default 2)
#   extra arguments go to scripts/demo.py (--keep keeps the work directory with every speaker's WAV)
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}

scripts/setup.sh
cmake -S . -B build-release -DBCAST_SANITIZE=OFF -DBCAST_TSAN=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-release -j"$JOBS" --target bcast-host BroadCastPlugin bcast_hostweb bcast-platform bcast-tool
exec python3 scripts/demo.py --build build-release "$@"
