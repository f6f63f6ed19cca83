'use strict';
// processMedia exporting to an MP4 file against what a user would do instead, in one run, with
// the page cache warm. Not a test: it prints figures.
//
//   node bench/process_media.js [runs]      (VIDORA_BENCH_DIR: where the files go, ~8 GB)
//
// The recording: one hour of 1920x1080 H.264 at 25 fps, about 4 Mbit/s, with 48 kHz AAC: two
// seconds that ffmpeg encodes at bench time, repeated with growing timestamps, written by
// tools/vrx_write in partitions of one minute with a sync node at each key frame (see
// media_bench_files.js). ffmpeg gets the same content as an MP4 it wrote itself (-stream_loop
// of the same two seconds). Before each timed run the output of the one before is removed and
// dirty pages are written back, untimed.
//   export of the hour and of 10 minutes:  processMedia  vs  ffmpeg -c copy  vs  cp of the source
//   memory: the peak RSS of a process that exports the hour, less that of one that only loads
//           vidora, against 4 MB + 16 bytes per sample
//   scaling: a 24-hour export against a one-hour one, on recordings of small frames (the cost
//           per sample, not per byte)
const { execFileSync, spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');

const { T0, benchDir, median, timed, settle, ff, makeSource, makeRecording, makeHour, warm } = require('./media_bench_files');

const runs = Number(process.argv[2]) || 3;
const { dir, file } = benchDir('vidora-bench-media-');

// Runs an export in a node process of its own: the elapsed ms and its peak RSS in KiB. Without
// a source it only loads vidora.
function exportIn(child, params) {
  const script = `
    const vidora = require(${JSON.stringify(path.join(__dirname, '..'))});
    const params = ${JSON.stringify(params)};
    const start = process.hrtime.bigint();
    if (!params.srcFileName) {
      console.log(JSON.stringify({ ms: 0, rss: process.resourceUsage().maxRSS }));
    } else {
      vidora.processMedia(params, (error, result) => {
        if (error) { console.error(error.message); process.exit(1); }
        console.log(JSON.stringify({ ms: Number(process.hrtime.bigint() - start) / 1e6,
          rss: process.resourceUsage().maxRSS, frames: result.outputFramesCount }));
      });
    }`;
  const run = spawnSync(process.execPath, ['-e', script], { encoding: 'utf8' });
  if (run.status !== 0) throw new Error(`${child}: ${run.stderr}`);
  return JSON.parse(run.stdout);
}

function main() {
  console.log(`making the recordings in ${dir} ...`);
  const hour = makeHour(file);
  const hourMp4 = file('hour.mp4');
  ff('-stream_loop', String(3600 / hour.source.seconds - 1), '-i', hour.source.mp4, '-c', 'copy', hourMp4);
  const vrxBytes = fs.statSync(hour.vrx).size;
  warm(hourMp4);
  warm(hour.vrx);
  const out = file('out.mp4');
  const ranges = { hour: [T0, T0 + 3600000], '10 minutes': [T0 + 1200000, T0 + 1800000] };
  console.log(`hour.vrx ${(vrxBytes / 2 ** 20).toFixed(0)} MiB, ${hour.samples} samples; median of ${runs} runs`);
  for (const [name, [start, end]] of Object.entries(ranges)) {
    const ours = [];
    const theirs = [];
    const copies = [];
    for (let r = 0; r < runs; r++) {
      settle(out);
      ours.push(exportIn(name, { srcFileName: hour.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: start, wallClockEnd: end }).ms);
      const span = (end - start) / 1000;
      const offset = (start - T0) / 1000;
      settle(out);
      theirs.push(timed(() => ff('-ss', String(offset), '-i', hourMp4, '-t', String(span), '-c', 'copy', out)));
      settle(out);
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
  const small = makeSource(file, '64x64', 25, '40k');
  const day = makeRecording(file, small, 24, 'day.vrx');
  const oneHour = makeRecording(file, small, 1, 'one-hour.vrx');
  const times = { hour: [], day: [] };
  for (let r = 0; r < runs; r++) {
    settle(out);
    times.hour.push(exportIn('1h', { srcFileName: oneHour.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: T0, wallClockEnd: T0 + 3600000 }).ms);
    settle(out);
    times.day.push(exportIn('24h', { srcFileName: day.vrx, outputFormat: 'mp4', dstFileName: out, wallClockStart: T0, wallClockEnd: T0 + 86400000 }).ms);
  }
  const ratio = median(times.day) / median(times.hour);
  console.log(`scaling: 24 h ${median(times.day).toFixed(0)} ms, 1 h ${median(times.hour).toFixed(0)} ms: ${ratio.toFixed(1)}x (at most 25x)`);
}

main();
