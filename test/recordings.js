'use strict';
// Recordings for the media tests: VRX files written by tools/vrx_write from the streams that
// ffmpeg made under test/fixtures/vrx (see make_vrx_fixtures.sh), with the truth about every
// frame kept beside them: which packet of the stream it is, its timestamps and wall clock.
const fs = require('fs');
const path = require('path');

const { writeVrx } = require('../tools/vrx_tools');
const { runTool } = require('./helpers');

const FIXTURES = path.join(__dirname, 'fixtures', 'vrx');
const T0 = 1767225600000;  // 2026-01-01T00:00:00.000Z
const VIDEO_RATE = 90000;
const AUDIO_RATE = 8000;

// The video streams: their file, codec word for vrx_write, and payload form (Annex B streams are
// stored with 4-byte lengths, AV1 temporal units as they are).
const STREAMS = {
  h264: { file: 'h264_gop15.h264', codec: 'h264', payload: 'annexb' },
  h264b: { file: 'h264_bframes.h264', codec: 'h264', payload: 'annexb' },
  h265: { file: 'h265_gop15.h265', codec: 'h265', payload: 'annexb' },
  av1: { file: 'av1_gop15.obu', codec: 'av1', payload: 'file' },
};

// The packets of a stream as ffprobe split it: {offset, size, key, dts, pts}.
function packets(file) {
  const text = fs.readFileSync(path.join(FIXTURES, file.replace(/\.\w+$/, '.txt')), 'utf8');
  return text.trim().split('\n').map((line) => {
    const [offset, size, key, dts, pts] = line.split(' ').map(Number);
    return { offset, size, key: key === 1, dts, pts };
  });
}

// Writes a recording of `video` (a key of STREAMS, or null) and AAC (unless audio is false)
// as partitions: each part takes the video packets [from, to) (and the audio of the same
// time), starts on the wall clock `wallClock`, and has a sync node before each key frame.
// Returns { file, frames, parts }: frames in file order with kind, index (the packet of its
// stream), key, dts, cts and wallClock (ms).
function makeRecording(file, { video = 'h264', audio = true, parts = [{ from: 0, to: 90, wallClock: T0 }] } = {}) {
  const stream = video && STREAMS[video];
  const videoPackets = stream ? packets(stream.file) : [];
  const audioPackets = audio ? packets('aac_8000.aac') : [];
  const lines = [];
  const frames = [];
  parts.forEach((part, n) => {
    lines.push(`partition ${(n + 1).toString(16).padStart(2, '0')}0100000000000000000000`);
    // The part spans its video packets' decoding times; audio of that time goes in by DTS.
    const span = videoPackets.length ? videoPackets.slice(part.from, part.to) : [];
    const startSeconds = span.length ? span[0].dts / VIDEO_RATE : part.from / 30;
    const endSeconds = span.length ? (span[span.length - 1].dts + 3000) / VIDEO_RATE : part.to / 30;
    const wallClockOf = (seconds) => Math.round(part.wallClock + (seconds - startSeconds) * 1000);
    const items = [];
    span.forEach((p, i) => items.push({ kind: 'video', index: part.from + i, p, seconds: p.dts / VIDEO_RATE }));
    audioPackets.forEach((p, index) => {
      const seconds = p.dts / AUDIO_RATE;
      if (seconds >= startSeconds && seconds < endSeconds) items.push({ kind: 'audio', index, p, seconds });
    });
    items.sort((a, b) => a.seconds - b.seconds || (a.kind === 'video' ? -1 : 1));
    if (!stream) lines.push(`sync ${Math.round(startSeconds * AUDIO_RATE)} ${AUDIO_RATE} ${part.wallClock}`);
    for (const { kind, index, p, seconds } of items) {
      const wallClock = wallClockOf(seconds);
      if (kind === 'video') {
        if (p.key) lines.push(`sync ${p.dts} ${VIDEO_RATE} ${wallClock}`);
        const payload = `${stream.payload}:${path.join(FIXTURES, stream.file)}:${p.offset}:${p.size}`;
        lines.push(`video ${p.dts} ${VIDEO_RATE} ${p.pts - p.dts} ${p.key ? 1 : 0} ${payload} ${stream.codec}`);
        frames.push({ kind, index, key: p.key, dts: p.dts, cts: p.pts - p.dts, rate: VIDEO_RATE, wallClock });
      } else {
        lines.push(`audio ${p.dts} ${AUDIO_RATE} file:${path.join(FIXTURES, 'aac_8000.aac')}:${p.offset}:${p.size}`);
        frames.push({ kind, index, key: true, dts: p.dts, cts: 0, rate: AUDIO_RATE, wallClock });
      }
    }
    lines.push('end');
  });
  const manifest = writeVrx(file, lines);
  frames.forEach((frame, i) => Object.assign(frame, manifest.frames[i]));
  return { file, frames, manifest, video };
}

// What ffprobe sees in a media file: per stream, its codec and packets {key, dts, pts, size}
// in decoding order (in the stream's time base, given as `timeBase`).
function probe(file, format) {
  const args = ['-v', 'error', '-of', 'json', '-show_streams', '-show_packets'];
  if (format) args.push('-f', format);
  const run = runTool('ffprobe', [...args, file]);
  if (run.status !== 0) throw new Error(`ffprobe ${file}: ${run.stderr}`);
  const json = JSON.parse(run.stdout);
  return json.streams.map((stream) => ({
    codec: stream.codec_name,
    kind: stream.codec_type,
    width: stream.width,
    height: stream.height,
    timeBase: stream.time_base,
    packets: json.packets.filter((p) => p.stream_index === stream.index).map((p) => ({
      key: p.flags.startsWith('K'), dts: Number(p.dts), pts: Number(p.pts), size: Number(p.size),
    })),
  }));
}

// The MD5 of every decoded picture of a media file, in presentation order.
function pictureHashes(file, format) {
  const args = ['-v', 'error'];
  if (format) args.push('-f', format);
  const run = runTool('ffmpeg', [...args, '-i', file, '-map', '0:v:0', '-fps_mode', 'passthrough', '-f', 'framemd5', '-']);
  if (run.status !== 0) throw new Error(`ffmpeg ${file}: ${run.stderr}`);
  return run.stdout.split('\n').filter((l) => l && !l.startsWith('#')).map((l) => l.split(',').pop().trim());
}

// The pictures of a source stream, decoded once: their hashes in presentation order, and the
// presentation rank of every packet.
const sourcePictures = new Map();
function streamPictures(video) {
  if (!sourcePictures.has(video)) {
    const stream = STREAMS[video];
    const hashes = pictureHashes(path.join(FIXTURES, stream.file), video === 'av1' ? 'obu' : undefined);
    const all = packets(stream.file);
    const order = all.map((p, i) => i).sort((a, b) => all[a].pts - all[b].pts);
    const rank = new Array(all.length);
    order.forEach((index, position) => { rank[index] = position; });
    sourcePictures.set(video, { hashes, rank });
  }
  return sourcePictures.get(video);
}

// The hashes the source's decoder gives for the pictures of `frames` (video packets of one
// stream), in presentation order.
function expectedPictureHashes(video, frames) {
  const { hashes, rank } = streamPictures(video);
  return frames.filter((f) => f.kind === 'video').map((f) => rank[f.index]).sort((a, b) => a - b).map((r) => hashes[r]);
}

// What a forward read of `rec` serves for a range: from the key frame that the start snaps to
// (its sync node first, so the audio behind it too) up to the first frame past the end.
function forwardFrames(rec, start = -1, end = -1, snap = 'before') {
  let first = 0;
  if (start > 0) {
    const keys = rec.frames.map((f, i) => ({ f, i })).filter(({ f }) => f.kind === 'video' && f.key);
    const before = keys.filter(({ f }) => f.wallClock <= start).pop();
    const after = keys.find(({ f }) => f.wallClock >= start);
    let pick = before || keys[0];
    if (snap === 'after') pick = after || before;
    if (snap === 'closest') pick = before && start - before.f.wallClock < 5000 ? before : after || before;
    first = pick.i;
  }
  const frames = [];
  for (const f of rec.frames.slice(first)) {
    if (end > 0 && f.wallClock > end) break;
    frames.push(f);
  }
  return frames;
}

module.exports = { makeRecording, forwardFrames, probe, pictureHashes, expectedPictureHashes, packets, T0, STREAMS, FIXTURES };
