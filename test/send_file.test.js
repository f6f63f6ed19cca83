'use strict';
// sendFile from JavaScript: byte ranges into a file, a loopback socket and both JavaScript
// drains, the order of the callbacks, and every wrong argument.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora, CODES, INVALID_PARAMETERS, systemError, assertThrowsCode, WRONG_VALUES } = require('./helpers');
const { send, sourceFile, loopbackSocket, assertEventOrder, dir } = require('./operation_helpers');

const INVALID_RANGE = CODES.invalidRange;
const SINKS = ['file', 'otherFileSystem', 'tcp', 'consume', 'transfer'];

function sizeWord(length) {
  const word = Buffer.alloc(4);
  word.writeUInt32BE(length);
  return word;
}

// 9 MiB pass through the 4 MiB buffer of a drain three times, every byte checked (bench/send_file.js
// sends a GiB).
test('byte ranges arrive whole in every destination', async () => {
  const small = sourceFile(70001);
  const big = sourceFile(9 * 1024 * 1024 + 3);
  const ranges = [
    [small, {}, small.bytes],
    [small, { offset: 1000 }, small.bytes.subarray(1000)],
    [small, { offset: 17, length: 4000 }, small.bytes.subarray(17, 4017)],
    [small, { offset: 70000 }, small.bytes.subarray(70000)],
    [small, { offset: 1, length: 4, sendFileSize: true }, Buffer.concat([sizeWord(4), small.bytes.subarray(1, 5)])],
    [big, {}, big.bytes],
    [big, { offset: 5, sendFileSize: true }, Buffer.concat([sizeWord(big.bytes.length - 5), big.bytes.subarray(5)])],
  ];
  for (const sink of SINKS) {
    for (const [source, range, expected] of ranges) {
      const label = `${sink} ${JSON.stringify(range)} of ${source.bytes.length}`;
      const run = await send({ srcFileName: source.file, ...range }, sink);
      assert.strictEqual(run.error, null, `${label}: ${run.error && run.error.message}`);
      assert.strictEqual(run.bytes.length, expected.length, label);
      assert.ok(run.bytes.equals(expected), label);
      assert.strictEqual(run.result.canceled, false, label);
      assert.strictEqual(run.result.totalRead, expected.length, label);
      // Bytes copied out by consumeOperationBufferedData are not counted as written.
      assert.strictEqual(run.result.totalWrite, sink === 'consume' ? 0 : expected.length, label);
      assert.strictEqual(run.result.name, 'sendFile');
      assert.strictEqual(run.result.poolName, 'Serve');
      assertEventOrder(run.events, {}, label);
      // Closed on the worker: closing the last descriptor of a file deleted meanwhile frees its
      // blocks, which must not hold up the event loop.
      assert.strictEqual(run.sourcesOpen, 0, `${label}: the source is still open at the callback`);
    }
  }
});

test('ranges outside the file and sources that cannot be read end with the error in the callback', async () => {
  const { file } = sourceFile(1000);
  const empty = path.join(dir, 'empty.bin');
  fs.writeFileSync(empty, '');
  const cases = [
    [{ srcFileName: file, offset: 1000 }, INVALID_RANGE],
    [{ srcFileName: file, offset: 5000 }, INVALID_RANGE],
    [{ srcFileName: file, length: 0 }, INVALID_RANGE],
    [{ srcFileName: file, offset: 999, length: 2 }, INVALID_RANGE],
    [{ srcFileName: file, length: 2 ** 53 }, INVALID_RANGE],
    [{ srcFileName: file, offset: 10, length: 2 ** 63 }, INVALID_RANGE],
    [{ srcFileName: file, offset: -5 }, systemError(22)],
    [{ srcFileName: empty }, INVALID_RANGE],
    [{ srcFileName: path.join(dir, 'missing.bin') }, systemError(2)],
    [{ srcFileName: dir }, null],
  ];
  for (const sink of ['file', 'transfer']) {
    for (const [params, full] of cases) {
      const label = `${sink} ${JSON.stringify(params)}`;
      const run = await send(params, sink);
      assert.ok(run.error instanceof Error, label);
      if (full !== null) assert.strictEqual(run.error.errors[0].full, full, label);
      assert.strictEqual(run.result, null, label);
      assert.strictEqual(run.error.totalRead, 0, label);
      assert.ok(Array.isArray(run.error.stateFlips), label);
      assertEventOrder(run.events, { failed: true }, label);
    }
  }
  const run = await send({ srcFileName: file }, 'file');
  const missing = await new Promise((resolve) => {
    vidora.sendFile({ srcFileName: file, dstFileName: path.join(dir, 'no', 'such', 'dir.bin') }, (error) => resolve(error));
  });
  assert.strictEqual(run.error, null);
  assert.strictEqual(missing.errors[0].full, systemError(2));
});

test('wrong parameters throw before any operation is made', () => {
  const { file } = sourceFile(100);
  const callback = () => assert.fail('no callback for a refused call');
  const dst = path.join(dir, 'never.bin');
  const refused = [
    [],
    [5, callback],
    ['text', callback],
    [{ srcFileName: file, dstFileName: dst }, 'not a function'],
    [{ dstFileName: dst }, callback],
    [{ srcFileName: 5, dstFileName: dst }, callback],
    [{ srcFileNames: [file, 5], dstFileName: dst }, callback],
    [{ srcFileName: file, srcFileNames: [file], dstFileName: dst }, callback],
    [{ srcFileNames: [], dstFileName: dst }, callback],
    [{ srcFileName: file }, callback],
    [{ srcFileName: file, dstFileName: '' }, callback],
    [{ srcFileName: file, dstTcpFd: -3 }, callback],
    [{ srcFileName: file, dstFileName: dst, dstCallback: () => {} }, callback],
    [{ srcFileName: file, dstFileName: dst, dstTcpFd: 1 }, callback],
    [{ srcFileName: file, dstWrtcId: 1 }, callback],
    [{ srcFileName: file, dstChannelId: 1, dstFileName: dst }, callback],
    [{ srcFileName: file, dstFileName: file }, callback],
  ];
  for (const args of refused) {
    assertThrowsCode(() => vidora.sendFile(...args), INVALID_PARAMETERS, JSON.stringify(args));
  }
  // A closed descriptor is refused with its system error.
  const fd = fs.openSync(file, 'r');
  fs.closeSync(fd);
  assertThrowsCode(() => vidora.sendFile({ srcFileName: file, dstTcpFd: fd }, callback), systemError(9));
  assert.ok(!fs.existsSync(dst));
});

test('the operation functions refuse wrong ids and arguments', async () => {
  const fns = ['pauseOperation', 'resumeOperation', 'cancelOperation', 'consumeOperationBufferedData',
    'transferOperationBufferedData', 'operationSetMaxBufferSize'];
  const plainTask = vidora.nop({ pool: 'Misc' }, () => {});
  for (const name of fns) {
    for (const id of WRONG_VALUES.filter((v) => typeof v !== 'number')) {
      assertThrowsCode(() => vidora[name](id, new ArrayBuffer(4)), INVALID_PARAMETERS, `${name}(${String(id)})`);
    }
    for (const id of [123456789, -1, 0, plainTask]) {
      assertThrowsCode(() => vidora[name](id, new ArrayBuffer(4)), CODES.operationNotFound, `${name}(${id})`);
    }
  }
  const { file } = sourceFile(64 * 1024);
  const run = send({ srcFileName: file, paused: true }, 'transfer', (state) => {
    for (const value of [undefined, 5, 'x', new Uint8Array(4), null]) {
      assertThrowsCode(() => vidora.consumeOperationBufferedData(state.id, value), INVALID_PARAMETERS, String(value));
    }
    for (const value of [undefined, '5', null, {}]) {
      assertThrowsCode(() => vidora.operationSetMaxBufferSize(state.id, value), INVALID_PARAMETERS, String(value));
    }
    assertThrowsCode(() => vidora.consumeOperationBufferedData(state.id), INVALID_PARAMETERS);
    assertThrowsCode(() => vidora.operationSetMaxBufferSize(state.id), INVALID_PARAMETERS);
    // An empty buffer gives a view of length 0, an empty Buffer.
    assert.strictEqual(vidora.consumeOperationBufferedData(state.id, new ArrayBuffer(8)).byteLength, 0);
    assert.strictEqual(vidora.transferOperationBufferedData(state.id).length, 0);
    // Sizes of 0 or below change nothing; the second form of resume does nothing on sendFile.
    vidora.operationSetMaxBufferSize(state.id, 0);
    vidora.operationSetMaxBufferSize(state.id, -10);
    vidora.resumeOperation(state.id, undefined);
    vidora.resumeOperation(state.id, 'soon');
    setTimeout(() => vidora.resumeOperation(state.id), 50);
  });
  const { error, bytes, result } = await run;
  assert.strictEqual(error, null);
  assert.strictEqual(bytes.length, 64 * 1024);
  // Made paused, still paused after the two-argument calls, resumed by the one-argument form.
  assert.deepStrictEqual(result.stateFlips.map((f) => f.state), ['paused', 'resumed']);
  assert.ok(result.stateFlips[1].timestamp - result.stateFlips[0].timestamp >= 40);
});

test('a socket the client closes ends the operation with the system error', async () => {
  const { file } = sourceFile(32 * 1024 * 1024);
  const socket = await loopbackSocket();
  socket.client.pause();
  const error = await new Promise((resolve) => {
    vidora.sendFile({ srcFileName: file, dstTcpFd: socket.fd }, (err) => resolve(err));
    setTimeout(() => socket.client.destroy(), 100);
  });
  socket.finish();
  assert.ok([systemError(32), systemError(104)].includes(error.errors[0].full), error.message);
  assert.ok(error.totalWrite < 32 * 1024 * 1024);
});
