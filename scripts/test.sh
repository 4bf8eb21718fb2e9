#!/usr/bin/env bash
# Sets up the machine, then runs the whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer
# (the fuzz corpora replayed among it, the fault matrix and a two-minute soak), the concurrent parts under
# ThreadSanitizer, the Debian packages (built, extracted and run), and a short libFuzzer run of every fuzz
# target (scripts/fuzz.sh).
#   JOBS=N         parallel build and test jobs (default 2)
#   FUZZ_SECONDS=N length of each target's fuzz run (default 10; 0 skips them)
#   PACKAGES=0     skips the Debian packages
set -euo pipefail
cd "$(dirname "$0")/.."
JOBS=${JOBS:-2}
FUZZ_SECONDS=${FUZZ_SECONDS:-10}

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
  echo "== libFuzzer: every target, ${FUZZ_SECONDS}s each"
  JOBS="$JOBS" scripts/fuzz.sh "$FUZZ_SECONDS"
fi
echo "== all tests passed"
