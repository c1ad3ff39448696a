#!/usr/bin/env bash
# Builds and runs every test: in release (graph tests once per processor variant), under the address and
# undefined-behaviour sanitizers, and under the thread sanitizer. Installs what is missing.
#
#   ./test.sh                     everything
#   ./test.sh release             only these presets (release, asan, tsan, debug)
#   ./test.sh --long              random sets in full length, and the fuzz targets (PANTIQ_FUZZ_SECONDS each, 60)
#   ./test.sh --mutate            faults put into the sources, to see whether the tests notice (tests/mutants)
set -uo pipefail
cd "$(dirname "$0")"

if [ "${1:-}" = --mutate ]; then
  ./setup.sh && exec python3 tests/mutants/mutants.py "${@:2}"
  exit 1
fi

presets=()
for word in "$@"; do
  case $word in
    --long) export PANTIQ_TEST_LONG=1 ;;
    release | asan | tsan | debug) presets+=("$word") ;;
    *) echo "test: unknown word '$word'; expected release, asan, tsan, debug, --long or --mutate" >&2; exit 2 ;;
  esac
done
[ ${#presets[@]} -gt 0 ] || presets=(release asan tsan)

./setup.sh ${PANTIQ_TEST_LONG:+--long} || exit 1
jobs=$(nproc)
passed=0 failed=0
suppressions=$PWD/tests/support
export LSAN_OPTIONS="suppressions=$suppressions/lsan.supp:print_suppressions=0"
export TSAN_OPTIONS="suppressions=$suppressions/tsan.supp:halt_on_error=0:second_deadlock_stack=1"
export UBSAN_OPTIONS="print_stacktrace=1"

# run NAME PRESET [ctest arguments]: adds to passed and failed.
run() {
  local name=$1 preset=$2 log line
  shift 2
  log=$(mktemp)
  echo "== $name"
  ctest --test-dir "build/$preset" -j "$jobs" --output-on-failure --no-tests=ignore "$@" 2>&1 | tee "$log" | grep -vE '^( *Start |.* Passed +[0-9.]+ sec$)'
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1)
  rm -f "$log"
  [ -n "$line" ] || return 0
  local bad=${line#*passed, } all=${line##*out of }
  bad=${bad%% *}
  failed=$((failed + bad))
  passed=$((passed + all - bad))
}

for preset in "${presets[@]}"; do
  echo "== building $preset"
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" -j "$jobs"; } >"build-$preset.log" 2>&1; then
    tail -n 60 "build-$preset.log"
    echo "test: the $preset build failed"
    failed=$((failed + 1))
    continue
  fi
  rm -f "build-$preset.log"
  run "$preset" "$preset"
  if [ "$preset" = release ]; then
    for variant in px a6 w7 t7; do
      PANTIQ_CPU=$variant run "release, filters, flow and compose on variant $variant" release -L "filters|flow|compose"
    done
  fi
done

if [ -n "${PANTIQ_TEST_LONG:-}" ]; then
  echo "== fuzz targets"
  if ! command -v clang++ >/dev/null; then
    echo "fuzz: left out, there is no clang++; ./setup.sh --long installs it"
  elif ! { cmake --preset fuzz && cmake --build --preset fuzz -j "$jobs"; } >build-fuzz.log 2>&1; then
    tail -n 60 build-fuzz.log
    echo "test: the fuzz build failed"
    failed=$((failed + 1))
  else
    rm -f build-fuzz.log
    while read -r line; do
      echo "$line"
      if [[ $line =~ ^fuzz:\ ([0-9]+)\ passed,\ ([0-9]+)\ failed ]]; then
        passed=$((passed + BASH_REMATCH[1])) failed=$((failed + BASH_REMATCH[2]))
      fi
    done < <(tests/fuzz/run.sh build/fuzz)
  fi
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
