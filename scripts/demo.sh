#!/usr/bin/env bash
# Sets up the machine, builds the host and the module, and runs the main job against the demo configuration.
# For now the main job is the host's lifecycle check of the module (load, both start-up stages, stop, unload).
#   JOBS=N  parallel build jobs (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}

scripts/setup.sh
cmake -S . -B build -DBCAST_SANITIZE=OFF -DBCAST_TSAN=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$JOBS" --target bcast-host BroadCastPlugin
./build/bin/bcast-host lifecycle --config fixtures/client-demo.json
