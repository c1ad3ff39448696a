#!/usr/bin/env bash
# How much of the plain kernels, core and compose the tests run: builds with gcc's coverage, runs the tests of the rooms and
# prints lines and branches (tools/coverage.py), with those that no test reaches.
#
#   tools/coverage.sh             builds, runs, prints
#   tools/coverage.sh --only      prints again what the last run has left
set -euo pipefail
cd "$(dirname "$0")/.."
rooms=(host kernels core filters flow compose design)

if [ "${1:-}" != --only ]; then
  cmake --preset coverage >/dev/null
  cmake --build build/coverage -j "$(nproc)" --target "${rooms[@]/#/test_}" | grep -vE '^\[[0-9]+/[0-9]+\]' || true
  find build/coverage -name '*.gcda' -delete
  for room in "${rooms[@]}"; do
    (cd "build/coverage/tests/$room" && # the sweeps over all inputs reach nothing that the other tests do not
      PANTIQ_CPU=px ../../bin/"test_$room" --gtest_brief=1 --gtest_filter='-*EveryColor:*EveryInput:*LargestPictures')
  done
fi
python3 tools/coverage.py build/coverage
