'use strict';
// Several processes on one recording file at once, each for a fixed number of rounds: two
// append new segments, one cuts the oldest content, two list it and check every frame against
// the packets ffmpeg made and every seek point against its partition. No process may meet a
// broken frame or table; the locks may make one wait, and a lister may find no still state
// (either is counted as a time-out, not a failure).
// At the end recover's walk finds nothing to fix and the file lists clean.
//
// VIDORA_PROCESS_LOOP_ROUNDS=N sets the rounds of each process (default 6; 200 for a long run).
const test = require('node:test');
const assert = require('assert');
const path = require('path');

const { vidora, tempDir, runNode } = require('./helpers');
const { ok, segment, T0 } = require('./managed_files');
const { checkListing, referenceFrames } = require('./process_loop_worker');

const ROUNDS = Number(process.env.VIDORA_PROCESS_LOOP_ROUNDS) || 6;

test('appending, cutting and listing processes on one file see only whole states', async () => {
  const dir = tempDir('vidora-process-loop-');
  const file = path.join(dir, 'recording.vrx');
  // Room for every append: two segments of about 8 KB a round.
  const size = Math.ceil((1 << 20) + ROUNDS * 2 * 16384) & ~4095;
  await ok(vidora.vrxFileCreate, file, size);
  vidora.setWorkersPoolsLimits({ Append: 1 });
  for (let n = 0; n < 3; ++n) {
    await ok(vidora.vrxFileAppend, { srcFileName: segment(dir, n).file, dstFileName: file, createNewPartition: true });
  }
  await ok(vidora.vrxFileClose, file);
  const worker = path.join(__dirname, 'process_loop_worker.js');
  const roles = ['append', 'append', 'cut', 'list', 'list'];
  const runs = await Promise.all(roles.map((role, index) => runNode(
    `require(${JSON.stringify(worker)}).run(${JSON.stringify(role)}, ${JSON.stringify(file)}, ` +
    `${JSON.stringify(dir)}, ${ROUNDS}, ${index})`)));
  const reports = runs.map((run, i) => {
    assert.strictEqual(run.status, 0, `${roles[i]}: ${run.stderr}`);
    return JSON.parse(run.stdout.trim().split('\n').pop());
  });
  for (const report of reports) {
    assert.deepStrictEqual(report.problems, [], report.role);
    assert.strictEqual(report.done + report.timedOut + report.full, ROUNDS, report.role);
    assert.strictEqual(report.full, 0, `${report.role}: the file was made large enough`);
  }
  assert.ok(reports.filter((r) => r.role === 'append').every((r) => r.done > 0));
  assert.ok(reports.find((r) => r.role === 'cut').done > 0);
  console.log(reports.map((r) => `${r.role}: ${r.done} done, ${r.timedOut} timed out`).join('; '));

  await ok(vidora.vrxFileRecover, { fileName: file, check: true });
  assert.deepStrictEqual(await checkListing(file, await referenceFrames(dir)), []);
  // The oldest content went, from the front.
  const { partitions } = await ok(vidora.vrxFileListPartitions, file);
  assert.ok(partitions.length > 0);
  assert.ok(partitions[0].seekPoints[0].wallClockMillis > T0);
});
