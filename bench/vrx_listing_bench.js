'use strict';
// The listing functions from JavaScript on large files made by tools/vrx_write:
//  - vrxFileListPartitions on 10,000 partitions, with the bytes the process read during the
//    call (/proc/self/io rchar), which must stay far below the file size: the walk reads
//    headers, footers, seek tables and packet headers, never frame data;
//  - vrxFileListFrames on a 1 GiB recording, in frames per second against the C++ reader's own
//    frame walk (tools/vrx_walk) on the same file in the same run: the cost of the task, the
//    copies and the JavaScript objects.
// Run: node bench/vrx_listing_bench.js  (VIDORA_ADDON_PATH / VIDORA_TOOLS_DIR pick the build;
// VIDORA_BENCH_DIR the folder for the two files, default the system's temporary folder).
const { spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const vidora = require('..');
const { findTool, writeVrx } = require('../tools/vrx_tools');

const RUNS = 5;
const T0 = 1767225600000;
const dir = fs.mkdtempSync(path.join(process.env.VIDORA_BENCH_DIR || os.tmpdir(), 'vidora-bench-'));
process.on('exit', () => fs.rmSync(dir, { recursive: true, force: true }));

function readBytes() {
  return Number(/rchar: (\d+)/.exec(fs.readFileSync('/proc/self/io', 'utf8'))[1]);
}

function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  return sorted[Math.floor(sorted.length / 2)];
}

function call(fn, arg) {
  return new Promise((resolve, reject) => {
    const start = process.hrtime.bigint();
    fn(arg, (error, result) => {
      if (error) reject(error);
      else resolve({ result, ms: Number(process.hrtime.bigint() - start) / 1e6 });
    });
  });
}

// 10,000 partitions of one second: a sync node, a 16 KiB key frame and four 4 KiB frames.
function partitionsDescription() {
  const lines = [];
  for (let p = 0; p < 10000; ++p) {
    const dts = p * 90000;
    lines.push(`partition ${p.toString(16).padStart(24, '0')}`, `sync ${dts} 90000 ${T0 + p * 1000}`,
      `video ${dts} 90000 0 1 pattern:16384:${p & 0xff}`);
    for (let f = 1; f < 5; ++f) lines.push(`video ${dts + f * 3600} 90000 0 0 pattern:4096:${f}`);
    lines.push('end');
  }
  return lines;
}

// 1 GiB of 25 fps video (a 64 KiB key frame each second, 16 KiB frames between) and 48 kHz
// audio (256-byte frames), in partitions of 60 s.
function framesDescription(targetBytes) {
  const lines = [];
  let bytes = 0;
  let audio = 0;
  for (let v = 0; bytes < targetBytes; ++v) {
    const dts = v * 3600;
    if (v % 1500 === 0) {
      if (v > 0) lines.push('end');
      lines.push(`partition ${(v / 1500).toString(16).padStart(24, '0')}`);
    }
    for (; audio * 1024 * 90000 <= dts * 48000; ++audio) {
      lines.push(`audio ${audio * 1024} 48000 pattern:256:${audio & 0xff}`);
      bytes += 256 + 20;
    }
    const key = v % 25 === 0;
    if (key) lines.push(`sync ${dts} 90000 ${T0 + v * 40}`);
    const size = key ? 65536 : 16384;
    lines.push(`video ${dts} 90000 0 ${key ? 1 : 0} pattern:${size}:${v & 0xff}`);
    bytes += size + 24;
  }
  lines.push('end');
  return lines;
}

async function benchPartitions() {
  const file = path.join(dir, 'partitions.vrx');
  writeVrx(file, partitionsDescription());
  const size = fs.statSync(file).size;
  await call(vidora.vrxFileListPartitions, file);
  const times = [];
  let read = 0;
  let count = 0;
  for (let i = 0; i < RUNS; ++i) {
    const before = readBytes();
    const { result, ms } = await call(vidora.vrxFileListPartitions, file);
    read = readBytes() - before;
    count = result.partitions.length;
    times.push(ms);
  }
  fs.rmSync(file);
  const ms = median(times);
  console.log(`vrxFileListPartitions: ${count} partitions, file ${(size / 2 ** 20).toFixed(1)} MiB: ` +
    `median ${ms.toFixed(1)} ms of ${RUNS} (${Math.round(count / (ms / 1000))} partitions/s); ` +
    `bytes read per listing ${read} (${(100 * read / size).toFixed(2)} % of the file)`);
}

async function benchFrames() {
  const file = path.join(dir, 'frames.vrx');
  writeVrx(file, framesDescription(2 ** 30));
  const size = fs.statSync(file).size;
  const walk = () => {
    const run = spawnSync(findTool('vrx_walk'), [file], { encoding: 'utf8' });
    if (run.status !== 0) throw new Error(run.stderr);
    return JSON.parse(run.stdout);
  };
  walk();
  await call(vidora.vrxFileListFrames, file);
  const cpp = [];
  const js = [];
  let frames = 0;
  for (let i = 0; i < RUNS; ++i) {
    const base = walk();
    cpp.push(base.micros / 1000);
    const { result, ms } = await call(vidora.vrxFileListFrames, file);
    frames = result.frames.length;
    if (frames !== base.frames) throw new Error(`listed ${frames} frames, the reader walked ${base.frames}`);
    js.push(ms);
  }
  fs.rmSync(file);
  const cppMs = median(cpp);
  const jsMs = median(js);
  const fps = (ms) => Math.round(frames / (ms / 1000));
  console.log(`vrxFileListFrames: ${frames} frames, file ${(size / 2 ** 30).toFixed(2)} GiB: ` +
    `median ${jsMs.toFixed(0)} ms of ${RUNS} (${fps(jsMs)} frames/s); C++ frame walk ${cppMs.toFixed(0)} ms ` +
    `(${fps(cppMs)} frames/s); JavaScript listing / C++ walk = ${(fps(jsMs) / fps(cppMs)).toFixed(2)} in frames/s`);
}

(async () => {
  await benchPartitions();
  await benchFrames();
})().catch((err) => {
  console.error(err);
  process.exitCode = 1;
});
