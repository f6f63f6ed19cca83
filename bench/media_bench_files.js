'use strict';
// The recordings of the media benchmarks, made at bench time: a few seconds that ffmpeg
// encodes, repeated with growing timestamps into VRX files by tools/vrx_write, and the timing
// helpers the benchmarks share. Files go under VIDORA_BENCH_DIR (else the system's temporary
// directory) and are removed at exit.
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const { findTool } = require('../tools/vrx_tools');

const T0 = 1767225600000;  // 2026-01-01T00:00:00.000Z, the wall clock of every recording's start

// A directory of its own for one benchmark run, removed at exit; `file(name)` is a path in it.
function benchDir(prefix) {
  const dir = fs.mkdtempSync(path.join(process.env.VIDORA_BENCH_DIR || os.tmpdir(), prefix));
  process.on('exit', () => fs.rmSync(dir, { recursive: true, force: true }));
  return { dir, file: (name) => path.join(dir, name) };
}

const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
const millisSince = (start) => Number(process.hrtime.bigint() - start) / 1e6;

function timed(fn) {
  const start = process.hrtime.bigint();
  fn();
  return millisSince(start);
}

// Removes `output` and writes every dirty page to disk, untimed before a timed run that writes
// `output`: otherwise each run would pay for the truncation and the write-back of the run
// before it.
function settle(output) {
  fs.rmSync(output, { force: true });
  execFileSync('sync');
}

const ff = (...args) => execFileSync('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-y', ...args]);

// The packets of one stream of `media`: {pos, size, key}, in stream order.
function packets(media, selector) {
  const out = execFileSync('ffprobe', ['-v', 'error', '-of', 'json', '-select_streams', selector,
    '-show_entries', 'packet=pos,size,flags', media], { maxBuffer: 1 << 28 });
  return JSON.parse(out).packets.map((p) => ({ pos: Number(p.pos), size: Number(p.size), key: p.flags.startsWith('K') }));
}

// Two seconds of `size` video at `rate` fps (H.264, a key frame each second, no B-frames) and
// 48 kHz AAC, as an MP4 and as elementary streams with their packets: video dts at 90 kHz,
// audio dts at 48 kHz. Audio packets that start after the two seconds are left out, so that a
// repeated source keeps its timestamps rising.
function makeSource(file, size, rate, bitrate) {
  const seconds = 2;
  const mp4 = file(`source-${size}.mp4`);
  ff('-f', 'lavfi', '-i', `testsrc2=size=${size}:rate=${rate}`, '-f', 'lavfi', '-i', 'sine=f=440:r=48000',
    '-t', String(seconds), '-c:v', 'libx264', '-preset', 'ultrafast', '-g', String(rate), '-sc_threshold', '0',
    '-bf', '0', '-b:v', bitrate, '-pix_fmt', 'yuv420p', '-c:a', 'aac', '-b:a', '96k',
    '-video_track_timescale', '90000', mp4);
  const h264 = file(`source-${size}.h264`);
  const aac = file(`source-${size}.aac`);
  ff('-i', mp4, '-map', '0:v', '-c', 'copy', '-bsf:v', 'h264_mp4toannexb', '-f', 'h264', h264);
  ff('-i', mp4, '-map', '0:a', '-c', 'copy', '-f', 'adts', aac);
  const video = packets(h264, 'v:0').map((p, i) => ({ ...p, dts: (i * 90000) / rate }));
  const audio = packets(aac, 'a:0').map((p, i) => ({ ...p, dts: i * 1024 })).filter((p) => p.dts < seconds * 48000);
  return { mp4, h264, aac, video, audio, seconds };
}

// Writes `hours` of `source` repeated, in partitions of one minute with a sync node before
// each key frame, starting at T0, to the VRX file `vrx`. The description goes to vrx_write
// through a file, a line at a time: a day of it is larger than a JavaScript string may be.
// Returns { vrx, samples }.
function makeRecording(file, source, hours, name) {
  const vrx = file(name);
  const description = file(`${name}.txt`);
  const out = fs.openSync(description, 'w');
  const items = [
    ...source.video.map((p) => ({ p, t: p.dts / 90000, video: true })),
    ...source.audio.map((p) => ({ p, t: p.dts / 48000, video: false })),
  ].sort((a, b) => a.t - b.t);
  const loops = (hours * 3600) / source.seconds;
  for (let loop = 0; loop < loops; loop++) {
    const base = loop * source.seconds;
    const lines = [];
    if (base % 60 === 0) {
      if (loop > 0) lines.push('end');
      lines.push(`partition ${(base / 60).toString(16).padStart(24, '0')}`);
    }
    for (const { p, t, video } of items) {
      if (video) {
        const dts = Math.round((base + t) * 90000);
        if (p.key) lines.push(`sync ${dts} 90000 ${T0 + Math.round((base + t) * 1000)}`);
        lines.push(`video ${dts} 90000 0 ${p.key ? 1 : 0} annexb:${source.h264}:${p.pos}:${p.size}`);
      } else {
        lines.push(`audio ${Math.round((base + t) * 48000)} 48000 file:${source.aac}:${p.pos}:${p.size}`);
      }
    }
    fs.writeSync(out, `${lines.join('\n')}\n`);
  }
  fs.writeSync(out, 'end\n');
  fs.closeSync(out);
  const written = spawnSync(findTool('vrx_write'), [vrx, description], { stdio: ['ignore', 'ignore', 'pipe'] });
  fs.rmSync(description);
  if (written.status !== 0) throw new Error(`vrx_write: ${written.stderr}`);
  return { vrx, samples: loops * items.length };
}

// One hour of 1920x1080 H.264 at 25 fps, about 4 Mbit/s, with 48 kHz AAC, as `name` in the
// bench directory; with `source`, the two seconds it repeats.
function makeHour(file, name = 'hour.vrx') {
  const source = makeSource(file, '1920x1080', 25, '4M');
  return { ...makeRecording(file, source, 1, name), source };
}

// Reads a whole file once, so that the page cache holds it.
function warm(name) {
  const fd = fs.openSync(name, 'r');
  const block = Buffer.allocUnsafe(1 << 20);
  while (fs.readSync(fd, block, 0, block.length, null) > 0);
  fs.closeSync(fd);
}

module.exports = { T0, benchDir, median, millisSince, timed, settle, ff, makeSource, makeRecording, makeHour, warm };
