'use strict';
// The direct export end to end: an acceptor on 127.0.0.1 hands each connection's descriptor to
// processMedia, which answers with an HTTP head of exact Content-Length (or "binme" frames) and
// the MP4 or VRX of the range; real clients (node's http, curl) read it.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const http = require('http');
const net = require('net');
const path = require('path');
const { execFile } = require('child_process');

const { vidora, CODES, SAMPLE, tempDir, sleep, waitFor, freePort, httpRequest } = require('./helpers');
const { framesOfBytes } = require('./managed_files');
const { makeRecording, probe, T0 } = require('./recordings');
const { writeVrx, childEnv } = require('../tools/vrx_tools');

const dir = tempDir('vidora-direct-');
const RANGE = { wallClockStart: T0, wallClockEnd: T0 + 40000 };
const rec = makeRecording(path.join(dir, 'h264.vrx'), { video: 'h264' });

// Reads what the client sent first (a request head, or one byte), as a server does before it
// answers: a socket closed with unread bytes is reset, and the client may lose the answer. The
// read goes through libuv's pool: the clients run in this very process.
function readRequest(fd, then) {
  const buffer = Buffer.alloc(4096);
  let text = '';
  const more = () => fs.read(fd, buffer, 0, buffer.length, null, (error, count) => {
    text += error ? '' : buffer.toString('latin1', 0, count);
    if (error || count === 0 || text.includes('\r\n\r\n') || text === 'x') then();
    else more();
  });
  more();
}

// An acceptor whose connections each get processMedia with `params(n)` (n counts from 0);
// `done` receives {error, result} per connection. Close it with close().
async function exporter(params, done = () => {}) {
  const port = await freePort();
  let count = 0;
  const id = vidora.createTcpAcceptor(`127.0.0.1:${port}`, (connection) => {
    const n = count++;
    readRequest(connection.fd, () => {
      vidora.processMedia({ dstTcpFd: connection.fd, ...params(n) }, (error, result) => {
        vidora.closeTcpConnection(connection.fd);
        done({ error, result, n });
      });
    });
  });
  return { port, close: () => vidora.closeTcpAcceptor(id) };
}

// Everything a raw socket receives until the far end closes.
function rawRead(port) {
  return new Promise((resolve) => {
    const chunks = [];
    const socket = net.connect(port, '127.0.0.1', () => socket.write('x'));
    socket.on('data', (chunk) => chunks.push(chunk));
    socket.on('error', () => {});
    socket.on('close', () => resolve(Buffer.concat(chunks)));
  });
}

test('HTTP with an exact Content-Length: an MP4 that ffprobe plays, and a VRX our reader lists', async () => {
  for (const outputFormat of ['mp4', 'vrx']) {
    const ends = [];
    const server = await exporter(() => ({ srcFileName: rec.file, transportFormat: 'http', outputFormat, ...RANGE }), (e) => ends.push(e));
    const response = await httpRequest(server.port);
    server.close();
    const { status, headers, body } = response;
    assert.deepStrictEqual([status, Number(headers['content-length']), headers['content-type'], headers.connection,
      headers['x-start-timestamp'], headers['cache-control']], [200, body.length,
      outputFormat === 'mp4' ? 'video/mp4' : 'application/octet-stream', 'close', String(T0), 'no-cache, no-store, must-revalidate']);
    await waitFor(() => ends.length === 1);
    assert.strictEqual(ends[0].error, null);
    if (outputFormat === 'mp4') {
      const file = path.join(dir, 'direct.mp4');
      fs.writeFileSync(file, response.body);
      const streams = probe(file);
      assert.strictEqual(streams.find((s) => s.kind === 'video').packets.length, 90);
      assert.strictEqual(streams.find((s) => s.kind === 'audio').packets.length, rec.frames.filter((f) => f.kind === 'audio').length);
    } else {
      assert.strictEqual((await framesOfBytes(response.body)).length, rec.frames.length);
    }
  }
  // curl, a client nobody here wrote, sees the same length.
  const server = await exporter(() => ({ srcFileName: SAMPLE, transportFormat: 'http', outputFormat: 'mp4', ...RANGE }));
  const out = path.join(dir, 'curl.mp4');
  // Run apart from this process's event loop, which serves it.
  const curl = await new Promise((resolve, reject) => execFile('curl', ['-s', '-S', '-o', out, '-w', '%{http_code} %{size_download}',
    `http://127.0.0.1:${server.port}/`], { env: childEnv() }, (error, stdout) => (error ? reject(error) : resolve(stdout))));
  server.close();
  const [code, size] = curl.split(' ');
  assert.strictEqual(code, '200');
  assert.strictEqual(Number(size), fs.statSync(out).size);
  assert.strictEqual(probe(out).find((s) => s.kind === 'video').packets.length, 150);
});

test('binme: two framed messages, the start and the size, then exactly that many bytes', async () => {
  const server = await exporter(() => ({ srcFileName: SAMPLE, transportFormat: 'binme', outputFormat: 'vrx', skipVideo: true, ...RANGE }));
  const bytes = await rawRead(server.port);
  server.close();
  const messages = [];
  let at = 0;
  for (let i = 0; i < 2; i++) {
    const header = bytes.readUInt32BE(at);
    const length = bytes.readUInt32BE(at + 4);
    messages.push({ header, json: JSON.parse(bytes.subarray(at + 8, at + 8 + length).toString()) });
    at += 8 + length;
  }
  // Without video the start is the first audio frame's wall clock.
  assert.deepStrictEqual(messages, [{ header: 0x01010000, json: { success: true, timestamp: T0 + 21 } },
    { header: 0x02010000, json: { size: bytes.length - at } }]);
});

test('a range with nothing in it sends nothing; a client that goes away ends the operation with an error', async () => {
  const empty = [];
  let server = await exporter(() => ({ srcFileName: SAMPLE, transportFormat: 'http', outputFormat: 'mp4',
    wallClockStart: T0 + 10000, wallClockEnd: T0 + 20000, snapToIdr: 'after' }), (e) => empty.push(e));
  const nothing = await rawRead(server.port);
  server.close();
  assert.strictEqual(nothing.length, 0);
  assert.strictEqual(empty[0].error.errors[0].full, CODES.noRecordings);

  // 40 MB of VRX: the client reads the head and some of the body, then closes.
  const big = path.join(dir, 'big.vrx');
  const lines = ['partition 010100000000000000000000'];
  for (let i = 0; i < 400; i++) {
    if (i % 25 === 0) lines.push(`sync ${i * 3600} 90000 ${T0 + i * 40}`);
    lines.push(`video ${i * 3600} 90000 0 ${i % 25 === 0 ? 1 : 0} pattern:100000:${i}`);
  }
  lines.push('end');
  writeVrx(big, lines);
  const ends = [];
  server = await exporter(() => ({ srcFileName: big, transportFormat: 'http', outputFormat: 'vrx', ...RANGE }), (e) => ends.push(e));
  await new Promise((resolve) => {
    http.get({ host: '127.0.0.1', port: server.port, path: '/', agent: false }, (res) => {
      assert.strictEqual(Number(res.headers['content-length']) > 40e6, true);
      res.once('data', () => res.destroy());
      res.on('close', resolve);
    });
  });
  for (let i = 0; i < 200 && ends.length === 0; i++) await sleep(50);
  server.close();
  assert.strictEqual(ends.length, 1);
  assert.ok([0x80000020 | 0, 0x80000068 | 0].includes(ends[0].error.errors[0].full), ends[0].error.message);
  assert.ok(ends[0].error.totalWrite < 40e6);
});

test('many clients at once each get their whole answer', async () => {
  const ends = [];
  const server = await exporter((n) => ({ srcFileName: SAMPLE, transportFormat: 'http', outputFormat: n % 2 ? 'vrx' : 'mp4', ...RANGE }),
    (e) => ends.push(e));
  const responses = await Promise.all(Array.from({ length: 24 }, () => httpRequest(server.port)));
  server.close();
  for (const response of responses) {
    assert.strictEqual(response.status, 200);
    assert.strictEqual(Number(response.headers['content-length']), response.body.length);
  }
  const mp4 = responses.filter((r) => r.headers['content-type'] === 'video/mp4');
  // Alike but for the creation times the MP4 writer stamps.
  assert.ok(mp4.length > 0 && mp4.every((r) => r.body.length === mp4[0].body.length), 'every MP4 answer alike');
  await waitFor(() => ends.length === 24);
  assert.strictEqual(ends.filter((e) => e.error === null).length, 24);
});
