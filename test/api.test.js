'use strict';
// The Promise, stream and AbortSignal layer (`api`) against the native callback functions it
// wraps: the same results, bytes and errors, calls beyond the native waiting limit, a consumer
// that falls behind, aborts, and a process that ends by itself afterwards.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { pipeline } = require('stream/promises');
const { Writable } = require('stream');

const { vidora, SAMPLE: sample, REQUIRE_VIDORA, tempDir, sleep, poolStats, runNodeSync } = require('./helpers');
const { sourceFile, sha } = require('./operation_helpers');
const { makeRecording, T0 } = require('./recordings');
const { collect } = require('../scripts/make_error_codes');

const { api, VidoraError, AbortError } = vidora;
const MiB = 1024 * 1024;
const dir = tempDir('vidora-api-');
const recording = makeRecording(path.join(dir, 'rec.vrx'));

// A task's answer without the fields that say when and as which task it ran.
const TIMING = ['id', 'apiCallTime', 'operationStartTime', 'operationEndTime', 'callbackTime', 'initCompletedTime',
  'firstReadTime', 'firstSendTime', 'stateFlips'];
function answer(error, result) {
  const strip = (object) => Object.fromEntries(Object.entries(object).filter(([key]) => !TIMING.includes(key)));
  // The layer adds `taskName` (the native `name`), `full` and the string `code`.
  if (!error) return { result: strip(result) };
  const { errors, name, taskName, full, code, ...fields } = error;
  return { code: errors[0].full, message: error.message, fields: strip(fields) };
}
const native = (name, args) => new Promise((resolve) => vidora[name](...args, (e, r) => resolve(answer(e, r))));
const viaPromise = (name, args) => api[name](...args).then((r) => answer(null, r), (e) => answer(e, null));
const viaCallback = (name, args) => new Promise((resolve) => api[name](...args, (e, r) => resolve(answer(e, r))));

test('Promise and callback forms answer as the native function does, errors as VidoraError with a string code', async () => {
  const cases = [
    ['vrxFileInfo', [sample]],
    ['vrxFileListFragments', [{ fileName: sample }]],
    ['vrxFileListPartitions', [recording.file]],
    ['vrxFileInfo', [path.join(dir, 'missing.vrx')], 'ENOENT'],
    ['vrxFileInfo', [__filename], 'ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT'],
    ['vrxFileEstimateSize', [{ srcFileNames: [recording.file], wallClockStart: T0 + 1000, wallClockEnd: T0 + 3000 }]],
  ];
  for (const [name, args, code] of cases) {
    const expected = await native(name, args);
    assert.deepStrictEqual(await viaPromise(name, args), expected, name);
    assert.deepStrictEqual(await viaCallback(name, args), expected, name);
    if (!code) continue;
    const error = await api[name](...args).catch((e) => e);
    assert.ok(error instanceof VidoraError && error instanceof Error, name);
    assert.strictEqual(error.code, code, `${name}: ${error.message}`);
    assert.strictEqual(error.taskName, name);
    assert.strictEqual(error.errors[0].full, expected.code);
  }
  // An argument the native function refuses at once rejects the Promise instead of throwing.
  const refused = await api.vrxFileInfo(42).catch((e) => e);
  assert.ok(refused instanceof VidoraError && refused.cause instanceof Error, String(refused));
  assert.strictEqual(refused.code, 'ERR_INVALID_ARG');
});

test('the error code names are current with the C++ headers', () => {
  const file = JSON.parse(fs.readFileSync(path.join(__dirname, '..', 'lib', 'error_codes.json'), 'utf8'));
  assert.deepStrictEqual(file, collect(), 'run scripts/make_error_codes.js');
  for (const code of Object.keys(file)) {
    assert.notStrictEqual(vidora.getErrorDescription(Number(code)), '', `${file[code]} has a description`);
  }
});

test('operations as Promises, as streams and through for await give the bytes of the callback form', async () => {
  const { file, bytes } = sourceFile(5 * MiB + 17);
  const out = path.join(dir, 'sent.bin');
  const sent = await api.sendFile({ srcFileName: file, dstFileName: out });
  assert.strictEqual(sent.totalWrite, bytes.length);
  assert.ok(fs.readFileSync(out).equals(bytes));

  const chunks = [];
  for await (const chunk of api.sendFileStream({ srcFileName: file, offset: 1000, length: 3 * MiB })) chunks.push(chunk);
  assert.ok(Buffer.concat(chunks).equals(bytes.subarray(1000, 1000 + 3 * MiB)));

  // processMedia into a file by the native function and through a stream into a file.
  assert.throws(() => api.processMediaStream({ srcFileName: recording.file, outputFormat: 'MP4' }), { code: 'ERR_MP4_NEEDS_FILE' });
  for (const outputFormat of ['fmp4', 'vrx', 'annexb']) {
    const params = { srcFileName: recording.file, wallClockStart: T0 + 1000, wallClockEnd: T0 + 2500, outputFormat };
    const direct = path.join(dir, `direct.${outputFormat}`);
    await new Promise((resolve, reject) => vidora.processMedia({ ...params, dstFileName: direct },
      (error) => (error ? reject(error) : resolve())));
    const piped = path.join(dir, `piped.${outputFormat}`);
    const stream = api.processMediaStream(params);
    await pipeline(stream, fs.createWriteStream(piped));
    assert.strictEqual(sha(fs.readFileSync(piped)), sha(fs.readFileSync(direct)), outputFormat);
    assert.strictEqual(stream.result.canceled, false);
  }
  // A stream of an operation that fails ends with its error.
  const failing = api.sendFileStream({ srcFileName: path.join(dir, 'missing.bin') });
  await assert.rejects(pipeline(failing, new Writable({ write: (c, e, done) => done() })), { code: 'ENOENT' });
});

test('2,000 calls at once on one pool all settle, the native waiting queue never overfilled', async () => {
  const calls = [];
  let mostWaiting = 0;
  for (let i = 0; i < 2000; i++) {
    calls.push(api.vrxFileInfo(i % 2 ? sample : path.join(dir, 'missing.vrx')).then(() => 'ok', (e) => e.code));
    if (i % 100 === 0) {
      const read = poolStats('Read', api);
      assert.ok(read.pendingSize <= 150, `native pending ${read.pendingSize}`);
      mostWaiting = Math.max(mostWaiting, read.layerWaiting);
    }
  }
  const outcomes = await Promise.all(calls);
  assert.deepStrictEqual(outcomes.filter((o, i) => o !== (i % 2 ? 'ok' : 'ENOENT')), []);
  assert.ok(mostWaiting > 0, 'the layer held calls back');
  assert.strictEqual(poolStats('Read', api).layerWaiting, 0);
});

test('a consumer that falls behind holds the operation at its buffer limit, and reading on gets every byte', async () => {
  const { file, bytes } = sourceFile(40 * MiB, 7);
  const stream = api.sendFileStream({ srcFileName: file }, { highWaterMark: MiB });
  stream.pause();
  await new Promise((resolve) => stream.once('readable', resolve));
  await sleep(400);
  const chunks = [];
  for await (const chunk of stream) chunks.push(chunk);
  assert.ok(Buffer.concat(chunks).equals(bytes));
  // While nobody read, the operation was paused, not reading on into memory.
  assert.ok(stream.result.stateFlips.some((flip) => flip.state === 'paused'), JSON.stringify(stream.result.stateFlips));

  const held = api.sendFileStream({ srcFileName: file }, { highWaterMark: MiB });
  held.pause();
  await sleep(400);
  const waiting = held.readableLength;
  held.destroy();
  const result = await new Promise((resolve) => held.once('result', resolve));
  assert.strictEqual(result.canceled, true);
  // What was read: what waits in the stream, plus at most the operation's 4 MiB and one read.
  assert.ok(result.totalRead <= waiting + 5 * MiB, `${result.totalRead} read, ${waiting} waiting in the stream`);
});

test('an AbortSignal ends a call that waits, an operation that runs, and a stream mid-way', async () => {
  const { file } = sourceFile(64 * MiB, 3);
  const already = AbortSignal.abort();
  await assert.rejects(api.sendFile({ srcFileName: file, dstFileName: path.join(dir, 'a.bin'), signal: already }),
    { name: 'AbortError', code: 'ABORT_ERR' });

  const controller = new AbortController();
  const running = api.sendFile({ srcFileName: file, dstCallback: () => {}, signal: controller.signal });
  await sleep(50);
  controller.abort('enough');
  const error = await running.catch((e) => e);
  assert.ok(error instanceof AbortError, String(error));
  assert.strictEqual(error.cause, 'enough');

  const streamAbort = new AbortController();
  const stream = api.sendFileStream({ srcFileName: file }, { signal: streamAbort.signal });
  let received = 0;
  await assert.rejects(pipeline(stream, new Writable({
    write(chunk, encoding, done) {
      received += chunk.length;
      if (received > MiB) streamAbort.abort();
      done();
    },
  })), { name: 'AbortError' });
  assert.ok(received < 64 * MiB);
  await sleep(50);
  const serve = poolStats('Serve', api);
  assert.strictEqual(serve.inProgressSize, 0);
});

test('the pools only setWorkersPoolsLimits makes get the layer\'s limits unless the application set them, and a process using the layer ends by itself', () => {
  const script = `
    const vidora = ${REQUIRE_VIDORA};
    const { api } = vidora;
    const { Writable } = require('stream');
    const { pipeline } = require('stream/promises');
    const limit = (name) => (api.getWorkersPoolsStats().find((p) => p.name === name) || {}).maxSize;
    (async () => {
      vidora.setWorkersPoolsLimits({ Transcode: 7 });
      await api.vrxFileAppend({ dstFileName: '/nonexistent/a.vrx', srcFileName: '/nonexistent/b.vrx' }).catch(() => {});
      await api.nop({ pool: 'Transcode' });
      const missing = await api.nop({ pool: 'Nowhere' }).catch((e) => e.code);
      const controller = new AbortController();
      const stream = api.sendFileStream({ srcFileName: ${JSON.stringify(sample)} }, { signal: controller.signal });
      await pipeline(stream, new Writable({ write: (c, e, done) => done() }));
      const aborted = api.sendFileStream({ srcFileName: ${JSON.stringify(sample)} }, { signal: controller.signal });
      controller.abort();
      await new Promise((resolve) => aborted.on('error', resolve).resume());
      console.log(JSON.stringify({ append: limit('Append'), transcode: limit('Transcode'), missing }));
    })();`;
  const child = runNodeSync(script);
  assert.strictEqual(child.status, 0, `${child.stderr} (exits by itself: ${child.signal === null})`);
  assert.deepStrictEqual(JSON.parse(child.stdout), { append: 2, transcode: 7, missing: 'ERR_POOL_NOT_FOUND' });
});

test('a stream destroyed while its call waits in the queue never starts its operation', async () => {
  api.setWorkersPoolsLimits({ Serve: 2 });
  try {
    const { file } = sourceFile(64 * MiB, 5);
    // 2 running and 150 native waiting places: the rest wait in the layer.
    const holders = Array.from({ length: 152 }, () => api.sendFileStream({ srcFileName: file }));
    const waiting = api.sendFileStream({ srcFileName: file });
    await sleep(20);
    assert.strictEqual(poolStats('Serve', api).layerWaiting, 1);
    waiting.destroy();
    for (const holder of holders) holder.destroy();
    await sleep(200);
    const serve = poolStats('Serve', api);
    assert.deepStrictEqual([serve.layerWaiting, serve.inProgressSize, serve.pendingSize], [0, 0, 0]);
    assert.strictEqual(waiting.result, undefined, 'never ran');
  } finally {
    api.setWorkersPoolsLimits({ Serve: 90 });
  }
});
