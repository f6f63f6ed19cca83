'use strict';
// vrxFileInfo, vrxFileListFrames, vrxFileListPartitions and vrxFileListFragments from
// JavaScript, on files written by WriterVREX (tools/vrx_write) and on damaged copies of the
// sample. Every listed field is checked against what was written, and payload offsets against
// the bytes of the file.
const test = require('node:test');
const assert = require('assert');
const { spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');

const { vidora, SAMPLE, REQUIRE_VIDORA, tempDir, readOnlySample, runAsNobody } = require('./helpers');
const { writeVrx } = require('../tools/vrx_tools');
const { CODES, call, ok: list, sampleWithSeekPoint, T0 } = require('./managed_files');

const dir = tempDir('vidora-listing-');

// rescale of the media model: half up, in integers.
function rescale(value, from, to) {
  if (value < 0 || from === 0) return -1;
  if (from === to) return value;
  return Number((BigInt(from >> 1) + BigInt(value) * BigInt(to)) / BigInt(from));
}

// What a reader rebuilds from a sync node written with `wcMillis`: the wall clock in the
// stream clock's rate.
function syncWallClockInRate(wcMillis, rate) {
  const seconds = BigInt(Math.floor(wcMillis / 1000));
  const nanos = BigInt((wcMillis % 1000) * 1000000);
  const r = BigInt(rate);
  const term = rate === 1000000000 ? nanos : (500000000n + r * nanos) / 1000000000n;
  return Number(seconds * r + term);
}

// A description for vrx_write that remembers how each frame must list.
class Recording {
  constructor() {
    this.lines = [];
    this.frames = [];
    this.sync = null;
  }

  partition(fixed, dynamic = '') {
    this.lines.push(`partition ${fixed} ${dynamic}`);
    this.sync = null;  // a partition header makes the reader forget the clock sync
  }

  end() { this.lines.push('end'); }

  syncNode(sc, rate, wcMillis) {
    this.lines.push(`sync ${sc} ${rate} ${wcMillis}`);
    this.sync = { sc, rate, wc: syncWallClockInRate(wcMillis, rate) };
  }

  video(dts, rate, cts, key, size) { this.frame('video', 7, dts, rate, cts, key, size); }

  audio(dts, rate, size) { this.frame('audio', 1000, dts, rate, 0, true, size); }

  frame(kind, trackId, dts, rate, cts, key, size) {
    const seed = (this.frames.length * 37) & 0xff;
    this.lines.push(kind === 'video' ? `video ${dts} ${rate} ${cts} ${key ? 1 : 0} pattern:${size}:${seed}`
      : `audio ${dts} ${rate} pattern:${size}:${seed}`);
    this.frames.push({ kind, trackId, dts, rate, cts, key, size, seed, sync: this.sync });
  }

  write(file) {
    this.file = file;
    this.manifest = writeVrx(file, this.lines);
    this.frames.forEach((f, i) => { f.offset = this.manifest.frames[i].offset; });
    return this;
  }
}

function wallClockMillis(frame) {
  const s = frame.sync;
  if (!s) return -1;
  return rescale(frame.dts, frame.rate, 1000) + rescale(s.wc, s.rate, 1000) - rescale(s.sc, s.rate, 1000);
}

function expectedFrame(f) {
  const ts = (value, clockRate) => ({ value, clockRate });
  return {
    trackId: f.trackId,
    isKeyFrame: f.key,
    clockSync: f.sync ? { streamClock: ts(f.sync.sc, f.sync.rate), wallClock: ts(f.sync.wc, f.sync.rate) }
      : { streamClock: ts(-1, 0), wallClock: ts(-1, 0) },
    timestamp: { dts: ts(f.dts, f.rate), cts: ts(f.cts, f.rate), clockRate: f.rate },
    offset: f.offset,
    length: f.size,
  };
}

function expectedTrack(frames) {
  const track = {
    framesCount: frames.length,
    keyFramesCount: frames.filter((f) => f.key).length,
    startMillis: { streamClock: -1, wallClock: -1 },
    endMillis: { streamClock: -1, wallClock: -1 },
  };
  for (const f of frames) {
    const streamClock = rescale(f.dts, f.rate, 1000);
    const wallClock = wallClockMillis(f);
    if (track.startMillis.streamClock === -1) track.startMillis.streamClock = streamClock;
    if (track.startMillis.wallClock === -1) track.startMillis.wallClock = wallClock;
    track.endMillis.streamClock = streamClock;
    if (wallClock >= 0) track.endMillis.wallClock = wallClock;
  }
  return track;
}

function expectedInfo(recording) {
  return {
    audio: expectedTrack(recording.frames.filter((f) => f.kind === 'audio')),
    video: expectedTrack(recording.frames.filter((f) => f.kind === 'video')),
  };
}

function pattern(size, seed) {
  return Buffer.from(Array.from({ length: size }, (_, i) => (seed + i) & 0xff));
}

// Two partitions: audio before the first sync node, CTS, dynamic metadata that needs padding,
// a key frame without a sync node right before it, 64-bit DTS, an explicit clock rate and
// 25 s between two seek points of one partition.
function mainRecording() {
  const r = new Recording();
  r.partition('0a0b0c0d0e0f101112131415', 'd1d2d3d4d5');
  r.audio(0, 48000, 200);
  r.syncNode(0, 90000, T0);
  r.video(0, 90000, 0, true, 1000);
  r.audio(1024, 48000, 201);
  r.video(3600, 90000, 7200, false, 500);
  r.syncNode(90000, 90000, T0 + 1000);
  r.video(90000, 90000, 0, true, 1203);
  r.video(93600, 90000, 3600, false, 301);
  r.audio(2048, 48000, 7);
  r.video(180000, 90000, 0, true, 64);
  r.end();
  r.partition('ffeeddccbbaa998877665544');
  r.syncNode(5000000000, 90000, T0 + 60000);
  r.video(5000000000, 90000, 0, true, 2048);
  r.audio(12345, 25000, 33);
  r.video(5000003600, 90000, 0, false, 100);
  r.syncNode(5000000000 + 25000 * 90, 90000, T0 + 85000);
  r.video(5000000000 + 25000 * 90, 90000, 0, true, 77);
  r.video(5000000000 + 25040 * 90, 90000, 0, false, 78);
  r.end();
  return r.write(path.join(dir, 'main.vrx'));
}

// (The offsets of the sample's frames are checked against the C++ reader's in the CLI tests.)
test('vrxFileListFrames lists every frame as written, at the offsets of its bytes', async () => {
  const r = mainRecording();
  const { frames } = await list(vidora.vrxFileListFrames, r.file);
  assert.deepStrictEqual(frames, r.frames.map(expectedFrame));
  const bytes = fs.readFileSync(r.file);
  r.frames.forEach((f, i) => {
    assert.ok(bytes.subarray(frames[i].offset, frames[i].offset + frames[i].length).equals(pattern(f.size, f.seed)),
      `payload of frame ${i}`);
  });
});

test('vrxFileInfo counts per medium, with stream and wall clocks in ms', async () => {
  const r = mainRecording();
  const info = await list(vidora.vrxFileInfo, r.file);
  const expected = expectedInfo(r);
  assert.deepStrictEqual({ audio: info.audio, video: info.video }, expected);
  // The audio came before the first sync node: its start has a stream clock but the wall
  // clock of the first audio frame that had one.
  assert.deepStrictEqual(expected.audio.startMillis, { streamClock: 0, wallClock: T0 + 21 });
});

test('vrxFileListPartitions gives bounds, metadata and seek tables as laid out', async () => {
  const r = mainRecording();
  const { partitions } = await list(vidora.vrxFileListPartitions, r.file);
  const bytes = fs.readFileSync(r.file);
  const fixed = ['0a0b0c0d0e0f101112131415', 'ffeeddccbbaa998877665544'];
  // The last wall clock comes from a walk from the last seek point. In the first partition that
  // point is a key frame with no sync node in front, so the walk meets no clock sync.
  const lastVideo = [-1, T0 + 85040];
  assert.strictEqual(partitions.length, 2);
  partitions.forEach((p, i) => {
    const m = r.manifest.partitions[i];
    assert.deepStrictEqual(p, {
      fullBounds: { offset: m.offset, length: m.size },
      fixedMetadata: fixed[i],
      dynamicMetadataBounds: { offset: m.dynamic[0], length: m.dynamic[1] },
      contentsBounds: { offset: m.contents[0], length: m.contents[1] },
      lastVideoWallClockMillis: lastVideo[i],
      seekPoints: m.seekPoints.map(([offset, wallClockMillis]) => ({ offset, wallClockMillis })),
    });
  });
  // (Where the writer puts headers, footers and the packets seek points aim at is its C++ tests'.)
  const dyn = partitions[0].dynamicMetadataBounds;
  assert.strictEqual(bytes.subarray(dyn.offset, dyn.offset + dyn.length).toString('hex'), 'd1d2d3d4d5');
  assert.deepStrictEqual(partitions.flatMap((p) => p.seekPoints.map((s) => s.wallClockMillis)),
    [T0, T0 + 1000, T0 + 2000, T0 + 60000, T0 + 85000]);
});

test('vrxFileListFragments splits at gaps of more than 20 s and never crosses partitions', async () => {
  const r = mainRecording();
  const span = (a, b) => ({ wallClockStart: T0 + a, wallClockEnd: T0 + b });
  const cases = [
    [{}, [span(0, 2000), span(60000, 60000), span(85000, 85000)]],
    [{ wallClockStart: 0, wallClockEnd: 0 }, [span(0, 2000), span(60000, 60000), span(85000, 85000)]],
    [{ wallClockStart: T0 + 30000 }, [span(60000, 60000), span(85000, 85000)]],
    [{ wallClockEnd: T0 + 50000 }, [span(0, 2000)]],
  ];
  for (const [range, expected] of cases) {
    const { fragments } = await list(vidora.vrxFileListFragments, { fileName: r.file, ...range });
    assert.deepStrictEqual(fragments, expected, JSON.stringify(range));
  }
});

test('a file not partitioned, an empty managed file and one with a free tail list as laid out', async () => {
  const flat = new Recording();
  flat.syncNode(0, 90000, T0);
  for (const ms of [0, 1000, 3000, 5001, 6000]) {
    flat.audio(ms * 48, 48000, 10);
    flat.video(ms * 90, 90000, 0, ms === 0, 20);
  }
  const tail = new Recording();
  tail.partition('000000000000000000000001');
  tail.syncNode(0, 90000, T0);
  tail.video(0, 90000, 0, true, 10);
  tail.end();
  const empty = new Recording();
  for (const r of [tail, empty]) r.lines.push('pad 1048576');
  const span = (a, b) => ({ wallClockStart: T0 + a, wallClockEnd: T0 + b });
  // [recording, range, its fragments]: a file that is not partitioned splits frame by frame,
  // 2,000 ms apart staying one span and 2,001 ms splitting.
  const cases = [
    [flat.write(path.join(dir, 'flat.vrx')), {}, [span(0, 3000), span(5001, 6000)]],
    [flat, { wallClockStart: T0 + 1000 }, [span(1000, 3000), span(5001, 6000)]],
    [flat, { wallClockEnd: T0 + 4000 }, [span(0, 3000)]],
    [tail.write(path.join(dir, 'managed.vrx')), {}, [span(0, 0)]],
    [empty.write(path.join(dir, 'empty-managed.vrx')), {}, []],
  ];
  for (const [r, range, expected] of cases) {
    const { fragments } = await list(vidora.vrxFileListFragments, { fileName: r.file, ...range });
    assert.deepStrictEqual(fragments, expected, `${r.file} ${JSON.stringify(range)}`);
    assert.deepStrictEqual((await list(vidora.vrxFileListFrames, r.file)).frames, r.frames.map(expectedFrame), r.file);
    const info = await list(vidora.vrxFileInfo, r.file);
    assert.deepStrictEqual({ audio: info.audio, video: info.video }, expectedInfo(r), r.file);
    const { partitions } = await list(vidora.vrxFileListPartitions, r.file);
    assert.deepStrictEqual(partitions.map((p) => p.seekPoints),
      r.manifest.partitions.map((m) => m.seekPoints.map(([offset, wallClockMillis]) => ({ offset, wallClockMillis }))), r.file);
  }
});

test('the partition listing reads no frame data', async () => {
  // 40 partitions of a 256 KiB key frame and three 64 KiB frames: 17 MiB of payload.
  const lines = [];
  for (let p = 0; p < 40; ++p) {
    lines.push(`partition ${p.toString(16).padStart(24, '0')}`, `sync ${p * 90000} 90000 ${T0 + p * 1000}`,
      `video ${p * 90000} 90000 0 1 pattern:262144:${p}`);
    for (let f = 1; f < 4; ++f) lines.push(`video ${p * 90000 + f * 3600} 90000 0 0 pattern:65536:${f}`);
    lines.push('end');
  }
  const file = path.join(dir, 'big-frames.vrx');
  writeVrx(file, lines);
  const rchar = () => Number(/rchar: (\d+)/.exec(fs.readFileSync('/proc/self/io', 'utf8'))[1]);
  const before = rchar();
  const { partitions } = await list(vidora.vrxFileListPartitions, file);
  const read = rchar() - before;
  assert.strictEqual(partitions.length, 40);
  assert.deepStrictEqual(partitions.map((p) => p.lastVideoWallClockMillis), partitions.map((_, p) => T0 + p * 1000 + 120));
  // Headers, footers, seek tables and the packet headers after the last seek point, plus this
  // test's own read of /proc: a few KiB, against 17 MiB of frames.
  assert.ok(read < 64 * 1024, `${read} bytes read`);
});

test('wrong arguments throw before any task is made', () => {
  const message = (name) => ({ message: `<-# FAILED! callback_${name} Invalid parameters` });
  const cb = () => assert.fail('no callback for wrong arguments');
  for (const name of ['vrxFileInfo', 'vrxFileListFrames', 'vrxFileListPartitions']) {
    const fn = vidora[name];
    for (const args of [[], ['a.vrx'], [cb], [1, cb], [{}, cb], ['a.vrx', 'cb'], ['a.vrx', cb, 3], [null, cb]]) {
      assert.throws(() => fn(...args), message(name), `${name}(${args.map(String)})`);
    }
  }
  for (const args of [[], [{ fileName: 'a.vrx' }], ['a.vrx', cb], [{}, cb], [{ fileName: 3 }, cb],
    [{ fileName: 'a.vrx' }, 'cb'], [{ fileName: 'a.vrx' }, cb, 1]]) {
    assert.throws(() => vidora.vrxFileListFragments(...args), message('vrxFileListFragments'), String(args));
  }
});

test('bad files give an error object or a sane result, never a crash', async () => {
  const full = fs.readFileSync(SAMPLE);
  const files = {
    missing: path.join(dir, 'missing.vrx'),
    directory: dir,
    empty: path.join(dir, 'empty.vrx'),
    truncated: path.join(dir, 'truncated.vrx'),
    random: path.join(dir, 'random.vrx'),
    headerOnly: path.join(dir, 'header-only.vrx'),
    fifo: path.join(dir, 'fifo.vrx'),
  };
  // Nobody reads the FIFO: it must be refused like a file that cannot be locked, not wait.
  spawnSync('mkfifo', [files.fifo]);
  fs.writeFileSync(files.empty, Buffer.alloc(0));
  fs.writeFileSync(files.truncated, full.subarray(0, Math.floor(full.length / 2) + 3));
  let seed = 12345;
  fs.writeFileSync(files.random, Buffer.from(Array.from({ length: 65536 }, () => {
    seed = (seed * 1103515245 + 12345) & 0x7fffffff;
    return seed >> 16;
  })));
  fs.writeFileSync(files.headerOnly, full.subarray(0, 64));

  const { frames: allFrames } = await list(vidora.vrxFileListFrames, SAMPLE);
  const calls = [
    ['vrxFileInfo', (f) => f],
    ['vrxFileListFrames', (f) => f],
    ['vrxFileListPartitions', (f) => f],
    ['vrxFileListFragments', (f) => ({ fileName: f })],
  ];
  for (const [kind, file] of Object.entries(files)) {
    for (const [name, arg] of calls) {
      const { error, result } = await call(vidora[name], arg(file));
      const label = `${name} on ${kind}`;
      if (error) {
        assert.ok(Array.isArray(error.errors) && error.errors.length > 0, label);
        assert.ok(error.errors[0].full < 0, label);
        assert.strictEqual(error.message, vidora.getErrorDescription(error.errors[0].full), label);
        assert.strictEqual(result, null, label);
        if (kind === 'missing') assert.strictEqual(error.errors[0].full, CODES.fileNotFound, label);
        if (kind === 'fifo') assert.strictEqual(error.errors[0].full, CODES.timedOut, label);
        continue;
      }
      assert.ok(!['missing', 'directory', 'empty', 'fifo'].includes(kind), `${label} must fail`);
      if (name === 'vrxFileListFrames') {
        // Up to a packet cut in two, the frames are those of the whole file.
        assert.deepStrictEqual(result.frames, allFrames.slice(0, result.frames.length), label);
      }
    }
  }
});

test('a seek table out of order is damage for the fragment listing, never a span that ends before it starts', async () => {
  for (const [name, value] of [['backwards.vrx', T0 - 1], ['negative.vrx', -1000]]) {
    const file = await sampleWithSeekPoint(dir, name, BigInt(value));
    const { error } = await call(vidora.vrxFileListFragments, { fileName: file });
    assert.strictEqual(error.errors[0].module, 12, name);
    assert.strictEqual(error.errors[0].code, 5, name);  // "Incorrect VRX file content"
    // The partition listing gives the table as it stands.
    const { partitions } = await list(vidora.vrxFileListPartitions, file);
    assert.strictEqual(partitions[0].seekPoints[1].wallClockMillis, value, name);
  }
  const late = await sampleWithSeekPoint(dir, 'late.vrx', 2n ** 62n);
  const { fragments } = await list(vidora.vrxFileListFragments, { fileName: late });
  for (const f of fragments) assert.ok(f.wallClockStart <= f.wallClockEnd, JSON.stringify(f));
});

test('a recording its user may read but not write cannot be locked: the time-out code comes at once', async (t) => {
  const file = readOnlySample();
  // The lock goes through a descriptor opened for writing, which this user cannot open.
  const child = runAsNobody(process.execPath, '-e', `const start = Date.now();
    ${REQUIRE_VIDORA}.vrxFileInfo(${JSON.stringify(file)}, (error) => {
      console.log(JSON.stringify({ full: error && error.errors[0].full, waited: Date.now() - start }));
    });`);
  if (child === null) {
    t.skip('needs root to run a child as nobody');
    return;
  }
  assert.strictEqual(child.status, 0, child.stderr);
  const { full, waited } = JSON.parse(child.stdout);
  assert.strictEqual(full, CODES.timedOut);
  assert.ok(waited < 1000, `gave up at once (${waited} ms)`);
});
