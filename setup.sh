#!/usr/bin/env bash
# Installs what Pantiq needs on a Debian 12 machine: compiler, libraries, media plug-ins, tools of the tests. Installs
# only what is missing, asks nothing, can be run again. This is the only place that names packages.
#
#   ./setup.sh            to build, run and test
#   ./setup.sh --bench    also the peers of the speed comparison (OpenCV, GStreamer's tools)
#   ./setup.sh --long     also what the long set needs (clang with its fuzzer)
set -euo pipefail

build=(g++ cmake ninja-build pkg-config git python3 ca-certificates
  libpng-dev libjpeg62-turbo-dev libcli11-dev nlohmann-json3-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  libavcodec-dev libavformat-dev libavutil-dev libswscale-dev
  qt6-base-dev)
run=(gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-x)
check=(libgtest-dev libgmock-dev libbenchmark-dev gstreamer1.0-tools ffmpeg binutils xvfb make patch python3-markdown)
peers=(libopencv-dev libavfilter-dev)
long=(clang libclang-rt-14-dev llvm)

wanted=("${build[@]}" "${run[@]}" "${check[@]}")
[ "${1:-}" = "--bench" ] && wanted+=("${peers[@]}")
[ "${1:-}" = "--long" ] && wanted+=("${long[@]}")

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: everything is installed"
  exit 0
fi

echo "setup: installing ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: run as root, or install sudo: these packages are missing: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
if ! { "${as_root[@]}" apt-get update -qq && "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "setup: apt-get could not install the packages named above" >&2
  exit 1
fi
rm -f "$log"
echo "setup: done"
