'use strict';
// The spans of continuous recording of a file, as a timeline shows them. vrxFileListFragments
// reads them from the seek tables, so a span of a partition ends at its last seek point (the
// last key frame), and no span crosses partitions. Here a span that ends at its partition's
// last seek point reaches on to the partition's last video frame, and spans that follow each
// other within the engine's own gap for continuity (less than 2,001 ms) are one.
const { HttpError } = require('./http_error');

const CONTINUOUS_GAP_MS = 2000;

// [{ start, end }] in ms, of `file` within [from, to] (each optional).
async function listSpans(api, file, from, to) {
  const [{ fragments }, { partitions }] = await Promise.all([
    api.vrxFileListFragments({ fileName: file, wallClockStart: from || 0, wallClockEnd: to || 0 }),
    api.vrxFileListPartitions(file),
  ]);
  const lastFrames = new Map();  // wall clock of a partition's last seek point -> of its last frame
  for (const p of partitions) {
    const last = p.seekPoints[p.seekPoints.length - 1];
    if (last && p.lastVideoWallClockMillis > last.wallClockMillis) lastFrames.set(last.wallClockMillis, p.lastVideoWallClockMillis);
  }
  const spans = [];
  for (const f of fragments) {
    let end = lastFrames.get(f.wallClockEnd) || f.wallClockEnd;
    if (to > 0) end = Math.min(end, to);
    const previous = spans[spans.length - 1];
    if (previous && f.wallClockStart - previous.end <= CONTINUOUS_GAP_MS) previous.end = Math.max(previous.end, end);
    else spans.push({ start: f.wallClockStart, end });
  }
  return spans;
}

// The range to serve for a request of [from, to] (each optional): a start in a gap moves to
// the next span, since the engine would otherwise snap it back to the last key frame before
// the gap; a range with nothing recorded in it is a 404, except a start past the end of a
// recording that `follows` (a stream without an end): the recording may be growing, and the
// stream starts at its last key frame.
async function recordedRange(api, file, from, to, follows) {
  const spans = await listSpans(api, file);
  const first = spans.find((s) => (from === undefined || s.end >= from) && (to === undefined || s.start <= to));
  if (first) return { from: from === undefined || from >= first.start ? from : first.start, to };
  if (follows && to === undefined && spans.length > 0) return { from, to };
  throw new HttpError(404, 'EMPTY_RANGE', 'nothing was recorded in that range');
}

module.exports = { listSpans, recordedRange };
