'use strict';
// processMedia as a stream: the same bytes in every destination, the progressive framing of a
// socket, pause and auto pause, pausing the video alone, cancel, a recording that grows while
// it is served, and every wrong parameter or source.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawn } = require('child_process');

const { vidora, CODES, INVALID_PARAMETERS, assertThrowsCode, tempDir, sleep } = require('./helpers');
const { send } = require('./operation_helpers');
const { framesOfBytes: listVrx } = require('./managed_files');
const { makeRecording, probe, T0 } = require('./recordings');
const { findTool, childEnv } = require('../tools/vrx_tools');

const dir = tempDir('vidora-media-control-');
const LATER = T0 + 3600000;
const rec = makeRecording(path.join(dir, 'h264.vrx'), { video: 'h264' });
const serve = (params, sink = 'transfer', control) =>
  send({ srcFileName: rec.file, wallClockEnd: LATER, ...params }, sink, control, vidora.processMedia);

// A progressive fragmented MP4 stream laid out as a plain one: the initialisation segment, then
// each fragment as moof, the mdat header, its video samples and its audio samples.
function unframeProgressive(bytes) {
  const units = [];
  for (let at = 0; at < bytes.length;) {
    const head = bytes.readUInt32BE(at);
    units.push({ type: head >>> 24, data: bytes.subarray(at + 4, at + 4 + (head & 0xffffff)) });
    at += 4 + (head & 0xffffff);
  }
  const out = [];
  let fragment = null;
  for (const { type, data } of units) {
    if (type === 0xfa) out.push(data);
    if (type === 0xf9) fragment = { moof: [], mdat: [], video: [], audio: [] };
    if (type === 0xfb) fragment.moof.push(data);
    if (type === 0xfe) fragment.mdat.push(data);
    if (type === 0xfc) fragment.video.push(data);
    if (type === 0xfd) fragment.audio.push(data);
    if (type === 0xff) out.push(...fragment.moof, ...fragment.mdat, ...fragment.video, ...fragment.audio);
  }
  return { units, file: Buffer.concat(out) };
}

test('the same range comes out byte for byte alike in a file, a socket and both drains', async () => {
  const range = { wallClockStart: T0 + 500, wallClockEnd: T0 + 2500 };
  for (const outputFormat of ['annexb', 'vrx']) {
    // A socket is a network destination: a VRX stream there has no partition around it.
    const sinks = outputFormat === 'vrx' ? ['file', 'consume', 'transfer'] : ['file', 'tcp', 'consume', 'transfer'];
    const outputs = [];
    for (const sink of sinks) {
      const run = await serve({ outputFormat, ...range }, sink);
      assert.strictEqual(run.error, null, `${outputFormat} ${sink}`);
      outputs.push(run.bytes);
    }
    assert.ok(outputs[0].length > 0);
    outputs.slice(1).forEach((bytes, i) => assert.ok(bytes.equals(outputs[0]), `${outputFormat}: ${sinks[i + 1]} as the file`));
  }
  const network = await serve({ outputFormat: 'vrx', ...range }, 'tcp');
  const frames = await listVrx(network.bytes);
  assert.strictEqual(frames.length, network.result.outputFramesCount);
});

test('fragmented MP4 to a socket comes as typed units that lay out into a playable file', async () => {
  const run = await serve({ outputFormat: 'fmp4' }, 'tcp');
  assert.strictEqual(run.error, null);
  const { units, file } = unframeProgressive(run.bytes);
  const types = units.map((u) => u.type);
  assert.strictEqual(types.filter((t) => t === 0xfa).length, 1, 'one initialisation segment');
  assert.ok(types.indexOf(0xfa) < types.indexOf(0xf9), 'before the first fragment');
  assert.strictEqual(types.filter((t) => t === 0xf9).length, types.filter((t) => t === 0xff).length);
  const laidOut = path.join(dir, 'laid-out.mp4');
  fs.writeFileSync(laidOut, file);
  const streams = probe(laidOut);
  assert.strictEqual(streams.find((s) => s.kind === 'video').packets.length, 90);
  assert.strictEqual(streams.find((s) => s.kind === 'audio').packets.length, rec.frames.filter((f) => f.kind === 'audio').length);
});

test('pause, auto pause after some media time, and cancel', async () => {
  // Made paused: nothing is read until the resume.
  const paused = await serve({ outputFormat: 'vrx', paused: true }, 'transfer', (state) => {
    setTimeout(() => {
      assert.strictEqual(state.chunks.length, 0);
      vidora.resumeOperation(state.id);
    }, 100);
  });
  assert.strictEqual(paused.error, null);
  assert.strictEqual(paused.result.outputFramesCount, rec.frames.length);
  assert.deepStrictEqual(paused.result.stateFlips.map((f) => f.state), ['paused', 'resumed']);

  // resumeOperation(id, 1000) resumes and pauses again 1 s of media later.
  let servedAtPause = 0;
  const auto = await serve({ outputFormat: 'vrx', paused: true }, 'transfer', (state) => {
    vidora.resumeOperation(state.id, 1000);
    const check = setInterval(() => {
      if (!state.events.includes('end') && state.chunks.length > 0 && servedAtPause === 0) {
        servedAtPause = Buffer.concat(state.chunks).length;
        setTimeout(() => {
          clearInterval(check);
          assert.strictEqual(Buffer.concat(state.chunks).length, servedAtPause, 'nothing more while paused');
          vidora.resumeOperation(state.id);
        }, 200);
      }
    }, 50);
  });
  assert.strictEqual(auto.error, null);
  assert.deepStrictEqual(auto.result.stateFlips.map((f) => f.state), ['paused', 'resumed', 'paused', 'resumed']);
  // The first frame past 1 s of media pauses the operation, and is itself still served.
  const firstSecond = await listVrx(auto.bytes.subarray(0, servedAtPause));
  const last = Math.max(...firstSecond.map((f) => (f.timestamp.dts.value * 1000) / f.timestamp.clockRate));
  assert.ok(last > 1000 && last < 1100, `paused just past 1 s of media: ${last} ms`);

  // Canceled mid-way: a clean end with what was served so far.
  const canceled = await serve({ outputFormat: 'vrx', paused: true }, 'transfer', (state) => {
    vidora.operationSetMaxBufferSize(state.id, 1);
    state.hold = true;
    vidora.resumeOperation(state.id);
    setTimeout(() => vidora.cancelOperation(state.id), 100);
  });
  assert.strictEqual(canceled.error, null);
  assert.strictEqual(canceled.result.canceled, true);
  assert.ok(canceled.result.outputFramesCount < rec.frames.length);
});

test('pauseOnlyVideo lets the audio flow and brings the video back on a key frame', async () => {
  // A buffer limit of one byte makes the operation serve one frame per drain; the video is
  // paused after 20 frames and resumed after 28.
  const run = await serve({ outputFormat: 'vrx', paused: true }, 'transfer', (state) => {
    vidora.operationSetMaxBufferSize(state.id, 1);
    vidora.resumeOperation(state.id);
    const pull = state.pull;
    state.pull = () => {};
    state.hold = true;
    const step = () => {
      if (state.events.includes('end')) return;
      const served = state.chunks.length;
      if (served === 20) vidora.pauseOnlyVideo(state.id, true);
      if (served === 28) vidora.pauseOnlyVideo(state.id, false);
      state.hold = false;
      pull();
      state.hold = true;
      setImmediate(step);
    };
    setImmediate(step);
  });
  assert.strictEqual(run.error, null);
  const frames = await listVrx(run.bytes);
  const kinds = frames.map((f) => (f.trackId === 7 ? (f.isKeyFrame ? 'K' : 'v') : 'a')).join('');
  // A run of audio alone in the middle, and the video back on a key frame after it.
  const gap = /[vK](a{3,})K/.exec(kinds);
  assert.ok(gap, kinds);
  assert.ok(frames.filter((f) => f.trackId === 7).length < 90);
  assert.strictEqual(frames.filter((f) => f.trackId === 1000).length, rec.frames.filter((f) => f.kind === 'audio').length);
  for (const args of [[], [1], ['1', true], [1, 'yes']]) {
    assertThrowsCode(() => vidora.pauseOnlyVideo(...args), INVALID_PARAMETERS, JSON.stringify(args));
  }
  assertThrowsCode(() => vidora.pauseOnlyVideo(123456789, true), CODES.operationNotFound);
  // It reads its id and its parameters from the same argument: every call fails.
  for (const args of [[1, {}], [{ onlyKeyFrames: true }], [1]]) {
    assertThrowsCode(() => vidora.changeVideoSendingStyle(...args), INVALID_PARAMETERS, JSON.stringify(args));
  }
});

test('a recording that grows while it is served: the new frames follow, each once, and the appender never waits', async () => {
  const parts = [0, 30, 60, 90].slice(0, -1).map((from, n) => makeRecording(path.join(dir, `piece${n}.vrx`), {
    video: 'h264', audio: false, parts: [{ from, to: from + 30, wallClock: T0 + from * 100 / 3 }],
  }));
  const live = path.join(dir, 'live.vrx');
  const tool = findTool('vrx_append');
  const append = (piece, extra = []) => new Promise((resolve) => {
    const started = Date.now();
    // flock(1) holds the file's lock exclusively for the append, as the appending task does.
    const child = spawn('flock', ['-x', live, tool, 'append', live, piece.file, ...extra], { env: childEnv() });
    child.on('exit', (status) => resolve({ status, waited: Date.now() - started }));
  });
  const created = await new Promise((resolve) => spawn(tool, ['create', live, String(4 << 20)], { env: childEnv() }).on('exit', resolve));
  assert.strictEqual(created, 0);
  assert.strictEqual((await append(parts[0], ['new'])).status, 0);
  const appends = [];
  const run = await send({ srcFileName: live, outputFormat: 'vrx', wallClockStart: T0 }, 'transfer', (state) => {
    (async () => {
      for (const piece of parts.slice(1)) {
        await sleep(300);
        appends.push(await append(piece));
      }
      // The read follows the growth within its 3 s waits; once every frame is out it is
      // stopped, as it would otherwise wait 30 s for more.
      for (let i = 0; i < 150 && !state.events.includes('end'); i++) {
        await sleep(100);
        const served = state.chunks.length ? await listVrx(Buffer.concat(state.chunks)).catch(() => []) : [];
        if (served.length >= 90) break;
      }
      if (!state.events.includes('end')) vidora.cancelOperation(state.id);
    })();
  }, vidora.processMedia);
  assert.strictEqual(run.error, null);
  for (const { status, waited } of appends) {
    assert.strictEqual(status, 0);
    assert.ok(waited < 2000, `the appender waited ${waited} ms`);
  }
  const frames = (await listVrx(run.bytes)).filter((f) => f.trackId === 7);
  assert.deepStrictEqual(frames.map((f) => f.timestamp.dts.value), parts.flatMap((p) => p.frames.map((f) => f.dts)));

  // A plain file that grows at its end, into a file: the read-ahead under the locks is dropped
  // each time they are taken again, so the partition appended while the read waits is served.
  const plain = path.join(dir, 'plain.vrx');
  fs.copyFileSync(parts[0].file, plain);
  const grown = await send({ srcFileName: plain, outputFormat: 'VRX', wallClockEnd: -1 }, 'file', (state) => {
    // The first round ends at the first footer and waits 3 s before it reads on.
    setTimeout(() => fs.appendFileSync(plain, fs.readFileSync(parts[1].file)), 500);
    setTimeout(() => vidora.cancelOperation(state.id), 5000);
  }, vidora.processMedia);
  assert.strictEqual(grown.error, null);
  assert.deepStrictEqual([grown.result.inputFramesCount, grown.result.outputFramesCount], [60, 60]);
});

test('wrong parameters throw, and sources that cannot be served end with an error', async () => {
  const callback = () => assert.fail('no callback for a refused call');
  const base = { srcFileName: rec.file, dstCallback: () => {} };
  const refused = [
    [5, callback],
    [{ ...base, transportFormat: 'tcp' }, callback],
    [{ ...base, forceFps: 30, speedupFactor: 2 }, callback],
    [{ ...base, forceFps: 30, serveInReverse: 'gop' }, callback],
    [{ ...base, skipAudio: true, skipVideo: true }, callback],
    [{ ...base, idrFrequency: -3, skipVideo: true }, callback],
    [{ ...base, serveInReverse: 'idr', skipVideo: true }, callback],
    [{ ...base, wallClockStart: 100, wallClockEnd: 50 }, callback],
    [{ srcFileName: rec.file }, callback],
    [{ ...base, dstFileName: path.join(dir, 'x.vrx') }, callback],
    [{ dstCallback: () => {} }, callback],
  ];
  for (const args of refused) {
    assertThrowsCode(() => vidora.processMedia(...args), INVALID_PARAMETERS, JSON.stringify(args[0]));
  }
  const full = fs.readFileSync(rec.file);
  const random = path.join(dir, 'random.vrx');
  fs.writeFileSync(random, Buffer.from(Array.from({ length: 4096 }, (_, i) => (i * 7919) & 0xff)));
  const failing = [
    [{ srcFileName: path.join(dir, 'missing.vrx') }, (e) => e.errors[0].full === CODES.fileNotFound],
    [{ srcFileName: random }, (e) => e.errors[0].module === 12 || e.errors[0].full === CODES.noRecordings],
    [{ outputFormat: 'avi' }, (e) => e.errors[0].full === (0x8008000f | 0)],
    [{ outputFormat: 'mp4' }, (e) => e.errors[0].module === 12],
    // A start that snaps past the range's end finds no recordings.
    [{ wallClockStart: T0 + 1100, wallClockEnd: T0 + 1200, snapToIdr: 'after' }, (e) => e.errors[0].full === CODES.noRecordings],
  ];
  for (const [params, check] of failing) {
    const run = await serve(params, 'transfer');
    assert.ok(run.error && check(run.error), `${JSON.stringify(params)}: ${run.error && run.error.message}`);
    assert.ok(Array.isArray(run.error.damagedFilesPaths));
    assert.strictEqual(run.error.fileChecksDurationMillis, 0);
  }
  // Cut anywhere, a recording serves the frames before the cut or fails; it never hangs.
  const cuts = Array.from({ length: 24 }, (_, i) => Math.floor((full.length * (i + 1)) / 25) + (i % 4));
  for (const size of cuts) {
    const cut = path.join(dir, `cut-${size}.vrx`);
    fs.writeFileSync(cut, full.subarray(0, size));
    const run = await send({ srcFileName: cut, outputFormat: 'vrx', wallClockEnd: LATER }, 'transfer', () => {}, vidora.processMedia);
    if (run.error || run.bytes.length === 0) continue;
    const frames = await listVrx(run.bytes);
    assert.ok(frames.length <= rec.frames.length, `${size}`);
  }
});
