#!/usr/bin/env bash
# Makes samples/sample.vrx from real bitstreams: 6 s of H.264 (ffmpeg's testsrc2, 320x240,
# 25 fps, baseline, a key frame every second with SPS/PPS in band) and AAC (a 440 Hz sine,
# 48 kHz mono, ADTS), written by the project's tools/vrx_write (WriterVREX) as three partitions
# of 2 s. Each key frame has a clock sync node just before it, so each partition's seek table
# has two entries. The recording starts at 2026-01-01T00:00:00.000Z; the third partition was
# recorded 30 s after the second ended, a gap in the wall clock.
#
# Usage: samples/make_sample.sh [path of vrx_write] [output]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
tool=${1:-$here/../build/tools/vrx_write}
out=${2:-$here/sample.vrx}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

ffmpeg -hide_banner -loglevel error -y -f lavfi -i testsrc2=size=320x240:rate=25 -t 6 \
  -c:v libx264 -profile:v baseline -preset veryfast -crf 30 -g 25 -keyint_min 25 -sc_threshold 0 \
  -x264-params repeat-headers=1 -f h264 "$work/video.h264"
ffmpeg -hide_banner -loglevel error -y -f lavfi -i sine=frequency=440:sample_rate=48000 -t 6 \
  -c:a aac -b:a 32k -ac 1 -f adts "$work/audio.aac"

# One row per packet: size,pos,flags (K for key frames).
ffprobe -v error -show_entries packet=size,pos,flags -of csv=p=0 "$work/video.h264" > "$work/video.csv"
ffprobe -v error -show_entries packet=size,pos,flags -of csv=p=0 "$work/audio.aac" > "$work/audio.csv"

# Video frame i: DTS i * 3600 at 90 kHz. Audio frame j: DTS j * 1024 at 48 kHz, written before
# the video frame that it does not follow. Wall clock = start + stream time + the gap.
awk -F, -v video="$work/video.h264" -v audio="$work/audio.aac" -v start=1767225600000 '
  FNR == NR { asize[n] = $1; apos[n] = $2; n++; next }
  {
    i = FNR - 1
    dts = i * 3600
    if (i % 50 == 0) {
      if (i > 0) print "end"
      gap = (i >= 100) ? 30000 : 0
      printf "partition %02x%02x00000000000000000000 %s\n", i / 50 + 1, 1, (i == 0 ? "6669727374" : "")
    }
    while (a < n && a * 1024 * 90000 <= dts * 48000) {
      printf "audio %d 48000 file:%s:%d:%d\n", a * 1024, audio, apos[a], asize[a]
      a++
    }
    key = ($3 ~ /K/) ? 1 : 0
    if (key) printf "sync %d 90000 %.0f\n", dts, start + gap + dts / 90
    printf "video %d 90000 0 %d annexb:%s:%d:%d\n", dts, key, video, $2, $1
  }
  END { print "end" }
' "$work/audio.csv" "$work/video.csv" > "$work/sample.txt"

"$tool" "$out" "$work/sample.txt" > /dev/null
echo "wrote $out ($(stat -c %s "$out") bytes)"
