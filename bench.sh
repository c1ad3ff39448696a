#!/usr/bin/env bash
# Builds in release and measures: the cost of a hop, every kernel in each processor variant, whole graphs. Beside Pantiq's
# own figures it runs OpenCV's and GStreamer's side of the comparison where that folder and OpenCV are there, and says so
# where they are not. Figures belong to the machine they were measured on; use a quiet one.
#
#   ./bench.sh                everything
#   ./bench.sh hop kernels combine graphs effects plugins screen trips peers   only these
#   PANTIQ_PEERS=FOLDER       where the comparison lives (../shared/peer-bench)
set -euo pipefail
cd "$(dirname "$0")"
parts=("$@")
[ ${#parts[@]} -gt 0 ] || parts=(hop kernels combine graphs effects plugins screen trips peers)
peers=${PANTIQ_PEERS:-../shared/peer-bench}

./setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" | tail -n 1
bin=build/release/bin lib=$PWD/build/release/lib
mkdir -p out

for part in "${parts[@]}"; do
  case $part in
    hop)
      echo; echo "== the cost of a hop"
      $bin/bench_hop
      ;;
    kernels)
      echo; echo "== kernels, ns per pixel at 1920x1080"
      $bin/bench_kernels
      ;;
    combine)
      echo; echo "== components that join two frames beside their kernels"
      $bin/bench_combine
      ;;
    graphs)
      echo; echo "== whole graphs"
      bench/apps/graphs.sh
      ;;
    effects)
      echo; echo "== effects of the platform beside the same elements in pipelines"
      if [ -x $bin/bench_effects ]; then $bin/bench_effects; else echo "skipped: built without PANTIQ_MEDIA"; fi
      ;;
    plugins)
      echo; echo "== what a plug-in costs beside its own work"
      $bin/bench_plugins
      ;;
    trips)
      echo; echo "== there and back through every codec"
      if [ -x $bin/bench_round_trips ]; then $bin/bench_round_trips "$(./tools/clip.sh)"; else echo "skipped: built without PANTIQ_MEDIA"; fi
      ;;
    screen)
      echo; echo "== video on a virtual display, 60 frames per second for a minute"
      if [ ! -x $bin/bench_out ]; then
        echo "skipped: built without PANTIQ_MEDIA"
      elif ! command -v Xvfb >/dev/null; then
        echo "skipped: no virtual display (./setup.sh installs xvfb)"
      else
        number=$(mktemp)
        Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$number" 2>/dev/null &
        server=$!
        until [ -s "$number" ] || ! kill -0 $server 2>/dev/null; do sleep 0.1; done
        DISPLAY=":$(cat "$number")" $bin/bench_out || true
        kill $server; wait $server 2>/dev/null || true
        rm -f "$number"
      fi
      ;;
    peers)
      echo; echo "== beside OpenCV and GStreamer"
      if [ ! -f "$peers/Makefile" ]; then
        echo "skipped: no comparison in $peers (set PANTIQ_PEERS)"
        continue
      fi
      if ! pkg-config --exists opencv4 || ! command -v make >/dev/null; then
        echo "skipped: OpenCV or make is not installed (./setup.sh --bench)"
        continue
      fi
      work=build/peers
      libs="$lib/libpantiq_filters.a $lib/libpantiq_core.a $lib/libpantiq_kernels.a $lib/libpantiq_host.a -lpng -ljpeg"
      export PANTIQ_ROOT=$PWD PANTIQ_LIBS=$libs BUILD=$PWD/$work
      mkdir -p "$work"
      make -s -C "$peers" SUBJECT=pantiq FAMILIES="base noise formats neighbourhood wiener colour point geometry components" CXXFLAGS="-O3 -march=x86-64-v3 -I$PWD/bench/peer" kernels 2>/dev/null
      make -s -C "$peers" SUBJECT_CHAIN=bench/peer/pantiq_chain.h chain 2>/dev/null
      echo "-- a hop beside GStreamer's elements, 16x16, ns per element"
      "$work/pantiq_chain/gst_chain" --mode overhead --runs 7 2>/dev/null | tee out/peers_hop.csv |
        awk -F, '$0 !~ /^peer/ && NF >= 13 { gsub(/"/, "") } NR > 1 && $7 == 100 || $8 == 100 { print }' | cut -c1-160
      for code in a6 t7; do
        PANTIQ_CPU=$code "$work/pantiq/peer_kernels" --threads 1 --sizes 1920x1080 --out "out/peers_$code.csv" 2>/dev/null
        echo "-- kernels beside OpenCV, 1920x1080, one thread, variant $code"
        python3 "$peers/tools/make_table.py" --check --require base,noise,formats,neighbourhood,wiener,colour,point,geometry,components "out/peers_$code.csv" "$peers/targets.csv" || true
      done
      ;;
    *)
      echo "bench: unknown part '$part'; expected hop, kernels, combine, graphs, effects, plugins, screen or peers" >&2
      exit 2
      ;;
  esac
done
