#!/usr/bin/env bash
# Whole graphs: the demo graph (file, mirror, file at 1280 by 720 with sound) beside the same pipeline of GStreamer elements
# with BGR caps between decoder, flip and encoder, same encoder and settings, in turn; then graphs without files.
set -euo pipefail
cd "$(dirname "$0")/../.."
pantiq=build/release/bin/pantiq
clip=$(./tools/clip.sh)
runs=${RUNS:-5}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

ours() {
  $pantiq run "TPQASFPlayer Name=p FileName='$clip' ! TPQMirror MirrorType=mtVertical ! TPQASFLogger Name=l FileName=$out/ours.asf
               p.AudioOutputPin ! l.AudioInputPin" --overwrite --quiet
}
theirs() {
  gst-launch-1.0 -q uridecodebin uri="file://$PWD/$clip" name=d \
    d. ! queue ! audioconvert ! audioresample ! audio/x-raw,rate='[8000,48000]',channels=2 ! avenc_wmav2 bitrate=128000 ! queue ! m. \
    d. ! queue max-size-buffers=3 ! videoconvert ! video/x-raw,format=BGR ! videoflip video-direction=horiz ! video/x-raw,format=BGR ! \
    videoconvert ! queue max-size-buffers=2 ! avenc_wmv2 qmin=3 qmax=3 gop-size=25 ! m. \
    avmux_asf name=m ! filesink location="$out/theirs.asf" >/dev/null 2>&1
}
seconds() {
  local begin end
  begin=$(date +%s%N)
  "$@"
  end=$(date +%s%N)
  awk -v ns=$((end - begin)) 'BEGIN { printf "%.3f\n", ns / 1e9 }'
}

ours && theirs  # warm up
: >"$out/ours.txt" && : >"$out/theirs.txt"
for _ in $(seq "$runs"); do
  seconds ours >>"$out/ours.txt"
  seconds theirs >>"$out/theirs.txt"
done
median() { sort -n "$1" | sed -n "$(((runs + 1) / 2))p"; }
a=$(median "$out/ours.txt") b=$(median "$out/theirs.txt")
frames=$(ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 "$out/ours.asf")
echo "file, mirror, file, 1280x720, $frames frames with sound, median of $runs runs in turn, seconds:"
echo "  pantiq $a   GStreamer elements $b   ratio $(awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f", a / b }')"
echo
# The player alone: CPU seconds (user and system, every thread) of decoding the clip's video to colour and dropping the frames.
ffmpeg -v error -i "$clip" -c copy -an "$out/silent.mp4"
player() { $pantiq run --quiet "TPQASFPlayer FileName='$out/silent.mp4' ! TPQSwitch Enabled=false"; }
decoder() {
  gst-launch-1.0 -q filesrc location="$out/silent.mp4" ! qtdemux ! avdec_h264 ! videoconvert ! video/x-raw,format=BGR ! \
    fakesink sync=false >/dev/null 2>&1
}
cpu() {
  local TIMEFORMAT='%U %S'
  { time "$@"; } 2>&1 | awk 'NF == 2 { printf "%.3f\n", $1 + $2 }'
}
player && decoder
: >"$out/player.txt" && : >"$out/decoder.txt"
for _ in $(seq "$runs"); do
  cpu player >>"$out/player.txt"
  cpu decoder >>"$out/decoder.txt"
done
a=$(median "$out/player.txt") b=$(median "$out/decoder.txt")
echo "player without a sink, median of $runs runs in turn, CPU seconds:"
echo "  pantiq $a   decoder, videoconvert to BGR, fakesink $b   ratio $(awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f", a / b }')"
echo
for line in 'TPQJaehneGen ImageSize.Width=1920 ImageSize.Height=1080 ! TPQMirror MirrorType=mtVertical ! checksum FileName=/dev/null' \
  'TPQJaehneGen ImageSize.Width=1920 ImageSize.Height=1080 ! TPQUniformNoise High=40 ! TPQMirror ! TPQCrop Region.Width=1280 Region.Height=720 ! checksum FileName=/dev/null'; do
  echo "$line"
  $pantiq bench "$line" --frames 500 --overwrite
  echo
done
