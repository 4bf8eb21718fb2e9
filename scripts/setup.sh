#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test, run the demo and benchmark.
# Idempotent: packages already present are skipped by apt; the update runs only when a package is missing.
set -euo pipefail

PACKAGES=(
  # toolchain helpers
  cmake pkg-config ccache clang libclang-rt-14-dev
  # command lines of the programs (header-only)
  libcli11-dev
  # Debian packages: build (file: CPack finds the binaries for dpkg-shlibdeps with it), checks, and the
  # package test's page fetch
  dpkg-dev fakeroot lintian file curl
  # Qt 5
  qtbase5-dev libqt5websockets5-dev libqt5webchannel5-dev qttools5-dev qttools5-dev-tools
  # framework libraries
  rapidjson-dev libcurl4-openssl-dev libssl-dev libspdlog-dev libcpp-httplib-dev
  # audio
  portaudio19-dev libasound2-dev libjack-jackd2-dev libmp3lame-dev libmpg123-dev libsoxr-dev libspandsp-dev
  libavformat-dev libavcodec-dev libswresample-dev libsndfile1-dev libfftw3-dev
  # streaming
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstrtspserver-1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-good gstreamer1.0-plugins-base gstreamer1.0-plugins-bad
  gstreamer1.0-rtsp gstreamer1.0-libav gir1.2-gst-rtsp-server-1.0 python3-gi
  # tests, peers and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev openssl python3 python3-cryptography
  ffmpeg sox espeak-ng pulseaudio pulseaudio-utils libasound2-plugins alsa-utils xvfb xauth time gnuplot-nox
  # a font with Chinese characters, for the zh_CN console and its pictures
  fonts-wqy-microhei
  # the browser of the web page tests
  chromium
)

# Node.js and npm (for the object-storage peer) come from the machine image when present;
# Debian's nodejs package conflicts with that npm, so it is installed only when node is missing.
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
  PACKAGES+=(nodejs npm)
fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#PACKAGES[@]} packages present"
else
  echo "setup: installing ${#missing[@]} packages: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The object store (s3rver) of the platform, the demo and the tests, pinned by its lock file. Installed
# again when the lock file is newer than the installed tree.
STORE_DIR="$(cd "$(dirname "$0")" && pwd)/objectstore"
STAMP="$STORE_DIR/node_modules/.package-lock.json"
if [ ! -f "$STAMP" ] || [ "$STORE_DIR/package-lock.json" -nt "$STAMP" ]; then
  echo "setup: installing the object store (npm ci in scripts/objectstore)"
  npm ci --prefix "$STORE_DIR" --no-audit --no-fund --loglevel=error
fi
# Playwright's library for the web page tests (it drives Debian's chromium; no browser is downloaded).
WEB_DIR="$(cd "$(dirname "$0")/.." && pwd)/tests/web"
WEB_STAMP="$WEB_DIR/node_modules/.package-lock.json"
if [ ! -f "$WEB_STAMP" ] || [ "$WEB_DIR/package-lock.json" -nt "$WEB_STAMP" ]; then
  echo "setup: installing the browser test library (npm ci in tests/web)"
  PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 npm ci --prefix "$WEB_DIR" --no-audit --no-fund --loglevel=error
fi
echo "setup: done"
