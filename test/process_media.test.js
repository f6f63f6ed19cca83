'use strict';
// processMedia on recordings made from ffmpeg's streams: every format from every codec, read
// back by ffprobe and decoded by ffmpeg, for ranges placed every way, forward and backward,
// with the key-frame filters and the retiming options.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora, tempDir } = require('./helpers');
const { send } = require('./operation_helpers');
const { framesOfBytes } = require('./managed_files');
const { makeRecording, probe, pictureHashes, expectedPictureHashes, forwardFrames, T0 } = require('./recordings');

const dir = tempDir('vidora-media-');
const GAP = 60000;
// A range without an end follows a growing recording for 30 s after its last frame: the tests
// close their ranges far beyond the recordings.
const LATER = T0 + 100 * GAP;
// H.264 and AAC in two partitions with a minute between them; the other codecs in one.
const recordings = {
  h264: makeRecording(path.join(dir, 'h264.vrx'), {
    video: 'h264', parts: [{ from: 0, to: 45, wallClock: T0 }, { from: 45, to: 90, wallClock: T0 + GAP }],
  }),
  h264b: makeRecording(path.join(dir, 'h264b.vrx'), { video: 'h264b' }),
  h265: makeRecording(path.join(dir, 'h265.vrx'), { video: 'h265' }),
  av1: makeRecording(path.join(dir, 'av1.vrx'), { video: 'av1', audio: false }),
};

const serve = (params, sink = 'transfer', control) => send(params, sink, control, vidora.processMedia);
const video = (frames) => frames.filter((f) => f.kind === 'video');
const audio = (frames) => frames.filter((f) => f.kind === 'audio');

// The frames of a VRX output, as our reader lists them.
async function vrxFrames(bytes) {
  return (await framesOfBytes(bytes)).map((f) => ({
    kind: [1000, 1002].includes(f.trackId) ? 'audio' : 'video', key: f.isKeyFrame, dts: f.timestamp.dts.value,
    cts: f.timestamp.cts.value, rate: f.timestamp.clockRate, size: f.length,
  }));
}

test('every format from every codec plays back as exactly the frames of the range', async () => {
  const range = { start: T0 + 600, end: T0 + GAP + 800 };
  for (const [name, rec] of Object.entries(recordings)) {
    const start = range.start;
    const end = name === 'h264' ? range.end : T0 + 2400;
    // A range that ends on a key frame leaves that frame alone in the last fragment of an fMP4.
    const keyEnd = video(rec.frames).filter((f) => f.key && f.wallClock > start)[1].wallClock;
    const formats = [['mp4', 'file'], ['fmp4', 'transfer'], ['fmp4', 'consume', keyEnd], ['vrx', 'file'], ['vrx', 'consume']];
    if (name !== 'av1') formats.push(['annexb', 'transfer']);
    for (const [outputFormat, sink, rangeEnd = end] of formats) {
      const label = `${name} as ${outputFormat} into ${sink} up to ${rangeEnd - T0}`;
      const expected = forwardFrames(rec, start, rangeEnd);
      const run = await serve({ srcFileName: rec.file, outputFormat, wallClockStart: start, wallClockEnd: rangeEnd }, sink);
      assert.strictEqual(run.error, null, `${label}: ${run.error && run.error.message}`);
      assert.strictEqual(run.result.canceled, false, label);
      assert.strictEqual(run.sourcesOpen, 0, `${label}: the recording is still open at the callback`);
      // Raw H.264 carries video alone.
      const served = outputFormat === 'annexb' ? video(expected) : expected;
      assert.strictEqual(run.result.outputFramesCount, served.length, label);
      if (outputFormat === 'vrx') {
        const listed = await vrxFrames(run.bytes);
        assert.deepStrictEqual(listed, served.map(({ kind, key, dts, cts, rate, size }) => ({ kind, key, dts, cts, rate, size })), label);
        continue;
      }
      const file = path.join(dir, `out-${name}.${outputFormat}`);
      fs.writeFileSync(file, run.bytes);
      const streams = outputFormat === 'annexb' ? probe(file, name === 'h265' ? 'hevc' : 'h264') : probe(file);
      const videoStream = streams.find((s) => s.kind === 'video');
      assert.strictEqual(videoStream.codec, { h264: 'h264', h264b: 'h264', h265: 'hevc', av1: 'av1' }[name], label);
      assert.deepStrictEqual([videoStream.width, videoStream.height], [64, 64], label);
      assert.strictEqual(videoStream.packets.length, video(served).length, label);
      assert.deepStrictEqual(videoStream.packets.map((p) => p.key), video(served).map((f) => f.key), label);
      if (outputFormat !== 'annexb') {
        const audioStream = streams.find((s) => s.kind === 'audio');
        assert.strictEqual(audioStream ? audioStream.packets.length : 0, audio(served).length, label);
        // Decoding order and steps are the stream's own (90 kHz video, 8 kHz audio).
        const steps = (packets) => packets.slice(1).map((p, i) => p.dts - packets[i].dts);
        assert.deepStrictEqual(steps(videoStream.packets), steps(video(served)), `${label}: video DTS steps`);
        if (audioStream) assert.deepStrictEqual(steps(audioStream.packets), steps(audio(served)), `${label}: audio DTS steps`);
      }
      const format = outputFormat === 'annexb' ? (name === 'h265' ? 'hevc' : 'h264') : undefined;
      assert.deepStrictEqual(pictureHashes(file, format), expectedPictureHashes(name, served), `${label}: pictures`);
    }
  }
});

test('range starts snap to key frames and range ends cut at the last frame before them', async () => {
  const rec = recordings.h264;
  const keyAt = (n) => video(rec.frames)[n].wallClock;  // wall clock of video packet n
  const cases = [
    ['open start', -1, LATER, 'before'],
    ['inside a group, before', keyAt(20), LATER, 'before'],
    ['inside a group, after', keyAt(20), keyAt(80), 'after'],
    ['inside a group, closest to the earlier key', keyAt(17), LATER, 'closest'],
    ['inside a group, closest to the later key', keyAt(29), LATER, ' Closest '],
    ['exactly on a key frame', keyAt(30), keyAt(44), 'after'],
    ['end in the gap', keyAt(10), T0 + 30000, 'before'],
    ['start in the gap, after', T0 + 30000, LATER, 'after'],
    ['start in the gap, before', T0 + 30000, LATER, 'before'],
    ['over the gap', keyAt(40), keyAt(50), 'before'],
    ['before the first frame', T0 - 5000, keyAt(3), 'before'],
    ['start equal to end', keyAt(60), keyAt(60), 'before'],
    ['after the last key frame, after', T0 + GAP + 10000, LATER, 'after'],
  ];
  for (const [label, start, end, snap] of cases) {
    const run = await serve({ srcFileName: rec.file, outputFormat: 'vrx', wallClockStart: start, wallClockEnd: end, snapToIdr: snap });
    assert.strictEqual(run.error, null, `${label}: ${run.error && run.error.message}`);
    const expected = forwardFrames(rec, start, end, snap.trim().toLowerCase());
    const listed = await vrxFrames(run.bytes);
    assert.deepStrictEqual(listed.map((f) => `${f.kind} ${f.dts}`), expected.map((f) => `${f.kind} ${f.dts}`), label);
    const info = run.result.timestampsInfo.video;
    assert.strictEqual(info.start.wallClockMillis, video(expected)[0].wallClock, label);
    assert.strictEqual(info.end.dts, video(expected).pop().dts, label);
  }
  // (A start that snaps past the range's end: the failures of process_media_control.test.js.)
});

test('backwards by groups and by key frames, and the key-frame filters going forwards', async () => {
  const rec = recordings.h264;
  const keys = video(rec.frames).filter((f) => f.key);
  const groups = [];  // the video frames of each group, in order
  for (const f of video(rec.frames)) {
    if (f.key) groups.push([]);
    groups[groups.length - 1].push(f);
  }
  const dtsOf = (frames) => frames.map((f) => f.dts);
  // Key frames at least `ms` apart on the wall clock, the first one first.
  const spaced = (frames, ms) => frames.filter(function keep(f) {
    if (this.next !== undefined && f.wallClock < this.next) return false;
    this.next = f.wallClock + ms;
    return true;
  }, {});
  const cases = [
    ['reverse gop', { serveInReverse: 'gop', skipAudio: true }, groups.slice().reverse().flat()],
    ['reverse idr', { serveInReverse: 'idr' }, keys.slice().reverse()],
    ['reverse idr, every 2nd', { serveInReverse: 'idr', idrFrequency: -2 }, keys.slice().reverse().filter((_, i) => i % 2 === 0)],
    ['reverse idr in a range', { serveInReverse: 'idr', wallClockStart: keys[1].wallClock, wallClockEnd: keys[4].wallClock }, keys.slice(1, 5).reverse()],
    ['every 3rd key frame', { idrFrequency: -3 }, keys.filter((_, i) => i % 3 === 0)],
    ['key frames 1 s apart', { idrFrequency: 1000 }, spaced(keys, 1000)],
    ['only key frames', { onlyKeyFrames: true, skipAudio: true }, keys],
    ['only key frames, one in two', { onlyKeyFrames: true, onlyNthFrame: 2, skipAudio: true }, keys.filter((_, i) => i % 2 === 0)],
    ['every Nth alone does nothing', { onlyNthFrame: 2, skipAudio: true }, video(rec.frames)],
    ['key frames first', { enableKeyFrameFirst: true, skipAudio: true }, [...keys, ...video(rec.frames).filter((f) => !f.key)]],
  ];
  for (const [label, params, expected] of cases) {
    const run = await serve({ srcFileName: rec.file, outputFormat: 'vrx', wallClockEnd: LATER, ...params });
    assert.strictEqual(run.error, null, `${label}: ${run.error && run.error.message}`);
    const listed = await vrxFrames(run.bytes);
    assert.deepStrictEqual(dtsOf(listed.filter((f) => f.kind === 'video')), dtsOf(expected), label);
    if (params.skipAudio || params.idrFrequency || params.serveInReverse === 'idr') {
      assert.strictEqual(listed.filter((f) => f.kind === 'audio').length, 0, `${label}: no audio`);
    }
  }
  // A reverse read of an MP4 source is not available.
  const mp4 = path.join(dir, 'reverse-source.mp4');
  const made = await serve({ srcFileName: rec.file, outputFormat: 'mp4', wallClockEnd: LATER }, 'file');
  assert.strictEqual(made.error, null);
  fs.writeFileSync(mp4, made.bytes);
  const reverse = await serve({ srcFileName: mp4, serveInReverse: 'gop' });
  assert.strictEqual(reverse.error.errors[0].full, 0x80080002 | 0);
});

test('timestamps: zero base, speed-up and a forced frame rate', async () => {
  const rec = recordings.h265;
  const first = video(rec.frames);
  const cases = [
    ['as stored', {}, first.map((f) => f.dts)],
    ['twice as fast', { speedupFactor: 2 }, first.map((f) => Math.floor(f.dts / 2))],
    ['forced to 10 fps', { forceFps: 10 }, first.map((_, i) => i * 9000)],
    ['forced to 90000 fps', { forceFps: 90000 }, first.map((_, i) => i)],
  ];
  for (const [label, params, expected] of cases) {
    const run = await serve({ srcFileName: rec.file, outputFormat: 'vrx', wallClockEnd: LATER, ...params });
    assert.strictEqual(run.error, null, label);
    const listed = await vrxFrames(run.bytes);
    assert.deepStrictEqual(listed.filter((f) => f.kind === 'video').map((f) => f.dts), expected, label);
    // Retiming drops the audio.
    if (params.speedupFactor || params.forceFps) assert.strictEqual(listed.length, expected.length, label);
  }
  // zeroBase starts the MP4 tracks' timelines at 0 whatever the stored DTS.
  const late = recordings.h264;
  const start = video(late.frames)[45].wallClock;
  const run = await serve({
    srcFileName: late.file, outputFormat: 'fmp4', wallClockStart: start, wallClockEnd: LATER, zeroBase: true, useWallClockForFMP4: false,
  });
  assert.strictEqual(run.error, null);
  const file = path.join(dir, 'zero.mp4');
  fs.writeFileSync(file, run.bytes);
  const [stream] = probe(file).filter((s) => s.kind === 'video');
  assert.strictEqual(stream.packets[0].dts, 0);
});

test('a destination that refuses the bytes ends the export with the I/O error, for every format', async () => {
  for (const outputFormat of ['mp4', 'fmp4', 'vrx', 'annexb']) {
    const error = await new Promise((resolve) => vidora.processMedia({ srcFileName: recordings.h264.file, outputFormat,
      dstFileName: '/dev/full', wallClockEnd: LATER }, (e) => resolve(e)));
    assert.ok(error, `${outputFormat}: a device with no space fails the export`);
    assert.ok([0x800C0011 | 0, 0x8000001C | 0].includes(error.errors[0].full), `${outputFormat}: ${error.message}`);
  }
});
