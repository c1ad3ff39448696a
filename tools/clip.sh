#!/usr/bin/env bash
# Prints the path of a real clip (1280x720, H.264 with sound, 14 s) and fetches it first if it is not there: it is part of
# a Debian package that is downloaded and unpacked, not installed.
set -euo pipefail
cd "$(dirname "$0")/.."
clip=out/cockatoo.mp4
if [ ! -s "$clip" ]; then
  mkdir -p out
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  (cd "$work" && { apt-get -o APT::Sandbox::User=root download -qq python3-imageio || { apt-get update -qq && apt-get -o APT::Sandbox::User=root download -qq python3-imageio; }; } >&2 &&
    dpkg-deb -x python3-imageio_*.deb .)
  found=$(find "$work" -name cockatoo.mp4 | head -n 1)
  [ -n "$found" ] || { echo "clip: the package python3-imageio holds no cockatoo.mp4" >&2; exit 1; }
  cp "$found" "$clip"
fi
echo "$clip"
