#!/bin/sh
# Makes the seed corpora of the fuzz targets under fuzz/seeds/<target>/: small inputs that
# reach deep into each parser, so that a run starts from parameter sets, key frames and whole
# files instead of from nothing. Rerunning rewrites every seed.
#
#   h264, hevc, av1, aac  cut by python3 from the ffmpeg-made streams in test/fixtures/codecs:
#                         parameter sets and the key frame's first bytes in the framings the
#                         target reads (length-prefixed, Annex B, bare NAL units, OBUs, ADTS)
#   mp4_reader            a few frames encoded by ffmpeg, remuxed without metadata and SEI
#   vrx_reader            files written by tools/vrx_write from the descriptions below
#
# Usage: fuzz/make_seeds.sh [BUILD_DIR]   (BUILD_DIR holds tools/vrx_write, i.e. a build with
#        -DVIDORA_BUILD_TESTS=ON; default build). Needs ffmpeg (libx264, libx265, libaom-av1,
#        the native aac and ac3 encoders) and python3.
set -eu
fuzz=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$fuzz")
build=$(cd "${1:-$root/build}" && pwd)
vrx_write="$build/tools/vrx_write"
[ -x "$vrx_write" ] || { echo "make_seeds.sh: $vrx_write not built" >&2; exit 1; }
seeds="$fuzz/seeds"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
for target in h264 hevc av1 aac mp4_reader vrx_reader; do
  rm -rf "${seeds:?}/$target"
  mkdir -p "$seeds/$target"
done

# ---- codec parsers
python3 - "$root/test/fixtures/codecs" "$seeds" <<'PY'
import os, sys
src, out = sys.argv[1:]
CUT = 96  # bytes kept of a slice or frame: its header and the start of its data

def read(name):
    return open(os.path.join(src, name), "rb").read()

def write(target, name, data):
    open(os.path.join(out, target, name), "wb").write(data)

def field(name, key):
    for line in open(os.path.join(src, name + ".txt")):
        k, _, v = line.strip().partition("=")
        if k == key:
            return v
    raise KeyError(key)

def packets(name, key="es_packets"):
    return [tuple(int(x) for x in p.split(":")) for p in field(name, key).split()]

def length_prefixed(data):
    units, i = [], 0
    while i + 4 <= len(data):
        n = int.from_bytes(data[i:i + 4], "big")
        units.append(data[i + 4:i + 4 + n])
        i += 4 + n
    return units

def avcc(units):
    return b"".join(len(u).to_bytes(4, "big") + u for u in units)

def annexb(units):
    return b"".join(b"\0\0\0\1" + u for u in units)

def unescape(nal):
    out = bytearray()
    for b in nal:
        if len(out) >= 2 and out[-1] == 0 and out[-2] == 0 and b == 3:
            continue
        out.append(b)
    return bytes(out)

# H.264: SPS, PPS and the IDR slice's start (the SEI of x264's settings left out), and the
# SPS and PPS alone as ParseSPS / ParsePPS read them.
for name in ("h264_baseline", "h264_main", "h264_high", "h264_crop", "h264_ntsc", "h264_notiming"):
    units = {u[0] & 0x1F: u for u in length_prefixed(read(name + ".key"))}
    key = [units[7], units[8], units[5][:CUT]]
    write("h264", name + "_key.avcc", avcc(key))
    write("h264", name + "_sps.nal", unescape(units[7]))
    if name in ("h264_baseline", "h264_high"):
        write("h264", name + "_pps.nal", unescape(units[8]))
    if name == "h264_baseline":
        # The AAC target also runs the two NAL framing converters.
        write("aac", "h264_key.avcc", avcc(key))
        write("aac", "h264_key.annexb", annexb(key))

# H.265: VPS, SPS, PPS and the IDR slice's start, length-prefixed for the codec info and in
# Annex B for the parser; the SPS alone for processNALUnit.
for name in ("h265_main", "h265_main10", "h265_notiming"):
    units = {(u[0] >> 1) & 0x3F: u for u in length_prefixed(read(name + ".key"))}
    key = [units[32], units[33], units[34], units[19 if 19 in units else 20][:CUT]]
    write("hevc", name + "_key.hvcc", avcc(key))
    write("hevc", name + "_key.annexb", annexb(key))
    write("hevc", name + "_sps.nal", units[33])

# AV1: the key temporal unit with its frame OBU cut short (its size rewritten), and the next
# two temporal units whole, temporal delimiters included, as the stream carries them.
def leb128(value):
    out = bytearray()
    while True:
        b = value & 0x7F
        value >>= 7
        out.append(b | (0x80 if value else 0))
        if not value:
            return bytes(out)

def obus(data):
    i = 0
    while i < len(data):
        header = data[i:i + 1 + ((data[i] >> 2) & 1)]
        j = i + len(header)
        size = shift = 0
        while True:
            b = data[j]
            j += 1
            size |= (b & 0x7F) << shift
            shift += 7
            if not b & 0x80:
                break
        yield header, data[j:j + size]
        i = j + size

for name in ("av1_main8", "av1_main10"):
    cut = b"".join(h + leb128(len(p[:CUT])) + p[:CUT] for h, p in obus(read(name + ".key")))
    write("av1", name + "_key.obu", cut)
    stream = read(name + ".obu")
    for number, (offset, size) in enumerate(packets(name)[1:3], 2):
        write("av1", "%s_tu%d.obu" % (name, number), stream[offset:offset + size])

# AAC: the first ADTS frame and the AudioSpecificConfig ffmpeg put in esds.
for name in ("aac_44100_mono", "aac_44100_stereo", "aac_48000_mono", "aac_48000_stereo"):
    offset, size = packets(name)[0]
    write("aac", name + ".adts", read(name + ".aac")[offset:offset + size])
    write("aac", name + ".asc", bytes.fromhex(field(name, "config_hex")))
PY

# ---- MP4 reader: 64x64 pictures, a few frames, short audio; the second pass is a stream copy
# without metadata, SEI and encoder names.
ff="ffmpeg -hide_banner -loglevel error -y"
picture="-f lavfi -i testsrc2=size=64x64:rate=25"
sound="-f lavfi -i sine=frequency=440:sample_rate=8000"
x264="-c:v libx264 -preset veryfast -crf 40 -pix_fmt yuv420p"
aac="-c:a aac -b:a 16k -ac 1"
remux="-c copy -map_metadata -1 -fflags +bitexact"
mp4="$seeds/mp4_reader"
$ff $picture $sound -frames:v 5 -t 0.2 $x264 -bf 2 $aac "$tmp/h264_aac.mp4"
no_sei="-bsf:v filter_units=remove_types=6"
$ff -i "$tmp/h264_aac.mp4" $remux $no_sei "$mp4/h264_aac_moov_last.mp4"
$ff -i "$tmp/h264_aac.mp4" $remux $no_sei -movflags +faststart "$mp4/h264_aac_moov_first.mp4"
$ff -i "$tmp/h264_aac.mp4" $remux $no_sei -movflags +frag_keyframe+empty_moov \
  "$mp4/h264_aac_fragmented.mp4"
# info=0: without it x265 puts its settings as an SEI into the hvcC box, where no filter reaches.
$ff $picture $sound -frames:v 4 -t 0.2 -c:v libx265 -pix_fmt yuv420p \
  -x265-params log-level=error:bframes=2:crf=45:info=0 $aac "$tmp/h265_aac.mp4"
$ff -i "$tmp/h265_aac.mp4" $remux -bsf:v filter_units=remove_types=35-40 "$mp4/h265_aac.mp4"
$ff $sound -t 0.1 $aac "$tmp/aac.mp4"
$ff -i "$tmp/aac.mp4" $remux "$mp4/aac_only.mp4"
$ff $sound -t 0.1 -c:a ac3 -b:a 32k -ac 1 "$tmp/ac3.mp4"
$ff -i "$tmp/ac3.mp4" $remux "$mp4/ac3_only.mp4"
# A track of a codec the reader does not know: its frames come out tagged UNK.
$ff $picture -frames:v 2 -c:v libaom-av1 -cpu-used 8 -usage realtime -crf 63 -b:v 0 \
  -pix_fmt yuv420p "$tmp/av1.mp4"
$ff -i "$tmp/av1.mp4" $remux "$mp4/av1_only.mp4"

# ---- VRX reader: a few frames each, payloads of a few bytes (the reader does not look into
# them). Wall clocks lie in November 2025.
vrx() {  # name, then the description on stdin
  "$vrx_write" "$seeds/vrx_reader/$1.vrx" >/dev/null
}
fixed=000102030405060708090a0b
# A clock sync node and a key frame at one instant: stream clock $1 (90 kHz), wall clock $2
# (ms). Inside a partition it makes a seek point.
key() {
  printf 'sync %s 90000 %s\nvideo %s 90000 0 1 pattern:16:1\n' "$1" "$2" "$1"
}

vrx one_partition <<EOF
partition $fixed
$(key 0 1763800000000)
audio 0 8000 pattern:12:2
video 3000 90000 6000 0 pattern:8:3
video 6000 90000 0 0 pattern:8:4
audio 1024 8000 pattern:12:5
end
EOF

# Three partitions, skip packets between the first two, dynamic metadata on the second, two
# seek points in the third.
vrx partitions <<EOF
partition $fixed
$(key 0 1763800000000)
video 3000 90000 0 0 pattern:8:2
end
pad 256
partition $fixed 6d657461
$(key 90000 1763800001000)
audio 8000 8000 pattern:12:4
end
partition $fixed
$(key 180000 1763800002000)
video 183000 90000 0 0 pattern:8:6
$(key 270000 1763800003000)
end
EOF

# Frames cut into packets of at most 16 payload bytes: first, middle and last fragments.
vrx fragmented <<EOF
fragments 16
partition $fixed
sync 0 90000 1763800000000
video 0 90000 0 1 pattern:40:1
audio 0 8000 pattern:20:2
video 3000 90000 0 0 pattern:16:3
video 6000 90000 3000 0 pattern:33:4
end
EOF

# A managed file: partitions, then a tail of skip packets up to its size.
vrx managed <<EOF
partition $fixed
$(key 0 1763800000000)
audio 0 8000 pattern:12:2
end
partition $fixed
$(key 90000 1763800001000)
end
pad 1024
EOF

# A new or cleared managed file: skip packets only.
vrx cleared <<EOF
pad 512
EOF

# Packets with no partition around them.
vrx no_partitions <<EOF
$(key 0 1763800000000)
audio 0 8000 pattern:12:2
video 3000 90000 0 0 pattern:8:3
EOF

# Timestamps of every width: a rate without a clock code (explicit rate field), a DTS above 32
# bits, a composition offset, a sync node at 1 GHz.
vrx timestamps <<EOF
partition $fixed
sync 0 1000000000 1763800000000
sync 4294967296 25000 1763800000000
video 4294967296 25000 0 1 pattern:16:1
video 4294968296 25000 2000 0 pattern:8:2
audio 4294967296 48000 pattern:12:3
end
EOF

# Audio alone: no seek points, an empty seek table.
vrx audio_only <<EOF
partition $fixed
sync 0 8000 1763800000000
audio 0 8000 pattern:12:1
audio 1024 8000 pattern:12:2
end
EOF
