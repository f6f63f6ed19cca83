'use strict';
// Helpers of the tests of the maintenance functions: task calls as promises, the error codes
// they give, finished temporary files made by tools/vrx_write from ffmpeg's streams, and what
// the listings say of a file.
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora } = require('./helpers');
const { makeRecording, T0 } = require('./recordings');

const CODES = {
  invalidParameters: -2146959348,  // 0x8008000c
  fileNotFound: 0x80000002 | 0,
  timedOut: 0x80000004 | 0,
  invalidFileSize: 0x800c0002 | 0,
  incorrectContent: 0x800c0005 | 0,
  notEnoughSpace: 0x800c0006 | 0,
  noSyncNode: 0x800c000e | 0,
  noPartition: 0x800c001d | 0,
  doubleAppend: 0x800c001e | 0,
};

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

module.exports = { CODES, call, ok, failure, segment, framesOf, identity, partitionsOf, T0 };
