#!/usr/bin/env bash
# Sets up the machine, then runs the whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer,
# the concurrent parts under ThreadSanitizer, the Debian packages (built, extracted and run), and short
# libFuzzer runs of the JSON document and of the broadcast address decoding.
#   JOBS=N         parallel build and test jobs (default 2)
#   FUZZ_SECONDS=N length of each fuzz run (default 45; 0 skips them)
#   PACKAGES=0     skips the Debian packages
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}
FUZZ_SECONDS=${FUZZ_SECONDS:-45}

scripts/setup.sh

echo "== ASan/UBSan build and full suite"
cmake -S . -B build-asan -DBCAST_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBCAST_PACKAGE_TESTS=OFF >/dev/null
cmake --build build-asan -j"$JOBS"
(cd build-asan && ctest --output-on-failure -j"$JOBS")

echo "== ThreadSanitizer over the concurrent parts"
cmake -S . -B build-tsan -DBCAST_TSAN=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-tsan -j"$JOBS" --target bcast_tsan_tests
(cd build-tsan && TSAN_OPTIONS="halt_on_error=1 suppressions=$PWD/../tests/tsan.supp" \
  ctest -L tsan --output-on-failure -j"$JOBS")

if [ "${PACKAGES:-1}" != "0" ]; then
  echo "== Debian packages: Release build, cpack, lintian; then the extracted packages run"
  SKIP_SETUP=1 JOBS="$JOBS" scripts/package.sh
  cmake -S . -B build-asan -DBCAST_PACKAGE_TESTS=ON -DBCAST_PACKAGE_DIR="$PWD/build-pkg/packages" >/dev/null
  cmake --build build-asan -j"$JOBS" --target test_package
  (cd build-asan && ctest -R '^test_package$' --output-on-failure)
fi

if [ "$FUZZ_SECONDS" -gt 0 ]; then
  CC=clang CXX=clang++ cmake -S . -B build-fuzz -DBCAST_FUZZ=ON -DBCAST_TESTS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build-fuzz -j"$JOBS" --target fuzz_rapidjson_proto fuzz_broadcast_url
  for target in rapidjson_proto broadcast_url; do
    echo "== libFuzzer: $target, ${FUZZ_SECONDS}s"
    corpus=$(mktemp -d)
    cp tests/fuzz/corpus/$target/* "$corpus"/
    ./build-fuzz/bin/fuzz_$target -max_total_time="$FUZZ_SECONDS" -timeout=10 -rss_limit_mb=2048 \
      "$corpus" 2>&1 | tail -n 3
    rm -rf "$corpus"
  done
fi
echo "== all tests passed"
