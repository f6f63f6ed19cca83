'use strict';
// The reference server (lib/server) on real loopback sockets, over a folder of recordings made
// from ffmpeg's streams: listings, MP4 downloads whose byte ranges are slices of the whole,
// fragmented MP4 streams that ffprobe reads, the requests it must refuse, and a client that
// goes away in the middle of a stream.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const http = require('http');
const path = require('path');

const { vidora, SAMPLE, tempDir, poolStats, waitFor, httpRequest, cliIn } = require('./helpers');
const { makeRecording, probe, forwardFrames, T0 } = require('./recordings');
const { createServer } = require('../lib/server');
const { boxes, codecsOf, initSegmentLength } = require('../lib/server/mp4_boxes');

const outside = tempDir('vidora-serve-');
const dir = path.join(outside, 'served');
fs.mkdirSync(path.join(dir, 'sub'), { recursive: true });
const GAP = 60000;
const recordings = {
  'h264.vrx': makeRecording(path.join(dir, 'h264.vrx'), {
    video: 'h264', parts: [{ from: 0, to: 45, wallClock: T0 }, { from: 45, to: 90, wallClock: T0 + GAP }],
  }),
  'sub/h265.vrx': makeRecording(path.join(dir, 'sub', 'h265.vrx'), { video: 'h265' }),
  'sub/av1.vrx': makeRecording(path.join(dir, 'sub', 'av1.vrx'), { video: 'av1', audio: false }),
};
fs.copyFileSync(SAMPLE, path.join(dir, 'sample.vrx'));
fs.symlinkSync(path.join(dir, 'sample.vrx'), path.join(dir, 'inner-link.vrx'));
makeRecording(path.join(outside, 'secret.vrx'));
fs.symlinkSync(path.join(outside, 'secret.vrx'), path.join(dir, 'escape.vrx'));
fs.writeFileSync(path.join(dir, 'notes.txt'), 'not a recording');
fs.copyFileSync(path.join(dir, 'sample.vrx'), path.join(dir, '.hidden.vrx'));

const server = createServer(dir, { api: vidora.api });
const listening = new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
test.after(() => new Promise((resolve) => {
  server.closeAllConnections();
  server.close(resolve);
}));

// One request on a new connection, the path sent as it is: { status, headers, body }.
const request = (urlPath, options) => listening.then(() => httpRequest(server.address().port, urlPath, options));

const url = (name, what, query = {}) => `/api/recordings/${encodeURIComponent(name)}/${what}?${new URLSearchParams(query)}`;
const video = (frames) => frames.filter((f) => f.kind === 'video');
const audio = (frames) => frames.filter((f) => f.kind === 'audio');
const writeTemp = (name, bytes) => {
  const file = path.join(outside, name);
  fs.writeFileSync(file, bytes);
  return file;
};

// What ffprobe finds of `frames` in a media file: per kind, packet count and key flags.
function assertServedFrames(file, frames, label) {
  const streams = probe(file);
  const videoStream = streams.find((s) => s.kind === 'video');
  const audioStream = streams.find((s) => s.kind === 'audio');
  assert.deepStrictEqual(videoStream.packets.map((p) => p.key), video(frames).map((f) => f.key), `${label}: video packets`);
  assert.strictEqual(audioStream ? audioStream.packets.length : 0, audio(frames).length, `${label}: audio packets`);
  return { videoStream, audioStream };
}

// The codecs string that processMedia itself names in a progressive fragmented MP4 (the 0xF8
// unit that starts it).
async function engineCodecs(file) {
  const stream = vidora.api.processMediaStream({ srcFileNames: [file], outputFormat: 'fmp4', networkDestination: true,
    wallClockEnd: 8.64e15 });
  let bytes = Buffer.alloc(0);
  for await (const chunk of stream) {
    bytes = Buffer.concat([bytes, chunk]);
    if (bytes.length >= 4 && bytes.length >= 4 + (bytes.readUInt32BE(0) & 0xffffff)) break;
  }
  assert.strictEqual(bytes[0], 0xf8);
  return bytes.toString('latin1', 4, 4 + (bytes.readUInt32BE(0) & 0xffffff));
}

// processMedia names H.265 "hev1" without the constraint bytes, whatever the sample entry and
// its hvcC (whose constraint bytes it writes as FF) say.
const comparable = (codecs) => codecs.toLowerCase().replace(/^hvc1/, 'hev1').replace(/^(hev1\.\d+\.[0-9a-f]+\.[lh]\d+)(\.[0-9a-f]{2})*/, '$1');

test('lists the recordings of the folder and their spans of continuous recording', async () => {
  const list = await request('/api/recordings');
  assert.strictEqual(list.status, 200);
  assert.deepStrictEqual(JSON.parse(list.body).recordings.map((r) => r.name),
    ['h264.vrx', 'inner-link.vrx', 'sample.vrx', 'sub/av1.vrx', 'sub/h265.vrx']);
  // The sample: partitions of 2 s at 0, 2 and 34 s, 25 frames a second (samples/make_sample.sh).
  const sample = JSON.parse((await request(url('sample.vrx', 'spans'))).body);
  assert.deepStrictEqual(sample.spans, [{ start: T0, end: T0 + 3960 }, { start: T0 + 34000, end: T0 + 35960 }]);
  // Each part of a recording is a span from its first to its last video frame.
  const h264 = recordings['h264.vrx'];
  const partSpan = (from, to) => ({ start: video(h264.frames)[from].wallClock, end: video(h264.frames)[to - 1].wallClock });
  const spans = JSON.parse((await request(url('h264.vrx', 'spans'))).body).spans;
  assert.deepStrictEqual(spans, [partSpan(0, 45), partSpan(45, 90)]);
  const later = JSON.parse((await request(url('h264.vrx', 'spans', { from: T0 + GAP }))).body).spans;
  assert.deepStrictEqual(later, [partSpan(45, 90)]);
});

test('an MP4 download holds the frames of the range, with its exact length, and byte ranges are slices of it', async () => {
  // (The MP4 of each codec is the processMedia tests'; the download does not look at the codec.)
  const query = { from: T0 + 600, to: T0 + GAP + 800 };
  const whole = await request(url('h264.vrx', 'mp4', query));
  assert.strictEqual(whole.status, 200);
  assert.strictEqual(whole.headers['content-type'], 'video/mp4');
  assert.strictEqual(Number(whole.headers['content-length']), whole.body.length);
  assert.match(whole.headers['content-disposition'], /^attachment; filename="[\w.-]+\.mp4"$/);
  assertServedFrames(writeTemp('download.mp4', whole.body), forwardFrames(recordings['h264.vrx'], query.from, query.to), 'mp4');
  const size = whole.body.length;
  const { etag } = whole.headers;
  const slices = [
    ['first bytes', 'bytes=0-99', 0, 99],
    ['middle', 'bytes=1000-4999', 1000, 4999],
    ['last byte', `bytes=${size - 1}-${size - 1}`, size - 1, size - 1],
    ['end beyond the size', `bytes=${size - 10}-${size + 1000}`, size - 10, size - 1],
    ['suffix', 'bytes=-500', size - 500, size - 1],
    ['suffix longer than the body', `bytes=-${size + 5}`, 0, size - 1],
    ['open end', `bytes=${size - 700}-`, size - 700, size - 1],
    ['all of it as a range', 'bytes=0-', 0, size - 1],
    ['If-Range with the current ETag', 'bytes=10-19', 10, 19, { 'If-Range': etag }],
  ];
  for (const [label, range, start, end, extra = {}] of slices) {
    const part = await request(url('h264.vrx', 'mp4', query), { headers: { Range: range, ...extra } });
    assert.strictEqual(part.status, 206, label);
    assert.strictEqual(part.headers['content-range'], `bytes ${start}-${end}/${size}`, label);
    assert.strictEqual(Number(part.headers['content-length']), end - start + 1, label);
    assert.ok(part.body.equals(whole.body.subarray(start, end + 1)), `${label}: the bytes of the whole answer`);
    assert.strictEqual(part.headers.etag, etag, label);
  }
  // Headers that are no single satisfiable range: the whole body, or 416.
  const others = [
    ['reversed positions', 'bytes=50-10', 200],
    ['several ranges', 'bytes=0-9,20-29', 200],
    ['another unit', 'items=0-9', 200],
    ['If-Range with an old ETag', 'bytes=0-9', 200, { 'If-Range': '"old"' }],
    ['start at the size', `bytes=${size}-`, 416],
    ['start beyond the size', `bytes=${size + 100}-${size + 200}`, 416],
    ['empty suffix', 'bytes=-0', 416],
  ];
  for (const [label, range, status, extra = {}] of others) {
    const answer = await request(url('h264.vrx', 'mp4', query), { headers: { Range: range, ...extra } });
    assert.strictEqual(answer.status, status, label);
    if (status === 200) assert.ok(answer.body.equals(whole.body), label);
    else assert.strictEqual(answer.headers['content-range'], `bytes */${size}`, label);
  }
  const head = await request(url('h264.vrx', 'mp4', query), { method: 'HEAD', headers: { Range: 'bytes=-100' } });
  assert.deepStrictEqual([head.status, head.headers['content-length'], head.body.length], [206, '100', 0]);
});

test('a recording that changes gets a new export, with a new ETag', async () => {
  const file = path.join(dir, 'h264.vrx');
  const query = { from: T0, to: T0 + 1000 };
  const first = await request(url('h264.vrx', 'mp4', query));
  const again = await request(url('h264.vrx', 'mp4', query));
  assert.strictEqual(again.headers.etag, first.headers.etag);
  const stat = fs.statSync(file);
  fs.utimesSync(file, stat.atime, new Date(stat.mtimeMs + 5000));
  const changed = await request(url('h264.vrx', 'mp4', query));
  assert.notStrictEqual(changed.headers.etag, first.headers.etag);
  assert.ok(changed.body.equals(first.body), 'the same recording exports to the same bytes');
});

test('a fragmented MP4 stream starts with its initialisation segment, names its codecs and holds the range', async () => {
  const cases = [
    ['h264.vrx', T0 + 600, T0 + GAP + 800],
    ['sub/h265.vrx', T0 + 700, T0 + 2400],
    ['sub/av1.vrx', T0 + 1100, T0 + 2000],
    // A start in a gap moves to the span after it, and the timeline with it. (An end on a key
    // frame is the processMedia tests'.)
    ['h264.vrx', T0 + 30000, T0 + GAP + 800, 'from the next span', T0 + GAP],
  ];
  for (const [name, from, to, note = '', servedFrom = from] of cases) {
    const label = `${name} ${note}`;
    const answer = await request(url(name, 'fmp4', { from, to }));
    assert.strictEqual(answer.status, 200, label);
    const codecs = answer.headers['x-codecs'];
    assert.strictEqual(answer.headers['content-type'], `video/mp4; codecs="${codecs}"`, label);
    assert.strictEqual(comparable(codecs), comparable(await engineCodecs(recordings[name].file)), label);
    const types = [...boxes(answer.body)].map((box) => box.type);
    assert.deepStrictEqual(types.slice(0, 2), ['ftyp', 'moov'], label);
    assert.ok(types.length >= 4 && types.slice(2).every((type, i) => type === (i % 2 ? 'mdat' : 'moof')), `${label}: ${types}`);
    const expected = forwardFrames(recordings[name], servedFrom, to);
    const { videoStream } = assertServedFrames(writeTemp('stream.mp4', answer.body), expected, label);
    // The timeline is the wall clock.
    const [, timescale] = videoStream.timeBase.split('/').map(Number);
    assert.strictEqual(Math.round((videoStream.packets[0].pts * 1000) / timescale), video(expected)[0].wallClock, label);
  }
});

test('the codecs strings of the MP4 files that ffmpeg made carry the profile and level that ffprobe reads', () => {
  const codecsDir = path.join(__dirname, 'fixtures', 'codecs');
  const hex = (n) => n.toString(16).padStart(2, '0');
  const H264_PROFILES = { 'Constrained Baseline': 0x42, Baseline: 0x42, Main: 0x4d, High: 0x64 };
  const expected = {
    h264: (f) => new RegExp(`^avc1\\.${hex(H264_PROFILES[f.profile])}[0-9a-f]{2}${hex(Number(f.level))}$`, 'i'),
    hevc: (f) => new RegExp(`^hev1\\.${f.profile === 'Main' ? 1 : 2}\\.[0-9a-f]+\\.L${f.level}(\\.[0-9a-f]{2})*$`, 'i'),
    av1: (f) => new RegExp(`^av01\\.0\\.${String(f.level).padStart(2, '0')}M\\.${f.pix_fmt.includes('10') ? 10 : '08'}$`),
    aac: (f) => new RegExp(`^mp4a\\.40\\.${{ LC: 2, 'HE-AAC': 5, 'HE-AACv2': 29 }[f.profile]}$`),
  };
  const names = fs.readdirSync(codecsDir).filter((name) => name.endsWith('.mp4'));
  assert.ok(names.length >= 10);
  for (const name of names) {
    const fields = Object.fromEntries(fs.readFileSync(path.join(codecsDir, name.replace('.mp4', '.txt')), 'utf8')
      .split('\n').filter((line) => line.includes('=')).map((line) => line.split(/=(.*)/s).slice(0, 2)));
    const bytes = fs.readFileSync(path.join(codecsDir, name));
    assert.match(codecsOf(bytes), expected[fields.codec_name](fields), name);
  }
  // The initialisation segment ends with its moov; before that it is not complete.
  const init = fs.readFileSync(path.join(codecsDir, 'h264_high.mp4'));
  const moovEnd = initSegmentLength(init);
  assert.ok(moovEnd > 0);
  assert.strictEqual(initSegmentLength(init.subarray(0, moovEnd - 1)), 0);
  assert.throws(() => initSegmentLength(Buffer.from('\0\0\0\x10moofxxxxxxxx', 'latin1')), /ftyp/);
});

test('requests for what is not a recording of the folder, or with a wrong range, are refused with a message', async () => {
  const sample = (what, query) => url('sample.vrx', what, query);
  const cases = [
    ['encoded ../', '/api/recordings/%2e%2e%2fsecret.vrx/mp4', 400, 'BAD_NAME'],
    ['encoded .. segment', '/api/recordings/%2e%2e/spans', 400, 'BAD_PATH'],
    ['.. segment', '/api/recordings/../recordings/sample.vrx/spans', 400, 'BAD_PATH'],
    ['.. inside the name', `/api/recordings/${encodeURIComponent('sub/../../secret.vrx')}/fmp4`, 400, 'BAD_NAME'],
    ['absolute path', `/api/recordings/${encodeURIComponent(path.join(outside, 'secret.vrx'))}/mp4`, 400, 'BAD_NAME'],
    ['a symlink out of the folder', url('escape.vrx', 'mp4'), 403, 'OUTSIDE'],
    ['a hidden file', url('.hidden.vrx', 'spans'), 400, 'BAD_NAME'],
    ['not a .vrx file', url('notes.txt', 'spans'), 400, 'BAD_NAME'],
    ['bad percent-encoding', '/api/recordings/%E0%A4%A/spans', 400, 'BAD_NAME'],
    ['unknown file', url('missing.vrx', 'mp4'), 404, 'NOT_FOUND'],
    ['unknown rendition', url('sample.vrx', 'avi'), 404, 'NOT_FOUND'],
    ['unknown path', '/etc/passwd', 404, 'NOT_FOUND'],
    ['reversed range', sample('mp4', { from: T0 + 2000, to: T0 + 1000 }), 400, 'BAD_RANGE'],
    ['reversed range, stream', sample('fmp4', { from: T0 + 2000, to: T0 + 1000 }), 400, 'BAD_RANGE'],
    ['text for a time', sample('mp4', { from: 'yesterday' }), 400, 'BAD_PARAMETER'],
    ['negative time', sample('fmp4', { from: -5 }), 400, 'BAD_PARAMETER'],
    ['exponent', sample('spans', { to: '1e12' }), 400, 'BAD_PARAMETER'],
    ['beyond any date', sample('mp4', { to: '99999999999999999' }), 400, 'BAD_PARAMETER'],
    ['unknown parameter', sample('mp4', { start: T0 }), 400, 'BAD_PARAMETER'],
    ['parameter twice', `${sample('mp4', { from: T0 })}&from=${T0}`, 400, 'BAD_PARAMETER'],
    ['parameters on the list', '/api/recordings?from=1', 400, 'BAD_PARAMETER'],
    ['nothing recorded after the end', sample('mp4', { from: T0 + 100000, to: T0 + 200000 }), 404, 'EMPTY_RANGE'],
    ['nothing recorded after the end, to the end', sample('mp4', { from: T0 + 100000 }), 404, 'EMPTY_RANGE'],
    ['nothing recorded in a gap', sample('fmp4', { from: T0 + 10000, to: T0 + 20000 }), 404, 'EMPTY_RANGE'],
    ['nothing recorded before the start', sample('fmp4', { from: T0 - 9000, to: T0 - 5000 }), 404, 'EMPTY_RANGE'],
  ];
  for (const [label, urlPath, status, code] of cases) {
    const answer = await request(urlPath);
    assert.strictEqual(answer.status, status, `${label}: ${answer.body.toString().slice(0, 200)}`);
    assert.match(answer.headers['content-type'], /^application\/json/, label);
    const { error } = JSON.parse(answer.body);
    assert.strictEqual(error.code, code, label);
    assert.ok(error.message.length > 10, label);
  }
  const post = await request(url('sample.vrx', 'mp4'), { method: 'POST' });
  assert.deepStrictEqual([post.status, post.headers.allow], [405, 'GET, HEAD']);
});

test('a client that goes away in the middle of a stream ends its operation', async () => {
  await listening;
  const write = () => poolStats('Write', vidora.api);
  const countBefore = (write().stats.processMedia || { count: 0 }).count;
  // Without an end the stream follows the recording as it grows, even from past its end (from
  // its last key frame): once it has sent all there is, the operation waits for more.
  const following = url('h264.vrx', 'fmp4', { from: T0 + 10 * GAP });
  const res = await new Promise((resolve, reject) => {
    http.get({ host: '127.0.0.1', port: server.address().port, path: following, agent: false }, resolve).on('error', reject);
  });
  assert.strictEqual(res.statusCode, 200);
  res.resume();
  await new Promise((resolve) => setTimeout(resolve, 500));
  assert.strictEqual(write().inProgressSize, 1, 'the operation is still running');
  const gone = Date.now();
  res.destroy();
  await waitFor(() => write().inProgressSize === 0 && write().pendingSize === 0 && write().layerWaiting === 0, 5000);
  assert.ok(Date.now() - gone < 2000, 'the operation ended at once');
  assert.strictEqual(write().stats.processMedia.count, countBefore + 1);
});

test('the serve command refuses a folder that is not there', () => {
  const { cli } = cliIn(outside);
  const cases = [
    [[path.join(outside, 'nothing')], 3, /no such directory/],
    [[path.join(dir, 'notes.txt')], 1, /not a directory/],
    [[dir, '--port', '70000'], 2, /--port needs a port number/],
    [[dir, '--port', 'http'], 2, /--port needs a whole number/],
  ];
  for (const [args, status, message] of cases) {
    const run = cli('serve', ...args);
    assert.strictEqual(run.status, status, run.stderr);
    assert.match(run.stderr, message);
  }
});
