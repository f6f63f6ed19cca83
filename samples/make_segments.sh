#!/usr/bin/env bash
# Makes samples/segments/segment-{1,2,3}.vrx: finished temporary files as a recorder leaves
# them for appending, one for each partition of samples/sample.vrx (2 s of its H.264 and AAC,
# the same packets, sync nodes and wall clocks), written by the project's tools/vrx_write with
# the VRX writer. The third starts 30 s after the second ends.
#
# Usage: samples/make_segments.sh [path of vrx_write]    (needs the built addon for the listing)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
tool=${1:-$here/../build/tools/vrx_write}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

node "$here/../bin/vidora.js" partitions "$here/sample.vrx" --json > "$work/partitions.json"
node "$here/../bin/vidora.js" frames "$here/sample.vrx" --json > "$work/frames.json"
# One description per partition: its frames with their payloads read from the sample, and a
# sync node before each key frame that has one of its own.
node - "$work" "$here/sample.vrx" <<'JS'
const fs = require('fs');
const [work, sample] = process.argv.slice(2);
const partitions = JSON.parse(fs.readFileSync(`${work}/partitions.json`));
const frames = JSON.parse(fs.readFileSync(`${work}/frames.json`));
partitions.forEach((p, n) => {
  const lines = [`partition ${p.fixedMetadata}`];
  let sync = '';
  for (const f of frames) {
    if (f.offset < p.contentsBounds.offset || f.offset >= p.contentsBounds.offset + p.contentsBounds.length) continue;
    const { streamClock: sc, wallClock: wc } = f.clockSync;
    const node = sc.clockRate ? `sync ${sc.value} ${sc.clockRate} ${wc.value * 1000 / wc.clockRate}` : '';
    if (node && node !== sync) lines.push(node);
    sync = node || sync;
    const payload = `file:${sample}:${f.offset}:${f.length}`;
    const { dts, cts, clockRate } = f.timestamp;
    lines.push(f.trackId === 1000 ? `audio ${dts.value} ${clockRate} ${payload}`
      : `video ${dts.value} ${clockRate} ${cts.value} ${f.isKeyFrame ? 1 : 0} ${payload}`);
  }
  lines.push('end');
  fs.writeFileSync(`${work}/segment-${n + 1}.txt`, lines.join('\n') + '\n');
});
JS
for n in 1 2 3; do
  "$tool" "$here/segments/segment-$n.vrx" "$work/segment-$n.txt" > /dev/null
  echo "wrote samples/segments/segment-$n.vrx ($(stat -c %s "$here/segments/segment-$n.vrx") bytes)"
done
