'use strict';
// Runs an operation (sendFile, processMedia) into each kind of destination and gathers what
// arrives, with the order of the callbacks, for the operation tests.
const assert = require('assert');
const crypto = require('crypto');
const fs = require('fs');
const net = require('net');
const path = require('path');

const { vidora, tempDir } = require('./helpers');

const dir = tempDir('vidora-send-');
let fileCount = 0;

// A file of `size` pseudo-random bytes (the same for the same seed), and its bytes.
function sourceFile(size, seed = size) {
  const file = path.join(dir, `source-${size}-${seed}-${fileCount++}.bin`);
  const bytes = Buffer.alloc(size);
  let state = seed >>> 0 || 1;
  for (let i = 0; i + 4 <= size; i += 4) {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    bytes.writeUInt32LE(state, i);
  }
  fs.writeFileSync(file, bytes);
  return { file, bytes };
}

// A connected pair on 127.0.0.1: `fd` is the descriptor of the server's side, to send from;
// `received()` resolves with everything the client got once `finish()` closed the server side.
async function loopbackSocket() {
  const server = net.createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const accepted = new Promise((resolve) => server.once('connection', resolve));
  const client = net.connect(server.address().port, '127.0.0.1');
  const chunks = [];
  client.on('data', (chunk) => chunks.push(chunk));
  const ended = new Promise((resolve) => client.on('close', resolve));
  const side = await accepted;
  server.close();
  // A client that goes away mid-way is what some tests are about: its resets are expected.
  side.on('error', () => {});
  client.on('error', () => {});
  return {
    fd: side._handle.fd,
    finish: () => side.destroy(),
    received: () => ended.then(() => Buffer.concat(chunks)),
    client,
  };
}

// The sinks: each adds its destination to `params` and returns { collect(id), bytes() }.
// A folder on another file system (tmpfs), where the kernel may refuse to copy from the source.
const otherDir = fs.existsSync('/dev/shm') ? fs.mkdtempSync('/dev/shm/vidora-send-') : dir;
process.on('exit', () => fs.rmSync(otherDir, { recursive: true, force: true }));

function fileSink(folder) {
  return async (params) => {
    params.dstFileName = path.join(folder, `out-${fileCount++}.bin`);
    return { bytes: async () => (fs.existsSync(params.dstFileName) ? fs.readFileSync(params.dstFileName) : Buffer.alloc(0)) };
  };
}

const SINKS = {
  file: fileSink(dir),
  otherFileSystem: fileSink(otherDir),
  tcp: async (params) => {
    const socket = await loopbackSocket();
    params.dstTcpFd = socket.fd;
    return { bytes: () => { socket.finish(); return socket.received(); } };
  },
  consume: async (params, state) => {
    const scratch = new ArrayBuffer(65536);
    params.dstCallback = () => {
      state.events.push('dst');
      if (state.hold) return;
      for (;;) {
        const view = vidora.consumeOperationBufferedData(state.id, scratch);
        if (view.byteLength === 0) break;
        state.chunks.push(Buffer.from(scratch.slice(0, view.byteLength)));
      }
    };
    return { bytes: async () => Buffer.concat(state.chunks) };
  },
  transfer: async (params, state) => {
    params.dstCallback = () => {
      state.events.push('dst');
      if (state.hold) return;
      const taken = vidora.transferOperationBufferedData(state.id);
      if (taken.length > 0) state.chunks.push(taken);
    };
    return { bytes: async () => Buffer.concat(state.chunks) };
  },
};

// How many descriptors of this process are open on `files`.
function openCount(files) {
  const open = fs.readdirSync('/proc/self/fd').map((fd) => { try { return fs.readlinkSync(`/proc/self/fd/${fd}`); } catch { return ''; } });
  return open.filter((file) => files.includes(file)).length;
}

// Starts `start` (sendFile unless given) with `params` into `sink`; resolves with { id, error,
// result, bytes, events, sourcesOpen: the descriptors on the sources at the callback } once
// the completion callback came. `control(state)` runs right after the call; with a drain,
// `state.hold` true makes it take nothing, and `state.pull()` takes what is there.
async function send(params, sink, control = () => {}, start = vidora.sendFile) {
  const state = { id: 0, chunks: [], events: [], hold: false };
  const full = { ...params };
  // Takes what a drain left while it held back.
  state.pull = () => full.dstCallback && full.dstCallback();
  const destination = await SINKS[sink](full, state);
  full.startCallback = (info) => { state.startId = info.id; state.events.push('start'); };
  full.progressCallback = ({ progress }) => state.events.push(`progress ${progress}`);
  const ended = new Promise((resolve) => {
    state.id = start(full, (error, result) => {
      state.events.push('end');
      state.sourcesOpen = openCount(full.srcFileNames || [full.srcFileName]);
      // Bytes a drain did not take are still there during the completion callback.
      if (full.dstCallback && !error) {
        const left = vidora.transferOperationBufferedData(state.id);
        if (left.length > 0) state.chunks.push(left);
      }
      resolve({ error, result });
    });
  });
  control(state);
  const { error, result } = await ended;
  assert.strictEqual(state.startId, state.id, 'the start callback names the operation');
  return { id: state.id, error, result, bytes: await destination.bytes(), events: state.events, sourcesOpen: state.sourcesOpen };
}

// The callbacks in the order an operation gives them: the start callback first, then progress
// 0, drains, a last progress 100 unless it was canceled or failed, and the completion last.
function assertEventOrder(events, { canceled, failed }, label) {
  assert.strictEqual(events[0], 'start', `${label}: ${events}`);
  assert.strictEqual(events.filter((e) => e === 'start').length, 1, label);
  assert.strictEqual(events.filter((e) => e === 'end').length, 1, label);
  assert.strictEqual(events[events.length - 1], 'end', `${label}: nothing after the end`);
  const progress = events.filter((e) => e.startsWith('progress'));
  const last100 = events.indexOf('progress 100');
  if (canceled || failed) {
    assert.strictEqual(last100, -1, `${label}: no progress 100 after cancel or failure: ${events}`);
  } else {
    assert.strictEqual(progress[progress.length - 1], 'progress 100', `${label}: ${events}`);
    // After the 100 only a last drain call may come before the end.
    assert.ok(events.slice(last100 + 1, -1).every((e) => e === 'dst'), `${label}: ${events}`);
  }
  assert.strictEqual(new Set(progress).size, progress.length, `${label}: each progress value once`);
}

const sha = (bytes) => crypto.createHash('sha256').update(bytes).digest('hex');

module.exports = { SINKS, send, sourceFile, loopbackSocket, assertEventOrder, sha, dir };
