'use strict';
// Helpers of the tests of the maintenance functions: task calls as promises, the error codes
// they give, finished temporary files made by tools/vrx_write from ffmpeg's streams, and what
// the listings say of a file.
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora, CODES, SAMPLE, tempDir } = require('./helpers');
const { makeRecording, T0 } = require('./recordings');

const scratch = tempDir('vidora-listed-');

// Resolves with {error, result} of `fn(...args, callback)`.
function call(fn, ...args) {
  return new Promise((resolve) => {
    fn(...args, (error, result) => resolve({ error, result }));
  });
}

// Resolves with the result; a failure fails the test with its message.
async function ok(fn, ...args) {
  const { error, result } = await call(fn, ...args);
  assert.strictEqual(error, null, error && `${error.message} (${error.errors[0].full})`);
  return result;
}

// Resolves with the error's code; a success fails the test.
async function failure(fn, ...args) {
  const { error, result } = await call(fn, ...args);
  assert.strictEqual(result, null, 'the call must fail');
  return error.errors[0].full;
}

// A finished temporary file in `dir`: one second of H.264 (video packets [from, from + 30) of
// ffmpeg's stream, a key frame every 15) with its AAC, starting `n` * 4 s after T0.
// Each is a new file: a path appended once is refused again for an hour.
let segments = 0;
function segment(dir, n, { from = 0, partitions = 1 } = {}) {
  const file = path.join(dir, `segment-${n}-${from}-${++segments}.vrx`);
  const parts = Array.from({ length: partitions }, (_, i) =>
    ({ from: from + i * 30, to: from + i * 30 + 30, wallClock: T0 + n * 4000 + i * 1000 }));
  return makeRecording(file, { parts });
}

// Frames as the listing gives them, each with its payload read from the file.
async function framesOf(file) {
  const { frames } = await ok(vidora.vrxFileListFrames, file);
  const bytes = fs.readFileSync(file);
  return frames.map((f) => ({ ...f, payload: bytes.subarray(f.offset, f.offset + f.length) }));
}

// What identifies a frame whatever file holds it: segments repeat the packets of one stream,
// with their timestamps, on other wall clocks.
function identity(frame) {
  const { streamClock, wallClock } = frame.clockSync;
  return `${frame.trackId}/${frame.timestamp.dts.value}/${wallClock.value - streamClock.value}/${frame.isKeyFrame}/` +
    frame.payload.toString('base64');
}

async function partitionsOf(file) {
  return (await ok(vidora.vrxFileListPartitions, file)).partitions;
}

// The frames as the listing gives them of VRX `bytes` (an output), put in a file of their own.
let outputs = 0;
async function framesOfBytes(bytes) {
  const file = path.join(scratch, `output-${++outputs}.vrx`);
  fs.writeFileSync(file, bytes);
  return (await ok(vidora.vrxFileListFrames, file)).frames;
}

// A copy of the sample, `name` in `dir`, whose first partition's second seek point has the wall
// clock `value` (a BigInt).
async function sampleWithSeekPoint(dir, name, value) {
  const [first] = await partitionsOf(SAMPLE);
  const end = first.fullBounds.offset + first.fullBounds.length;
  const bytes = fs.readFileSync(SAMPLE);
  bytes.writeBigInt64BE(value, end - 8 - 16 * first.seekPoints.length + 16 + 8);
  const file = path.join(dir, name);
  fs.writeFileSync(file, bytes);
  return file;
}

module.exports = { CODES, call, ok, failure, segment, framesOf, framesOfBytes, identity, partitionsOf, sampleWithSeekPoint, T0 };
