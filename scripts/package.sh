#!/usr/bin/env bash
# Builds the Debian packages: sets up the machine, makes a Release build installed under /usr, packs one
# package per component with CPack (dependencies from dpkg-shlibdeps) and checks them with lintian.
# The packages land in build-pkg/packages.
#   BUILD_DIR=DIR  build directory (default build-pkg)
#   JOBS=N         parallel build jobs (default 2)
#   SKIP_SETUP=1   do not run scripts/setup.sh (the machine is set up already)
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${BUILD_DIR:-build-pkg}
JOBS=${JOBS:-2}

[ "${SKIP_SETUP:-0}" = "1" ] || scripts/setup.sh

# Debian's hardening flags: stack protector, fortified functions, format checks, full RELRO with immediate
# binding. Debug information is left out (the packages are stripped), and so is the clone's path (its
# prefix map), so that every clone shares the compiler cache.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
COMPILE_FLAGS="$(dpkg-buildflags --get CPPFLAGS) $(dpkg-buildflags --get CXXFLAGS |
  sed -e 's/-ffile-prefix-map=[^ ]*//' -e 's/^-g //' -e 's/ -g / /')"
LINK_FLAGS="$(dpkg-buildflags --get LDFLAGS)"

echo "== Release build for the packages in $BUILD_DIR"
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=Release -DBCAST_TESTS=OFF -DBCAST_SANITIZE=OFF -DBCAST_TSAN=OFF \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_CXX_FLAGS="$COMPILE_FLAGS" -DCMAKE_C_FLAGS="$COMPILE_FLAGS" \
  -DCMAKE_EXE_LINKER_FLAGS="$LINK_FLAGS" -DCMAKE_SHARED_LINKER_FLAGS="$LINK_FLAGS" >/dev/null
cmake --build "$BUILD_DIR" -j"$JOBS"

echo "== Debian packages"
rm -f "$BUILD_DIR"/packages/*.deb
(cd "$BUILD_DIR" && cpack -G DEB >/dev/null)

echo "== lintian"
# Warnings are reported; an error fails the build of the packages.
lintian --fail-on error "$BUILD_DIR"/packages/*.deb || { echo "package: lintian found errors" >&2; exit 1; }
ls -1 "$BUILD_DIR"/packages/*.deb
