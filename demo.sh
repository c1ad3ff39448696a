#!/usr/bin/env bash
# Builds Pantiq and runs its main job on a real clip: reads an MP4 file with sound, mirrors every frame, writes an ASF
# file. Installs what is missing. Results are in out/.
set -euo pipefail
cd "$(dirname "$0")"
./setup.sh
echo "demo: building"
cmake --preset release -DPANTIQ_TESTS=OFF -DPANTIQ_BENCH=OFF -B build/demo >build-demo.log 2>&1 || { cat build-demo.log >&2; exit 1; }
cmake --build build/demo >>build-demo.log 2>&1 || { tail -n 40 build-demo.log >&2; exit 1; }
rm -f build-demo.log
pantiq=build/demo/bin/pantiq

mkdir -p out
clip=$(./tools/clip.sh)
echo "demo: $clip"
set -x
$pantiq run "TPQASFPlayer Name=player FileName='$clip'
             ! TPQMirror MirrorType=mtVertical
             ! TPQASFLogger Name=logger FileName=out/mirrored.asf
             player.AudioOutputPin ! logger.AudioInputPin" --overwrite
$pantiq run "TPQASFPlayer FileName='$clip' ! frames 'out/before-%d.png'" --from 500ms --frames 1 --overwrite --quiet
$pantiq run "TPQASFPlayer FileName=out/mirrored.asf ! frames 'out/after-%d.png'" --from 500ms --frames 1 --overwrite --quiet
{ set +x; } 2>/dev/null
ffmpeg -v error -y -i out/before-0.png -i out/after-0.png -filter_complex '[0]scale=320:-2[a];[1]scale=320:-2[b];[a][b]hstack' out/demo.png
frames=$(ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 out/mirrored.asf)
sound=$(ffprobe -v error -select_streams a -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 out/mirrored.asf)
echo
echo "demo: out/mirrored.asf has $frames frames and sound ($sound); any player opens it"
echo "demo: out/demo.png shows one frame before (left) and after (right)"
