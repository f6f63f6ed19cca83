'use strict';
// One process of the loop on one recording file (see vrx_process_loop.test.js): it appends,
// cuts the oldest content or lists, for a number of rounds, checking everything it sees, and
// prints one JSON line at the end: {role, rounds, done, timedOut, full, problems}.
const fs = require('fs');
const path = require('path');

const { vidora } = require('./helpers');
const { CODES, call, segment, T0 } = require('./managed_files');
const { makeRecording } = require('./recordings');

// Every frame a segment can hold, by what identifies it but its wall clock.
function referenceFrames(dir) {
  const reference = makeRecording(path.join(dir, `reference-${process.pid}.vrx`), { parts: [{ from: 0, to: 90, wallClock: T0 }] });
  return call(vidora.vrxFileListFrames, reference.file).then(({ result }) => {
    const bytes = fs.readFileSync(reference.file);
    return new Map(result.frames.map((f) => [`${f.trackId}/${f.timestamp.dts.value}`,
      bytes.subarray(f.offset, f.offset + f.length)]));
  });
}

// One state of the file: its partitions, its frames and its bytes, taken between two equal
// partition listings (each listing is whole, but another process may change the file between
// two of them). Returns {problems} for a listing that failed, null when the file kept moving
// or a lock timed out.
async function snapshot(file) {
  for (let attempt = 0; attempt < 5; ++attempt) {
    const partitions = await call(vidora.vrxFileListPartitions, file);
    const frames = await call(vidora.vrxFileListFrames, file);
    const bytes = fs.readFileSync(file);
    const again = await call(vidora.vrxFileListPartitions, file);
    for (const { error } of [partitions, frames, again]) {
      if (error) return error.errors[0].full === CODES.timedOut ? null : { problems: [`listing failed: ${error.message}`] };
    }
    if (JSON.stringify(partitions.result.partitions) === JSON.stringify(again.result.partitions)) return { partitions, frames, bytes };
  }
  return null;
}

// What is wrong with the file as one listing round sees it, or null when no state held still.
async function checkListing(file, reference) {
  const state = await snapshot(file);
  if (state === null || state.problems) return state && state.problems;
  const { partitions, frames, bytes } = state;
  const problems = [];
  for (const f of frames.result.frames) {
    const want = reference.get(`${f.trackId}/${f.timestamp.dts.value}`);
    if (!want || !want.equals(bytes.subarray(f.offset, f.offset + f.length))) {
      problems.push(`a broken frame at ${f.offset}`);
    }
  }
  // Each seek point leads, within its partition, to a key frame right behind its sync node,
  // with its wall clock. (The appenders interleave their wall clocks, so a table need not
  // ascend here.)
  const video = frames.result.frames.filter((f) => f.trackId === 7);
  for (const p of partitions.result.partitions) {
    const end = p.contentsBounds.offset + p.contentsBounds.length;
    for (const s of p.seekPoints) {
      const key = video.find((f) => f.offset > s.offset);
      const sync = key && key.clockSync;
      if (!key || key.offset >= end || !key.isKeyFrame || sync.streamClock.value !== key.timestamp.dts.value ||
          Math.round(sync.wallClock.value / (sync.wallClock.clockRate / 1000)) !== s.wallClockMillis) {
        problems.push(`seek point ${s.offset}/${s.wallClockMillis} of the partition at ${p.fullBounds.offset} leads nowhere`);
      }
    }
  }
  return problems;
}

const ROLES = {
  // Appends a new one-second segment each round, as a new partition every other time.
  async append(file, dir, round, index) {
    const src = segment(dir, 1000 + round * 10 + index, { from: (round * 15) % 60 });
    return call(vidora.vrxFileAppend, { srcFileName: src.file, dstFileName: file, createNewPartition: round % 2 === 0 });
  },
  // Cuts the oldest GOP, or the whole oldest partition every other time, once a few are there.
  async cut(file, dir, round) {
    const { error, result } = await call(vidora.vrxFileListPartitions, file);
    if (error) return { error };
    const [first] = result.partitions;
    if (result.partitions.length < 3 || first.seekPoints.length === 0) return { error: null };
    const end = round % 2 ? first.lastVideoWallClockMillis + 1 : first.seekPoints[first.seekPoints.length > 1 ? 1 : 0].wallClockMillis;
    return call(vidora.vrxFileDeleteContent, { fileNames: [file], wallClockStart: 0, wallClockEnd: end });
  },
  async list(file, dir, round, index, reference) {
    const problems = await checkListing(file, reference);
    return problems === null ? { error: { errors: [{ full: CODES.timedOut }] } } : { error: null, problems };
  },
};

async function run(role, file, dir, rounds, index) {
  vidora.setWorkersPoolsLimits({ Append: 1 });
  const reference = role === 'list' ? await referenceFrames(dir) : null;
  const report = { role, rounds, done: 0, timedOut: 0, full: 0, problems: [] };
  for (let round = 0; round < rounds; ++round) {
    const { error, problems = [] } = await ROLES[role](file, dir, round, index, reference);
    report.problems.push(...problems);
    const code = error ? error.errors[0].full : 0;
    if (code === CODES.timedOut) ++report.timedOut;
    else if (code === CODES.notEnoughSpace) ++report.full;
    else if (code) report.problems.push(`${role} round ${round}: ${error.message} (${code})`);
    else ++report.done;
  }
  console.log(JSON.stringify(report));
}

module.exports = { run, checkListing, referenceFrames };
