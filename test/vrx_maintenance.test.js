'use strict';
// The maintenance functions from JavaScript on files made from ffmpeg's streams: their pools
// and results (with those of the listings), every argument check with its text, appends with
// their metadata, cuts, copies and estimates against what the listings say, clear, close,
// recover, and files that are missing, not VRX or held by another process (listings too).
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora, TASK_FIELDS, tempDir } = require('./helpers');
const { writeVrx, holdFlock } = require('../tools/vrx_tools');
const { CODES, call, ok, failure, segment, framesOf, identity, partitionsOf, T0 } = require('./managed_files');

const dir = tempDir('vidora-maintenance-');
vidora.setWorkersPoolsLimits({ Append: 2 });

let files = 0;
// A new managed file of `size` bytes.
async function managed(size = 1 << 20) {
  const file = path.join(dir, `managed-${++files}.vrx`);
  await ok(vidora.vrxFileCreate, file, size);
  return file;
}

function append(src, dst, extra = {}) {
  return call(vidora.vrxFileAppend, { srcFileName: src.file, dstFileName: dst, ...extra });
}

// A managed file of three partitions: segments 0 and 1, segment 2, then segment 5 after a gap.
async function recording() {
  const file = await managed();
  const sources = [0, 1, 2, 5].map((n) => segment(dir, n, { from: 15 * (n % 3) }));
  const layout = [true, false, true, true];
  for (let i = 0; i < sources.length; ++i) {
    const { error } = await append(sources[i], file, { createNewPartition: layout[i] });
    assert.strictEqual(error, null);
  }
  return { file, sources };
}

test('each function runs on its pool and gives its result', async () => {
  const { file } = await recording();
  const copy = await managed();
  const cases = [
    ['vrxFileInfo', 'Read', [file], ['audio', 'video']],
    ['vrxFileListFrames', 'Read', [file], ['frames']],
    ['vrxFileListPartitions', 'Read', [file], ['partitions']],
    ['vrxFileListFragments', 'Read', [{ fileName: file }], ['fragments']],
    ['vrxFileEstimateSize', 'Serve', [{ srcFileNames: [file], wallClockStart: T0 }], ['estimatedSize']],
    ['vrxFileCopyContent', 'Write', [{ srcFileNames: [file], dstFileName: copy, wallClockStart: T0, wallClockEnd: T0 + 500 }], ['totalAppended']],
    ['vrxFileAppend', 'Append', [{ srcFileName: segment(dir, 9).file, dstFileName: file }], ['totalAppended']],
    ['vrxFileDeleteContent', 'Write', [{ fileNames: [file], wallClockStart: 0, wallClockEnd: T0 }], []],
    ['vrxFileRecover', 'Write', [file], ['lastPartitionInfo']],
    ['vrxFileClose', 'Write', [file], []],
    ['vrxFileClear', 'Write', [file], []],
    ['vrxFileCreate', 'Write', [path.join(dir, 'fresh.vrx'), 1 << 20], []],
  ];
  for (const [name, pool, args, properties] of cases) {
    let id;
    const done = new Promise((resolve) => { id = vidora[name](...args, (error, result) => resolve({ error, result })); });
    const { error, result } = await done;
    assert.strictEqual(error, null, `${name}: ${error && error.message}`);
    assert.deepStrictEqual([result.id, result.name, result.poolName, result.timedOut], [id, name, pool, false]);
    assert.deepStrictEqual(Object.keys(result).filter((k) => !TASK_FIELDS.includes(k)), properties, name);
  }
});

test('wrong arguments throw before any task is made, with the exact text', () => {
  const cb = () => assert.fail('no callback for wrong arguments');
  const invalid = (name) => `<-# FAILED! callback_${name} Invalid parameters`;
  const range = { wallClockStart: 10, wallClockEnd: 20 };
  const cases = [
    ['vrxFileCreate', [[], ['a.vrx', 1 << 20], ['a.vrx', '1048576', cb], [1, 1 << 20, cb], ['a.vrx', 1 << 20, cb, 1], ['a.vrx', 1 << 20, 'cb']]],
    ['vrxFileClose', [[], ['a.vrx'], [{ fileName: 'a.vrx' }, cb], ['a.vrx', cb, 1], [null, cb]]],
    ['vrxFileRecover', [[], ['a.vrx'], [{}, cb], [{ fileName: 3 }, cb], [5, cb], ['a.vrx', cb, 1], ['a.vrx', 'cb']]],
    ['vrxFileAppend', [[], [{ srcFileName: 'a', dstFileName: 'b' }], [{ srcFileName: 'a' }, cb], [{ dstFileName: 'b' }, cb],
      [{ srcFileName: 'a', dstFileName: 'b', fixedMetadata: '00' }, cb],
      [{ srcFileName: 'a', dstFileName: 'b', fixedMetadata: '000000000000000000000000ff' }, cb],
      [{ srcFileName: 'a', dstFileName: 'b', fixedMetadata: '00000000000000000000000g' }, cb],
      [{ srcFileName: 'a', dstFileName: 'b', fixedMetadata: '' }, cb], ['a', cb], [{ srcFileName: 'a', dstFileName: 'b' }, cb, 1]]],
    ['vrxFileCopyContent', [[{ srcFileNames: ['a'], dstFileName: 'b' }, cb], [{ srcFileNames: 'a', dstFileName: 'b', ...range }, cb],
      [{ srcFileNames: ['a', 3], dstFileName: 'b', ...range }, cb], [{ srcFileNames: ['a'], ...range }, cb],
      [{ srcFileNames: ['a'], dstFileName: 'b', wallClockStart: 20, wallClockEnd: 10 }, cb],
      [{ srcFileNames: ['a'], dstFileName: 'b', wallClockStart: -1, wallClockEnd: 10 }, cb],
      [{ srcFileNames: ['a'], dstFileName: 'b', wallClockStart: '10', wallClockEnd: 20 }, cb]]],
    ['vrxFileDeleteContent', [[{ fileNames: ['a'] }, cb], [{ fileNames: 'a', ...range }, cb], [{ ...range }, cb],
      [{ fileNames: ['a'], wallClockStart: 20, wallClockEnd: 10 }, cb], [{ fileNames: ['a'], wallClockStart: -5, wallClockEnd: -1 }, cb],
      [{ fileNames: ['a'], wallClockStart: 0, wallClockEnd: -1 }, cb], [{ fileNames: ['a'], ...range }], [{ fileNames: ['a'], ...range }, {}]]],
    ['vrxFileEstimateSize', [[{ srcFileNames: ['a'] }, cb], [{ wallClockStart: 10 }, cb], [{ srcFileNames: [1], wallClockStart: 1 }, cb],
      [{ srcFileNames: ['a'], wallClockStart: 1 }], ['a', cb]]],
  ];
  for (const [name, calls] of cases) {
    for (const args of calls) {
      assert.throws(() => vidora[name](...args), { message: invalid(name) }, `${name}(${JSON.stringify(args)})`);
    }
  }
  const clear = (what) => ({ message: `<-# FAILED! callback_vrxFileClear ${what}` });
  assert.throws(() => vidora.vrxFileClear(), clear('No parameters'));
  assert.throws(() => vidora.vrxFileClear(5, cb), clear('First parameter type is not string or object'));
  assert.throws(() => vidora.vrxFileClear('x'), clear('Second parameter type is not function'));
  assert.throws(() => vidora.vrxFileClear({ fileName: 'x' }, 3), clear('Second parameter type is not function'));
  assert.throws(() => vidora.vrxFileClear({}), clear('Options do not contain fileName parameter'));
  assert.throws(() => vidora.vrxFileClear({ fileName: 7 }, cb), clear('Options do not contain fileName parameter'));
});

test('appends land with their metadata, once per source', async () => {
  const file = await managed();
  const [a, b, c] = [0, 1, 2].map((n) => segment(dir, 10 + n));
  const fixed = '0a0b0c0d0e0f101112131415';
  const first = await append(a, file, { createNewPartition: false, fixedMetadata: fixed.toUpperCase(), dynamicMetadata: 'camera é' });
  assert.strictEqual(first.error, null);
  assert.strictEqual(first.result.totalAppended, (await partitionsOf(file))[0].fullBounds.length);
  assert.strictEqual((await append(b, file)).error, null);
  assert.strictEqual((await append(c, file, { createNewPartition: true })).error, null);
  const partitions = await partitionsOf(file);
  assert.deepStrictEqual(partitions.map((p) => p.fixedMetadata), [fixed, '000000000000000000000000']);
  const dyn = partitions[0].dynamicMetadataBounds;
  assert.strictEqual(fs.readFileSync(file).subarray(dyn.offset, dyn.offset + dyn.length).toString(), 'camera é');
  const frames = await framesOf(file);
  const want = (await Promise.all([a, b, c].map((s) => framesOf(s.file)))).flat();
  assert.deepStrictEqual(frames.map(identity), want.map(identity));
  // Each source once, to any file.
  assert.strictEqual((await append(a, await managed())).error.errors[0].full, CODES.doubleAppend);
  // A source without a sync node fails, and is not refused as a double when tried again.
  const noSync = path.join(dir, 'no-sync.vrx');
  writeVrx(noSync, ['partition 000000000000000000000000', 'video 0 90000 0 1 pattern:100:1', 'audio 0 8000 pattern:50:2', 'end']);
  for (let i = 0; i < 2; ++i) {
    const { error } = await call(vidora.vrxFileAppend, { srcFileName: noSync, dstFileName: file });
    assert.strictEqual(error.errors[0].full, CODES.noSyncNode, `try ${i}`);
  }
});

test('a cut leaves the frames outside it, in a file of the same size', async () => {
  const { file } = await recording();
  const size = fs.statSync(file).size;
  const before = await framesOf(file);
  const partitions = await partitionsOf(file);
  // Up to the second key frame of the second partition: the first partition, and the second's
  // first GOP (up to that key frame's sync node), go.
  const keep = partitions[1].seekPoints[1];
  await ok(vidora.vrxFileDeleteContent, { fileNames: [file], wallClockStart: 0, wallClockEnd: keep.wallClockMillis });
  const after = await framesOf(file);
  assert.deepStrictEqual(after.map(identity), before.filter((f) => f.offset > keep.offset).map(identity));
  assert.strictEqual(fs.statSync(file).size, size);
  const left = await partitionsOf(file);
  assert.strictEqual(left.length, 2);
  assert.deepStrictEqual(left[0].seekPoints, partitions[1].seekPoints.slice(1));
  assert.strictEqual(left[0].fullBounds.length, partitions[1].fullBounds.length - 16);
  // Nothing named, nothing done; a range over nothing changes nothing.
  await ok(vidora.vrxFileDeleteContent, { fileNames: [], wallClockStart: 0, wallClockEnd: 1 });
  const bytes = fs.readFileSync(file);
  await ok(vidora.vrxFileDeleteContent, { fileNames: [file, file], wallClockStart: T0 + 100000, wallClockEnd: T0 + 200000 });
  assert.ok(fs.readFileSync(file).equals(bytes));
});

test('copy and estimate agree with what the listings say of the same range', async () => {
  const { file } = await recording();
  const frames = await framesOf(file);
  const points = (await partitionsOf(file)).flatMap((p) => p.seekPoints);
  const cases = [[T0 + 100, T0 + 700], [T0 + 4000, T0 + 4000], [T0 + 4600, T0 + 8200], [T0, T0 + 30000]];
  for (const [start, end] of cases) {
    const label = `[${start - T0}, ${end - T0}]`;
    // From the key frame at or before the start to the first one after the end, by partition.
    const dst = await managed();
    const copied = await ok(vidora.vrxFileCopyContent, { srcFileNames: [file], dstFileName: dst, wallClockStart: start, wallClockEnd: end });
    const [partition] = await partitionsOf(dst);
    assert.strictEqual(copied.totalAppended, partition.fullBounds.length, label);
    const got = await framesOf(dst);
    const from = points.filter((p) => p.wallClockMillis <= start).pop();
    assert.strictEqual(got[0].offset - partition.contentsBounds.offset + from.offset,
      frames.find((f) => identity(f) === identity(got[0])).offset, label);
    for (const f of got) assert.ok(frames.some((g) => identity(g) === identity(f)), label);
    // The bytes between the sync nodes of the key frames before the start and after the end
    // (the last one when none is after it); none when both are one.
    const after = points.find((p) => p.wallClockMillis >= end) || points[points.length - 1];
    const params = { srcFileNames: [file], wallClockStart: start, wallClockEnd: end };
    if (after.offset > from.offset) {
      assert.strictEqual((await ok(vidora.vrxFileEstimateSize, params)).estimatedSize, after.offset - from.offset, label);
    } else {
      assert.strictEqual(await failure(vidora.vrxFileEstimateSize, params), CODES.invalidParameters, label);
    }
  }
  // The average of the key frames at or before ten points of the range.
  const start = T0, end = T0 + 8000;
  const keys = frames.filter((f) => f.trackId === 7 && f.isKeyFrame);
  const sizes = [];
  for (let i = 0; i < 10; ++i) {
    const at = start + i * (end - start) / 10;
    const point = points.filter((p) => p.wallClockMillis <= at).pop();
    sizes.push(keys.find((k) => k.offset > point.offset).length);
  }
  const { estimatedSize } = await ok(vidora.vrxFileEstimateSize, { srcFileNames: [file], wallClockStart: start, wallClockEnd: end, getAvgKFrameSize: true });
  assert.strictEqual(estimatedSize, Math.floor(sizes.reduce((a, b) => a + b) / 10));
  // What cannot be estimated.
  for (const params of [{ srcFileNames: [], wallClockStart: T0 }, { srcFileNames: [file], wallClockStart: T0 + 500, wallClockEnd: T0 + 500, getAvgKFrameSize: true },
    { srcFileNames: [file], wallClockStart: T0 + 500, wallClockEnd: T0 + 100 }, { srcFileNames: [file], wallClockStart: -1 }]) {
    assert.strictEqual(await failure(vidora.vrxFileEstimateSize, params), CODES.invalidParameters, JSON.stringify(params));
  }
});

test('clear gives everything back, with or without zeros; close drops the cached appender', async () => {
  for (const zeroFill of [false, true]) {
    const { file } = await recording();
    const before = fs.readFileSync(file);
    await ok(vidora.vrxFileClear, { fileName: file, zeroFill });
    assert.deepStrictEqual(await partitionsOf(file), []);
    const after = fs.readFileSync(file);
    // One skip packet over the whole 1 MiB: its header, payload and trailer.
    assert.strictEqual(after.readUInt32BE(0), 0xa00006a6);
    assert.strictEqual(after.readUInt32BE(after.length - 4), after.length - 4);
    const payload = after.subarray(12, after.length - 4);
    assert.strictEqual(payload.equals(Buffer.alloc(payload.length)), zeroFill);
    assert.ok(zeroFill || payload.equals(before.subarray(12, before.length - 4)));
  }
  // The appender of the last append keeps the file open until it is closed.
  const { file } = await recording();
  const opened = () => fs.readdirSync('/proc/self/fd').filter((fd) => {
    try { return fs.readlinkSync(`/proc/self/fd/${fd}`) === file; } catch (err) { return false; }
  }).length;
  assert.strictEqual(opened(), 1);
  await ok(vidora.vrxFileClose, file);
  assert.strictEqual(opened(), 0);
  assert.strictEqual(await failure(vidora.vrxFileCreate, path.join(dir, 'small.vrx'), 1048575), CODES.invalidFileSize);
  assert.ok(!fs.existsSync(path.join(dir, 'small.vrx')));
});

test('recover checks, repairs and salvages a file whose last footer was lost', async () => {
  const { file } = await recording();
  const partitions = await partitionsOf(file);
  const last = partitions[partitions.length - 1];
  const footer = last.contentsBounds.offset + last.contentsBounds.length;
  const bytes = fs.readFileSync(file);
  bytes.fill(0, footer, last.fullBounds.offset + last.fullBounds.length);
  const damaged = path.join(dir, 'damaged.vrx');
  for (const salvage of [false, true]) {
    fs.writeFileSync(damaged, bytes);
    assert.strictEqual(await failure(vidora.vrxFileRecover, { fileName: damaged, check: true }), CODES.incorrectContent);
    assert.ok(fs.readFileSync(damaged).equals(bytes), 'a check changes nothing');
    const { lastPartitionInfo } = await ok(vidora.vrxFileRecover, salvage ? { fileName: damaged, salvage } : damaged);
    const kept = partitions[salvage ? 2 : 1];
    assert.deepStrictEqual(lastPartitionInfo.bounds.offset, kept.fullBounds.offset);
    assert.strictEqual(lastPartitionInfo.fixedMetadata, kept.fixedMetadata);
    assert.strictEqual(lastPartitionInfo.startMillis, kept.seekPoints[0].wallClockMillis);
    assert.deepStrictEqual(await ok(vidora.vrxFileRecover, { fileName: damaged, check: true }).then((r) => r.lastPartitionInfo), undefined);
    assert.strictEqual((await partitionsOf(damaged)).length, salvage ? 3 : 2);
  }
  const empty = await managed();
  assert.strictEqual(await failure(vidora.vrxFileRecover, empty), CODES.noPartition);
});

test('missing files and files that are not VRX: the error, the file unchanged', async () => {
  const missing = path.join(dir, 'missing.vrx');
  const notes = path.join(dir, 'notes.vrx');
  fs.writeFileSync(notes, 'not the packets you are looking for\n'.repeat(40));
  const good = await managed();
  const src = segment(dir, 30);
  const calls = (file) => [
    ['vrxFileClear', [file]], ['vrxFileClose', [file]], ['vrxFileRecover', [file]],
    ['vrxFileDeleteContent', [{ fileNames: [file], wallClockStart: 0, wallClockEnd: T0 + 99999 }]],
    ['vrxFileAppend', [{ srcFileName: src.file, dstFileName: file }]],
    ['vrxFileAppend', [{ srcFileName: file, dstFileName: good }]],
    ['vrxFileCopyContent', [{ srcFileNames: [file], dstFileName: good, wallClockStart: 0, wallClockEnd: T0 + 99999 }]],
    ['vrxFileEstimateSize', [{ srcFileNames: [file], wallClockStart: T0 }]],
  ];
  const goodBytes = fs.readFileSync(good);
  for (const [name, args] of calls(missing)) {
    assert.strictEqual(await failure(vidora[name], ...args), CODES.fileNotFound, `${name} on a missing file`);
  }
  const notesBytes = fs.readFileSync(notes);
  for (const [name, args] of calls(notes)) {
    const { error } = await call(vidora[name], ...args);
    if (name === 'vrxFileClose') {
      assert.strictEqual(error, null, 'closing a file without an appender is fine');
      continue;
    }
    assert.ok(error, `${name} on a file that is not VRX fails`);
    assert.ok([12, 8].includes(error.errors[0].module), `${name}: ${error.message}`);
    assert.ok(fs.readFileSync(notes).equals(notesBytes), `${name} leaves it unchanged`);
  }
  assert.ok(fs.readFileSync(good).equals(goodBytes));
  // One file as both source and destination.
  const { error } = await call(vidora.vrxFileCopyContent, { srcFileNames: [good], dstFileName: good, wallClockStart: 0, wallClockEnd: 1 });
  assert.strictEqual(error.errors[0].full, 0x800c0010 | 0);
});

test('a file held by another process times out after 1.5 s, unchanged; a shared holder lets a listing read', async () => {
  const { file } = await recording();
  const src = segment(dir, 31);
  const other = await managed();
  const before = fs.readFileSync(file);
  // One copy for each call, so that they wait side by side and not for each other in this
  // process's own lock layer.
  const calls = [
    ['vrxFileClear', (f) => [f]], ['vrxFileClose', (f) => [f]], ['vrxFileRecover', (f) => [f]],
    ['vrxFileDeleteContent', (f) => [{ fileNames: [f], wallClockStart: 0, wallClockEnd: T0 + 99999 }]],
    ['vrxFileAppend', (f) => [{ srcFileName: src.file, dstFileName: f }]],
    ['vrxFileCopyContent', (f) => [{ srcFileNames: [f], dstFileName: other, wallClockStart: 0, wallClockEnd: T0 + 99999 }]],
    ['vrxFileEstimateSize', (f) => [{ srcFileNames: [f], wallClockStart: T0 }]],
    ['vrxFileInfo', (f) => [f]], ['vrxFileListFrames', (f) => [f]], ['vrxFileListPartitions', (f) => [f]],
    ['vrxFileListFragments', (f) => [{ fileName: f }]],
  ].map(([name, args], i) => {
    const copy = path.join(dir, `held-${i}.vrx`);
    fs.writeFileSync(copy, before);
    return [name, copy, args(copy)];
  });
  const holders = await Promise.all(calls.map(([, copy]) => holdFlock(copy, '-x')));
  try {
    const start = Date.now();
    const results = await Promise.all(calls.map(async ([name, , args]) => {
      const code = await failure(vidora[name], ...args);
      return [name, code, Date.now() - start];
    }));
    for (const [name, code, waited] of results) {
      assert.strictEqual(code, CODES.timedOut, name);
      assert.ok(waited >= 1450, `${name} waited the whole limit (${waited} ms)`);
    }
  } finally {
    await Promise.all(holders.map((holder) => holder.release()));
  }
  for (const [name, copy] of calls) assert.ok(fs.readFileSync(copy).equals(before), name);
  // The source of an append is held against other processes too; a reader is not.
  const srcHolder = await holdFlock(src.file, '-s');
  try {
    assert.strictEqual(await failure(vidora.vrxFileAppend, { srcFileName: src.file, dstFileName: file }), CODES.timedOut);
    assert.ok((await framesOf(src.file)).length > 0);
  } finally {
    await srcHolder.release();
  }
  await ok(vidora.vrxFileAppend, { srcFileName: src.file, dstFileName: file });
});
