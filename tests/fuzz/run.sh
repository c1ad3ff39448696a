#!/usr/bin/env bash
# Runs the fuzz targets of a build, a line each, and says last how many passed and failed.
#
#   tests/fuzz/run.sh BUILD [TARGET...]     build/fuzz; all targets, or these: graph launch ...
#
# PANTIQ_FUZZ_SECONDS is the time of each, 60 unless it is set. What a target finds stays in BUILD/findings, with its log;
# play it again with BUILD/bin/fuzz_TARGET FILE.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "$1" && pwd) || exit 2
shift
seconds=${PANTIQ_FUZZ_SECONDS:-60}
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(graph launch file stream stored plugin media)
export ASAN_OPTIONS="allocator_may_return_null=1:detect_stack_use_after_return=0:${ASAN_OPTIONS:-}"
export LSAN_OPTIONS="suppressions=$root/tests/support/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1"

# make_clips FOLDER: a few frames of 32 by 24 pixels in several containers and codecs, one with sound.
make_clips() {
  local name
  local video=(-f lavfi -i "testsrc=size=32x24:rate=10:duration=0.3") sound=(-f lavfi -i "sine=duration=0.1:sample_rate=8000")
  mkdir -p "$1"
  command -v ffmpeg >/dev/null || return 0
  for name in mjpeg.avi huffyuv.avi ffv1.mkv mpeg4.mp4 wmv2.asf; do
    ffmpeg -v error -y "${video[@]}" -c:v "${name%.*}" -bitexact "$1/$name" </dev/null
  done
  ffmpeg -v error -y "${video[@]}" "${sound[@]}" -c:v mjpeg -c:a pcm_s16le -bitexact "$1/sound.avi" </dev/null
}

passed=0 failed=0
findings=$build/findings
mkdir -p "$findings"
for target in "${targets[@]}"; do
  program=$build/bin/fuzz_$target
  if [ ! -x "$program" ]; then
    echo "fuzz $target: left out, it was not built"
    continue
  fi
  grown=$build/corpus/$target
  mkdir -p "$grown"
  words=()
  case $target in
    launch | file | stored) words=("-dict=$build/tests/fuzz/text.dict") ;;
    stream) words=("-dict=$build/tests/fuzz/stream.dict") ;;
  esac
  log=$findings/$target.log
  seeds=$root/tests/fuzz/corpus/$target
  longest=4096
  if [ "$target" = media ]; then  # clips are made, not kept
    seeds=$build/clips longest=16384
    words=(-detect_leaks=0)  # of the platform's libraries
    make_clips "$seeds"
  fi
  "$program" "${words[@]}" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2560 -malloc_limit_mb=1024 -max_len="$longest" \
    -print_final_stats=1 -artifact_prefix="$findings/$target-" "$grown" "$seeds" >"$log" 2>&1
  code=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  if [ $code -eq 0 ]; then
    echo "fuzz $target: ${runs:-0} inputs in $seconds s, no finding"
    passed=$((passed + 1))
  elif [ "$target" = media ] && grep -aE '^ *#[0-2] ' "$log" | head -n 3 | grep -qE '/lib[a-z0-9]+[^ ]*\.so' &&
    ! grep -aE '^ *#[0-2] ' "$log" | head -n 3 | grep -q 'pantiq::'; then
    echo "fuzz $target: ended after ${runs:-some} inputs by a fault inside the platform's libraries, which is not ours; see $log"
    passed=$((passed + 1))
  else
    echo "fuzz $target: a finding after ${runs:-some} inputs: $(grep -aE 'SUMMARY:|^fuzz: |runtime error:' "$log" | head -n 1); see $log"
    failed=$((failed + 1))
  fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
