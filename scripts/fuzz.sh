#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, build-fuzz) and runs each for SECONDS (default 60), one after the
# other, on a copy of its corpus in tests/fuzz/corpus/<target>. Prints one line per target with its
# executions and findings; a finding's input is kept in build-fuzz/findings/<target>/. Exits non-zero when
# any target found something (or did not run).
#   scripts/fuzz.sh [SECONDS] [TARGET...]   e.g. scripts/fuzz.sh 30 platform_answer push_frame
#   JOBS=N  parallel build jobs (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."
SECONDS_PER_TARGET=${1:-60}
shift || true
JOBS=${JOBS:-2}

all_targets() {
  sed -n 's/^bcast_fuzz_target(\([a-z0-9_]*\).*/\1/p' tests/fuzz/FuzzTargets.cmake
}
if [ $# -gt 0 ]; then
  targets=("$@")
else
  mapfile -t targets < <(all_targets)
fi

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DBCAST_FUZZ=ON -DBCAST_TESTS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j"$JOBS" --target "${targets[@]/#/fuzz_}" >/dev/null

failed=0
summary=()
for target in "${targets[@]}"; do
  work=$(mktemp -d)
  mkdir -p "$work/corpus" "$work/artifacts"
  cp tests/fuzz/corpus/"$target"/* "$work/corpus/"
  # A target's own leak suppressions, when it has some (leaks of third-party libraries it reaches).
  lsan=""
  if [ -f tests/fuzz/lsan_"$target".supp ]; then
    lsan="suppressions=$PWD/tests/fuzz/lsan_$target.supp:print_suppressions=0"
  fi
  # Quiet output; the last lines of the log tell the executions. Findings land in the artifacts directory.
  set +e
  LSAN_OPTIONS="$lsan" TAL_LOG_STDERR_LEVEL=7 ./build-fuzz/bin/fuzz_"$target" -max_total_time="$SECONDS_PER_TARGET" -timeout=10 \
    -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$work/artifacts/" "$work/corpus" \
    >"$work/log" 2>&1
  status=$?
  set -e
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -n 1)
  speed=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$work/log" | tail -n 1)
  findings=$(find "$work/artifacts" -type f | wc -l)
  line=$(printf '%-18s executions %10s  exec/s %7s  findings %s' "$target" "${runs:-?}" "${speed:-?}" "$findings")
  echo "fuzz: $line"
  summary+=("$line")
  if [ "$findings" -gt 0 ] || [ "$status" -ne 0 ]; then
    failed=1
    mkdir -p build-fuzz/findings/"$target"
    cp "$work"/artifacts/* build-fuzz/findings/"$target"/ 2>/dev/null || true
    cp "$work/log" build-fuzz/findings/"$target"/log
    echo "fuzz: $target exited with $status; inputs and log in build-fuzz/findings/$target/"
    grep -E 'ERROR|SUMMARY|runtime error' "$work/log" | head -n 5 || true
  fi
  rm -rf "$work"
done

if [ "$failed" -ne 0 ]; then
  echo "fuzz: FINDINGS (see above)"
  exit 1
fi
echo "fuzz: ${#targets[@]} targets, no findings"
