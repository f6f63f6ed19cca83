'use strict';
// Load on `vidora serve`: N clients over loopback each pull a fragmented MP4 stream at the pace
// of real time for D minutes, while another process appends to the same recordings, as a
// recorder does. Not a test: it prints figures.
//
//   node bench/serve_load.js [--clients N] [--minutes D | --seconds S] [--files F]
//   (or VIDORA_LOAD_CLIENTS, VIDORA_LOAD_SECONDS; defaults: 90 clients, 5 minutes, 3 files)
//
// The recordings: F managed VRX files, each with a minute of history, grown every 3 s by an
// appender process (vrxFileAppend of a 3 s segment of ffmpeg's 30 fps H.264 and 8 kHz AAC from
// test/fixtures/vrx, with timestamps that go on and the wall clock of now). Each client asks
// for one file from a moment 0 to 50 s back, with no end, so that it follows the recording as
// it grows, and reads a fragment only when its time has come (3 s ahead of the real-time
// playhead, as a player's buffer would): the server's operations are held back by the
// sockets, and resumed, all along.
// Reported: errors (answers other than 200, streams that broke off or ended early, appends
// that failed; target 0), stalls (a client that got no fragment for 10 s while it wanted one),
// the server process's CPU time per stream as a share of one core (from /proc, over the
// measured time; target at most 0.5 %), and its resident memory at the start of the measured
// time and at its end (target: flat).
const fs = require('fs');
const http = require('http');
const os = require('os');
const path = require('path');
const { spawn } = require('child_process');

const { writeVrx } = require('../tools/vrx_tools');
const { packets, FIXTURES } = require('../test/recordings');
const { spawnServe } = require('../test/serve_process');
const { boxes } = require('../lib/server/mp4_boxes');

const SEGMENT_MS = 3000;
const VIDEO_RATE = 90000;
const AUDIO_RATE = 8000;
const HISTORY_SEGMENTS = 20;

function option(name, fallback) {
  const at = process.argv.indexOf(`--${name}`);
  return at > 0 ? Number(process.argv[at + 1]) : fallback;
}

// The description of segment `k` of a recording for vrx_write: 3 s of video and audio whose
// timestamps follow those of segment k - 1, and whose wall clock starts at `wallClock`.
function segmentDescription(k, wallClock) {
  const video = packets('h264_gop15.h264');
  const audio = packets('aac_8000.aac').filter((p) => p.dts < (SEGMENT_MS * AUDIO_RATE) / 1000);
  const videoBase = (k * SEGMENT_MS * VIDEO_RATE) / 1000;
  const audioBase = (k * SEGMENT_MS * AUDIO_RATE) / 1000;
  const items = [
    ...video.map((p) => ({ seconds: p.dts / VIDEO_RATE, line: (lines) => {
      const dts = videoBase + p.dts;
      if (p.key) lines.push(`sync ${dts} ${VIDEO_RATE} ${Math.round(wallClock + (p.dts * 1000) / VIDEO_RATE)}`);
      lines.push(`video ${dts} ${VIDEO_RATE} ${p.pts - p.dts} ${p.key ? 1 : 0} ` +
        `annexb:${path.join(FIXTURES, 'h264_gop15.h264')}:${p.offset}:${p.size} h264`);
    } })),
    ...audio.map((p) => ({ seconds: p.dts / AUDIO_RATE, line: (lines) => {
      lines.push(`audio ${audioBase + p.dts} ${AUDIO_RATE} file:${path.join(FIXTURES, 'aac_8000.aac')}:${p.offset}:${p.size}`);
    } })),
  ].sort((a, b) => a.seconds - b.seconds);
  const lines = ['partition 000000000000000000000000'];
  for (const item of items) item.line(lines);
  lines.push('end');
  return lines;
}

// Appends segment k to the recording `file` from a finished file of its own (a file is
// appended once: a second append of one path is refused), removed afterwards.
async function appendSegment(vidora, file, k, recordingStart) {
  const segment = `${file}.segment`;
  writeVrx(segment, segmentDescription(k, recordingStart + k * SEGMENT_MS));
  try {
    await vidora.api.vrxFileAppend({ srcFileName: segment, dstFileName: file });
  } finally {
    fs.rmSync(segment, { force: true });
  }
}

// The appender: appends segment after segment, on the wall clock, to every file; reports each
// failure as a line of JSON.
async function appender(files, firstSegment, startWallClock) {
  const vidora = require('..');
  vidora.api.setWorkersPoolsLimits({ Append: 1 });
  for (let k = firstSegment; ; ++k) {
    const wallClock = startWallClock + (k - firstSegment) * SEGMENT_MS;
    await new Promise((resolve) => setTimeout(resolve, Math.max(0, wallClock + SEGMENT_MS - Date.now())));
    for (const file of files) {
      try {
        await appendSegment(vidora, file, k, startWallClock - firstSegment * SEGMENT_MS);
      } catch (error) {
        process.stdout.write(`${JSON.stringify({ appendError: `${path.basename(file)}: ${error.code} ${error.message}` })}\n`);
      }
    }
  }
}

// /proc figures of a process: CPU seconds (user + system, all threads) and resident MiB.
function processFigures(pid) {
  const stat = fs.readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  const ticks = Number(stat[11]) + Number(stat[12]);
  const rss = Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;
  return { cpuSeconds: ticks / 100, rssMiB: rss };
}

// One client: a stream of `name` from `from`, read at the pace of real time until `endAt`.
function client(url, name, from, endAt, stats) {
  return new Promise((resolve) => {
    const state = { fragments: 0, bytes: 0, error: null, stalls: 0, lastFragmentAt: Date.now() };
    let pending = Buffer.alloc(0);
    let timescale = 0;
    let firstMedia = -1;
    let startedAt = 0;
    let res = null;
    const fail = (error) => {
      if (!state.error && Date.now() < endAt) state.error = error;
    };
    let finished = false;
    const finish = () => {
      if (finished) return;
      finished = true;
      clearInterval(watch);
      stats.push(state);
      resolve();
    };
    // Takes the complete boxes of what came; a moof whose time is more than 3 s ahead of the
    // playhead waits, and the socket with it.
    const consume = () => {
      for (;;) {
        if (pending.length < 8) break;
        const size = pending.readUInt32BE(0);
        if (pending.length < size) break;
        const box = pending.subarray(0, size);
        const type = box.toString('latin1', 4, 8);
        if (type === 'moov') {
          const mdhd = box.indexOf('mdhd');
          timescale = box.readUInt32BE(mdhd + 4 + (box[mdhd + 4] === 1 ? 20 : 12));
        } else if (type === 'moof') {
          const tfdt = box.indexOf('tfdt');
          const media = (Number(box.readBigUInt64BE(tfdt + 8)) * 1000) / timescale;
          if (firstMedia < 0) {
            firstMedia = media;
            startedAt = Date.now();
          }
          const due = startedAt + (media - firstMedia) - 3000;
          if (due > Date.now()) {
            res.pause();
            setTimeout(() => { res.resume(); consume(); }, due - Date.now());
            return;
          }
          state.fragments += 1;
          state.lastFragmentAt = Date.now();
        }
        pending = pending.subarray(size);
      }
    };
    const watch = setInterval(() => {
      if (res && !res.isPaused() && Date.now() - state.lastFragmentAt > 10000) {
        state.stalls += 1;
        state.lastFragmentAt = Date.now();
      }
    }, 1000);
    const req = http.get(`${url}/api/recordings/${name}/fmp4?from=${from}`, { agent: false }, (answer) => {
      res = answer;
      if (res.statusCode !== 200) fail(`status ${res.statusCode}`);
      res.on('data', (chunk) => {
        state.bytes += chunk.length;
        pending = pending.length ? Buffer.concat([pending, chunk]) : chunk;
        consume();
      });
      res.on('end', () => { fail('the stream ended'); finish(); });
      res.on('error', (error) => { fail(error.message); finish(); });
      res.on('close', () => { if (!res.complete) fail('the stream broke off'); finish(); });
    });
    req.on('error', (error) => { fail(error.message); finish(); });
    setTimeout(() => req.destroy(), endAt - Date.now());
  }).then(() => undefined);
}

async function main() {
  const clients = option('clients', Number(process.env.VIDORA_LOAD_CLIENTS) || 90);
  const seconds = option('seconds', 60 * option('minutes', 0)) || Number(process.env.VIDORA_LOAD_SECONDS) || 300;
  const fileCount = option('files', 3);
  const dir = fs.mkdtempSync(path.join(process.env.VIDORA_BENCH_DIR || os.tmpdir(), 'vidora-serve-load-'));
  process.on('exit', () => fs.rmSync(dir, { recursive: true, force: true }));
  const vidora = require('..');
  vidora.api.setWorkersPoolsLimits({ Append: 1 });

  // The recordings, with a minute of history up to now.
  const files = Array.from({ length: fileCount }, (_, i) => path.join(dir, `camera-${i + 1}.vrx`));
  const now = Date.now();
  const historyStart = now - HISTORY_SEGMENTS * SEGMENT_MS;
  for (const file of files) await vidora.api.vrxFileCreate(file, 64 * 2 ** 20);
  for (let k = 0; k < HISTORY_SEGMENTS; ++k) {
    for (const file of files) await appendSegment(vidora, file, k, historyStart);
  }

  const appendErrors = [];
  // The appender goes on from where the history ends.
  const append = spawn(process.execPath, [__filename, '--appender', String(HISTORY_SEGMENTS), String(now), ...files],
    { stdio: ['ignore', 'pipe', 'inherit'] });
  append.stdout.on('data', (data) => String(data).trim().split('\n').forEach((line) => appendErrors.push(JSON.parse(line).appendError)));
  const server = await spawnServe(dir);
  const pid = server.child.pid;
  console.log(`serve_load: ${clients} clients on ${fileCount} files for ${seconds} s; server pid ${pid} at ${server.url}`);

  const endAt = Date.now() + seconds * 1000;
  const stats = [];
  const running = [];
  // Clients arrive over the first 5 s; the figures are taken from 15 s on.
  for (let i = 0; i < clients; ++i) {
    const name = path.basename(files[i % fileCount]);
    running.push(client(server.url, name, Date.now() - Math.floor(Math.random() * 50000), endAt, stats));
    await new Promise((resolve) => setTimeout(resolve, 5000 / clients));
  }
  await new Promise((resolve) => setTimeout(resolve, 10000));
  const start = { at: Date.now(), ...processFigures(pid) };
  const samples = [];
  const sampler = setInterval(() => samples.push(processFigures(pid).rssMiB), 5000);
  await new Promise((resolve) => setTimeout(resolve, Math.max(0, endAt - 1000 - Date.now())));
  const end = { at: Date.now(), ...processFigures(pid) };
  clearInterval(sampler);
  await Promise.all(running);
  append.kill();
  await server.stop();

  const measured = (end.at - start.at) / 1000;
  const cpuShare = (end.cpuSeconds - start.cpuSeconds) / measured;
  const errors = stats.filter((s) => s.error);
  const fragments = stats.map((s) => s.fragments).sort((a, b) => a - b);
  console.log(`measured over ${measured.toFixed(0)} s (from 15 s after the first client to 1 s before the end)`);
  console.log(`errors: ${errors.length + appendErrors.length} (streams ${errors.length}, appends ${appendErrors.length})`);
  for (const e of [...errors.map((s) => s.error), ...appendErrors].slice(0, 10)) console.log(`  ${e}`);
  console.log(`stalls (10 s without a fragment that was due): ${stats.reduce((sum, s) => sum + s.stalls, 0)}`);
  console.log(`fragments per client: min ${fragments[0]}, median ${fragments[fragments.length >> 1]}, ` +
    `max ${fragments[fragments.length - 1]} (about one a second); ` +
    `${(stats.reduce((sum, s) => sum + s.bytes, 0) / 2 ** 20).toFixed(1)} MiB in all`);
  console.log(`server CPU: ${(cpuShare * 100).toFixed(1)} % of a core for ${clients} streams, ` +
    `${((cpuShare * 100) / clients).toFixed(3)} % of a core per stream (target <= 0.5 %)`);
  console.log(`server RSS: ${start.rssMiB.toFixed(1)} MiB at the start, ${end.rssMiB.toFixed(1)} MiB at the end, ` +
    `${Math.max(...samples, end.rssMiB).toFixed(1)} MiB at most (target: flat)`);
}

if (process.argv[2] === '--appender') {
  const [first, startWallClock, ...files] = process.argv.slice(3);
  appender(files, Number(first), Number(startWallClock));
} else {
  main().catch((error) => {
    console.error(error);
    process.exit(1);
  });
}
