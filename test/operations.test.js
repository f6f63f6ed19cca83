'use strict';
// Operations under load: backpressure of a drain that does not keep up, pause, resume and
// cancel at random moments, and a source that another process appends to meanwhile.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const { spawn } = require('child_process');

const { vidora, sleep, poolStats } = require('./helpers');
const { send, sourceFile, assertEventOrder } = require('./operation_helpers');

const MiB = 1024 * 1024;
const sanitized = Boolean(process.env.VIDORA_SANITIZED);

function serveIdle() {
  const serve = poolStats('Serve');
  return serve.inProgressSize === 0 && serve.pendingSize === 0;
}

test('a drain that takes nothing holds the buffer at its limit while the worker waits', async () => {
  const { file } = sourceFile(48 * MiB);
  let drainCalls = 0;
  let id;
  const ended = new Promise((resolve) => {
    id = vidora.sendFile({ srcFileName: file, dstCallback: () => drainCalls++ }, (error, result) => resolve({ error, result }));
  });
  await sleep(300);
  const cpu = process.cpuUsage();
  await sleep(300);
  const spent = process.cpuUsage(cpu);
  // The worker waits on its condition: no spinning while nobody drains.
  assert.ok(spent.user + spent.system < 100000, `cpu while blocked: ${JSON.stringify(spent)}`);
  const first = vidora.transferOperationBufferedData(id);
  assert.strictEqual(first.length, 4 * MiB, 'filled to the limit of a drain, no further');
  // A lower limit holds from the next refill on.
  vidora.operationSetMaxBufferSize(id, MiB / 2);
  await sleep(100);
  const second = vidora.transferOperationBufferedData(id);
  assert.ok(second.length <= 4 * MiB, `${second.length}`);
  await sleep(100);
  const third = vidora.transferOperationBufferedData(id);
  assert.strictEqual(third.length, MiB / 2);
  assert.ok(drainCalls >= 1);
  vidora.cancelOperation(id);
  const { error, result } = await ended;
  assert.strictEqual(error, null);
  assert.strictEqual(result.canceled, true);
  assert.ok(result.totalRead <= first.length + second.length + third.length + MiB / 2, `${result.totalRead}`);
  await sleep(10);
  assert.ok(serveIdle());
});

test('pause, resume, cancel and limits at random moments: every callback once, in order', async () => {
  const sources = [sourceFile(3 * MiB + 5, 1), sourceFile(700001, 2), sourceFile(5, 3)];
  const sinks = ['file', 'tcp', 'consume', 'transfer'];
  let seed = 99;
  const random = (n) => {
    seed = (Math.imul(seed, 1103515245) + 12345) >>> 0;
    return (seed >>> 8) % n;
  };
  const rounds = sanitized ? 6 : 30;
  let canceledCount = 0;
  for (let round = 0; round < rounds; round++) {
    const runs = sinks.map((sink, n) => {
      const source = sources[(round + n) % sources.length];
      const cancel = random(3) === 0;
      const paused = random(4) === 0;
      return send({ srcFileName: source.file, paused }, sink, (state) => {
        const actions = [() => vidora.pauseOperation(state.id), () => vidora.resumeOperation(state.id),
          () => vidora.operationSetMaxBufferSize(state.id, 1 + random(MiB)), () => { state.hold = !state.hold; }];
        if (cancel) actions.push(() => vidora.cancelOperation(state.id));
        const timers = actions.length + 2;
        let left = timers;
        // Whatever happened, once every action is done the operation goes on to its end.
        const finish = () => {
          if (--left > 0 || state.events.includes('end')) return;
          state.hold = false;
          vidora.resumeOperation(state.id);
          vidora.operationSetMaxBufferSize(state.id, 4 * MiB);
          state.pull();
        };
        for (let k = 0; k < timers; k++) {
          const action = k < actions.length ? actions[k] : actions[random(4)];
          setTimeout(() => {
            if (!state.events.includes('end')) action();
            finish();
          }, random(25));
        }
      }).then((run) => ({ run, source, paused, label: `round ${round} ${sink}` }));
    });
    for (const { run, source, paused, label } of await Promise.all(runs)) {
      assert.strictEqual(run.error, null, label);
      const { canceled } = run.result;
      if (canceled) canceledCount++;
      assertEventOrder(run.events, { canceled }, label);
      assert.ok(source.bytes.subarray(0, run.bytes.length).equals(run.bytes), `${label}: a prefix of the source`);
      if (!canceled) assert.strictEqual(run.bytes.length, source.bytes.length, label);
      assert.strictEqual(run.result.stateFlips[0].state, paused ? 'paused' : 'resumed', label);
    }
  }
  assert.ok(canceledCount > 0, 'some were canceled mid-way');
  await sleep(10);
  assert.ok(serveIdle(), 'no operation left behind');
});

test('a source another process appends to is sent as it was at the start, without holding the appender up', async () => {
  const source = sourceFile(6 * MiB, 5);
  // Each append waits at most 200 ms for the lock; a sendFile read takes far less.
  const appender = spawn('bash', ['-c', `for i in $(seq 1 20); do
      flock -x -w 0.2 "$F" -c 'head -c 65536 /dev/zero >> "$F"' || exit 9; done`],
  { env: { ...process.env, F: source.file } });
  const appended = new Promise((resolve) => appender.on('exit', resolve));
  const slow = [];
  const result = await new Promise((resolve) => {
    const id = vidora.sendFile({ srcFileName: source.file, dstCallback: () => {
      // A consumer slower than the disk: a piece at a time.
      setTimeout(() => {
        try {
          const view = vidora.consumeOperationBufferedData(id, new ArrayBuffer(256 * 1024));
          slow.push(Buffer.from(view.buffer, 0, view.byteLength));
        } catch (err) { /* ended */ }
      }, 2);
    } }, (error, value) => {
      const rest = vidora.transferOperationBufferedData(id);
      if (rest.length > 0) slow.push(rest);
      resolve(error || value);
    });
  });
  assert.strictEqual(await appended, 0, 'every append took the lock within 200 ms');
  assert.strictEqual(result.totalRead, source.bytes.length);
  assert.ok(Buffer.concat(slow).equals(source.bytes));
  assert.strictEqual(fs.statSync(source.file).size, source.bytes.length + 20 * 65536);
});
