'use strict';
// processMedia exporting to an MP4 file against what a user would do instead, in one run, with
// the page cache warm. Not a test: it prints figures.
//
//   node bench/process_media.js [runs]      (VIDORA_BENCH_DIR: where the files go, ~8 GB)
//
// The recording: one hour of 1920x1080 H.264 at 25 fps, about 4 Mbit/s, with 48 kHz AAC: two
// seconds that ffmpeg encodes at bench time, repeated with growing timestamps, written by
// tools/vrx_write in partitions of one minute with a sync node at each key frame. ffmpeg gets
// the same content as an MP4 it wrote itself (-stream_loop of the same two seconds).
//   export of the hour and of 10 minutes:  processMedia  vs  ffmpeg -c copy  vs  cp of the source
//   memory: the peak RSS of a process that exports the hour, less that of one that only loads
//           vidora, against 4 MB + 16 bytes per sample
//   scaling: a 24-hour export against a one-hour one, on recordings of small frames (the cost
//           per sample, not per byte)
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const { findTool } = require('../tools/vrx_tools');

const runs = Number(process.argv[2]) || 3;
const T0 = 1767225600000;
const dir = fs.mkdtempSync(path.join(process.env.VIDORA_BENCH_DIR || os.tmpdir(), 'vidora-bench-media-'));
process.on('exit', () => fs.rmSync(dir, { recursive: true, force: true }));
const file = (name) => path.join(dir, name);
const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
const ff = (...args) => execFileSync('ffmpeg', ['-hide_banner', '-loglevel', 'error', '-y', ...args]);

// The packets of one stream of `media`: {pos, size, key, dts} in the stream's time base.
function packets(media, selector) {
  const out = execFileSync('ffprobe', ['-v', 'error', '-of', 'json', '-select_streams', selector,
    '-show_entries', 'packet=pos,size,flags,dts', media], { maxBuffer: 1 << 28 });
  return JSON.parse(out).packets.map((p) => ({ pos: Number(p.pos), size: Number(p.size), key: p.flags.startsWith('K'), dts: Number(p.dts) }));
}

// Two seconds of media as elementary streams, with their packets: video at 90 kHz, audio at
// its sampling rate.
function makeSource(size, rate, bitrate) {
  const mp4 = file(`source-${size}.mp4`);
  ff('-f', 'lavfi', '-i', `testsrc2=size=${size}:rate=${rate}`, '-f', 'lavfi', '-i', 'sine=f=440:r=48000',
    '-t', '2', '-c:v', 'libx264', '-preset', 'ultrafast', '-g', String(rate), '-bf', '0', '-b:v', bitrate,
    '-pix_fmt', 'yuv420p', '-c:a', 'aac', '-b:a', '96k', '-video_track_timescale', '90000', mp4);
  const h264 = file(`source-${size}.h264`);
  const aac = file(`source-${size}.aac`);
  ff('-i', mp4, '-map', '0:v', '-c', 'copy', '-bsf:v', 'h264_mp4toannexb', '-f', 'h264', h264);
  ff('-i', mp4, '-map', '0:a', '-c', 'copy', '-f', 'adts', aac);
  const video = packets(h264, 'v:0').map((p, i) => ({ ...p, dts: (i * 90000) / rate }));
  const audio = packets(aac, 'a:0').map((p, i) => ({ ...p, dts: i * 1024 }));
  return { mp4, h264, aac, video, audio, seconds: 2 };
}

// `hours` of the source repeated, in partitions of one minute.
function makeRecording(source, hours, name) {
  const lines = [];
  const loops = (hours * 3600) / source.seconds;
  for (let loop = 0; loop < loops; loop++) {
    const base = loop * source.seconds;
    if (base % 60 === 0) {
      if (loop > 0) lines.push('end');
      lines.push(`partition ${(base / 60).toString(16).padStart(24, '0')}`);
    }
    const items = [
      ...source.video.map((p) => ({ p, t: p.dts / 90000, video: true })),
      ...source.audio.map((p) => ({ p, t: p.dts / 48000, video: false })),
    ].sort((a, b) => a.t - b.t);
    for (const { p, t, video } of items) {
      if (video) {
        const dts = Math.round((base + t) * 90000);
        if (p.key) lines.push(`sync ${dts} 90000 ${T0 + Math.round((base + t) * 1000)}`);
        lines.push(`video ${dts} 90000 0 ${p.key ? 1 : 0} annexb:${source.h264}:${p.pos}:${p.size}`);
      } else {
        lines.push(`audio ${Math.round((base + t) * 48000)} 48000 file:${source.aac}:${p.pos}:${p.size}`);
      }
    }
  }
  lines.push('end');
  const vrx = file(name);
  const written = spawnSync(findTool('vrx_write'), [vrx], { input: `${lines.join('\n')}\n`, maxBuffer: 1 << 30 });
  if (written.status !== 0) throw new Error(`vrx_write: ${written.stderr}`);
  return { vrx, samples: loops * (source.video.length + source.audio.length) };
}

// Runs an export in a node process of its own: the elapsed ms and its peak RSS in KiB.
function exportIn(child, params) {
  const script = `
    const vidora = require(${JSON.stringify(path.join(__dirname, '..'))});
    const params = ${JSON.stringify(params)};
    const start = process.hrtime.bigint();
    if (!params.srcFileName) { console.log(JSON.stringify({ ms: 0, rss: process.resourceUsage().maxRSS })); return; }
    vidora.processMedia(params, (error, result) => {
      if (error) { console.error(error.message); process.exit(1); }
      console.log(JSON.stringify({ ms: Number(process.hrtime.bigint() - start) / 1e6,
        rss: process.resourceUsage().maxRSS, frames: result.outputFramesCount }));
    });`;
  const run = spawnSync(process.execPath, ['-e', script], { encoding: 'utf8' });
  if (run.status !== 0) throw new Error(`${child}: ${run.stderr}`);
  return JSON.parse(run.stdout);
}

function timed(fn) {
  const start = process.hrtime.bigint();
  fn();
  return Number(process.hrtime.bigint() - start) / 1e6;
}

function main() {
  console.log(`making the recordings in ${dir} ...`);
  const big = makeSource('1920x1080', 25, '4M');
  const hour = makeRecording(big, 1, 'hour.vrx');
  const hourMp4 = file('hour.mp4');
  ff('-stream_loop', '1799', '-i', big.mp4, '-c', 'copy', hourMp4);
  const vrxBytes = fs.statSync(hour.vrx).size;
  fs.readFileSync(hourMp4).length;  // warm
  fs.readFileSync(hour.vrx).length;
  const out = file('out.mp4');
  const ranges = { hour: [T0, T0 + 3600000], '10 minutes': [T0 + 1200000, T0 + 1800000] };
  console.log(`hour.vrx ${(vrxBytes / 2 ** 20).toFixed(0)} MiB, ${hour.samples} samples; median of ${runs} runs`);
  for (const [name, [start, end]] of Object.entries(ranges)) {
    const ours = [];
    const theirs = [];
    const copies = [];
    for (let r = 0; r < runs; r++) {
      ours.push(exportIn(name, { srcFileName: hour.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: start, wallClockEnd: end }).ms);
      const span = (end - start) / 1000;
      const offset = (start - T0) / 1000;
      theirs.push(timed(() => ff('-ss', String(offset), '-i', hourMp4, '-t', String(span), '-c', 'copy', out)));
      copies.push(timed(() => execFileSync('cp', [hour.vrx, out])) * (end - start) / 3600000);
    }
    const [o, t, c] = [median(ours), median(theirs), median(copies)];
    console.log(`export of ${name.padEnd(10)} processMedia ${o.toFixed(0)} ms, ffmpeg -c copy ${t.toFixed(0)} ms ` +
      `(${(t / o).toFixed(2)}x faster), cp of the same bytes ${c.toFixed(0)} ms (${(c / o).toFixed(2)} of cp's throughput)`);
  }
  const loaded = exportIn('load', {}).rss;
  const whole = exportIn('memory', { srcFileName: hour.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: T0, wallClockEnd: T0 + 3600000 });
  const peak = (whole.rss - loaded) * 1024;
  const allowed = 4 * 2 ** 20 + 16 * whole.frames;
  console.log(`memory: peak RSS above a loaded process ${(peak / 2 ** 20).toFixed(1)} MiB for ${whole.frames} samples, ` +
    `allowed ${(allowed / 2 ** 20).toFixed(1)} MiB (${(peak / allowed).toFixed(2)} of it)`);

  fs.rmSync(hour.vrx);
  fs.rmSync(hourMp4);
  const small = makeSource('64x64', 25, '40k');
  const day = makeRecording(small, 24, 'day.vrx');
  const oneHour = makeRecording(small, 1, 'one-hour.vrx');
  const times = { hour: [], day: [] };
  for (let r = 0; r < runs; r++) {
    times.hour.push(exportIn('1h', { srcFileName: oneHour.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: T0, wallClockEnd: T0 + 3600000 }).ms);
    times.day.push(exportIn('24h', { srcFileName: day.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: T0, wallClockEnd: T0 + 86400000 }).ms);
  }
  const ratio = median(times.day) / median(times.hour);
  console.log(`scaling: 24 h ${median(times.day).toFixed(0)} ms, 1 h ${median(times.hour).toFixed(0)} ms: ${ratio.toFixed(1)}x (at most 25x)`);
}

main();
