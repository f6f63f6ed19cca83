'use strict';
// Workers pools as JavaScript sees them: the default pools, limits, the pending queue and its
// drops, statistics, and setWorkersPoolsLimits with its edge cases.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { vidora, REQUIRE_VIDORA, INVALID_PARAMETERS, assertThrowsCode, tempDir, poolStats, waitFor, runNodeSync,
  assertCleanExit } = require('./helpers');

const POOL_KEYS = ['name', 'maxSize', 'pendingSize', 'inProgressSize', 'totalSeen',
  'totalSeenSinceLastQuery', 'stats'];

// Enqueues `count` nops on `pool`; resolves with the ids in the order they called back, once
// `expected` (default: all) have. A task leaves its pool only after its callback returned,
// so the promise settles on the next turn of the loop.
function nops(pool, count, expected = count) {
  return new Promise((resolve) => {
    const ids = [];
    const order = [];
    for (let i = 0; i < count; i++) {
      ids.push(vidora.nop({ pool }, (err, result) => {
        assert.strictEqual(err, null);
        order.push(result.id);
        if (order.length === expected) setImmediate(resolve, { ids, order });
      }));
    }
  });
}

test('start-up makes the four default pools, in name order, idle', () => {
  const stats = vidora.getWorkersPoolsStats();
  assert.deepStrictEqual(stats, [
    { name: 'Misc', maxSize: 1, pendingSize: 0, inProgressSize: 0, totalSeen: 0, totalSeenSinceLastQuery: 0, stats: {} },
    { name: 'Read', maxSize: 4, pendingSize: 0, inProgressSize: 0, totalSeen: 0, totalSeenSinceLastQuery: 0, stats: {} },
    { name: 'Serve', maxSize: 90, pendingSize: 0, inProgressSize: 0, totalSeen: 0, totalSeenSinceLastQuery: 0, stats: {} },
    { name: 'Write', maxSize: 5, pendingSize: 0, inProgressSize: 0, totalSeen: 0, totalSeenSinceLastQuery: 0, stats: {} },
  ]);
});

test('setWorkersPoolsLimits applies positive numbers only and answers with the stats', () => {
  const returned = vidora.setWorkersPoolsLimits({ Serve: 0, Write: '3', NewPool: 7 });
  assert.deepStrictEqual(returned.map((pool) => pool.name), ['Misc', 'NewPool', 'Read', 'Serve', 'Write']);
  for (const pool of returned) assert.deepStrictEqual(Object.keys(pool), POOL_KEYS);
  const byName = Object.fromEntries(returned.map((pool) => [pool.name, pool.maxSize]));
  assert.deepStrictEqual(byName, { Misc: 1, NewPool: 7, Read: 4, Serve: 90, Write: 5 });

  // [limits, pool, maxSize afterwards]
  const cases = [
    [{ Serve: 1 }, 'Serve', 2],
    [{ Serve: 90 }, 'Serve', 90],
    [{ NewPool: 1 }, 'NewPool', 2],
    [{ Fresh1: 1 }, 'Fresh1', 1],
    [{ Fresh1: 2.9 }, 'Fresh1', 2],
    [{ Fresh1: 6.5 }, 'Fresh1', 6],
    [{ Fresh1: -4 }, 'Fresh1', 6],
    [{ Fresh1: NaN }, 'Fresh1', 6],
    [{ Fresh1: true }, 'Fresh1', 6],
    [{ Fresh1: null }, 'Fresh1', 6],
    [{ Fresh1: 0.5 }, 'Fresh1', 6],
    [{ [Symbol('Fresh1')]: 3 }, 'Fresh1', 6],
    [{ 42: 3 }, '42', 3],
  ];
  for (const [limits, name, maxSize] of cases) {
    vidora.setWorkersPoolsLimits(limits);
    assert.strictEqual(poolStats(name).maxSize, maxSize, `${String(Object.keys(limits))} -> ${name}`);
  }
  const withLimits = function limitsHolder() {};
  withLimits.FromFunction = 3;
  vidora.setWorkersPoolsLimits(withLimits);
  assert.strictEqual(poolStats('FromFunction').maxSize, 3);
  // An empty object changes nothing and still answers.
  assert.deepStrictEqual(vidora.setWorkersPoolsLimits({}).map((pool) => pool.name),
    vidora.getWorkersPoolsStats().map((pool) => pool.name));

  for (const value of [undefined, null, 5, 'Serve', true]) {
    assertThrowsCode(() => vidora.setWorkersPoolsLimits(value), INVALID_PARAMETERS, String(value));
  }
  assertThrowsCode(() => vidora.setWorkersPoolsLimits(), INVALID_PARAMETERS);
});

// (A pool of limit 1 runs its tasks in id order: here up to the full queue; many such pools at
// once, in waves, are the C++ pools test's.)
test('the 201st pending task is dropped, never calls back, and is counted in totalSeen', async () => {
  vidora.setWorkersPoolsLimits({ Narrow: 1 });
  const finished = nops('Narrow', 202, 201);
  const queued = poolStats('Narrow');
  assert.strictEqual(queued.inProgressSize, 1);
  assert.strictEqual(queued.pendingSize, 200);
  assert.strictEqual(queued.totalSeen, 202);
  const { ids, order } = await finished;
  assert.deepStrictEqual(order, ids.slice(0, 201));
  // Another round trip on the pool: the dropped one did not wait behind it.
  await nops('Narrow', 1);
  const after = poolStats('Narrow');
  assert.strictEqual(after.totalSeen, 203);
  assert.strictEqual(after.stats.nop.count, 202);
});

test('statistics are kept per task name, and reading them resets totalSeenSinceLastQuery', async () => {
  vidora.setWorkersPoolsLimits({ Mixed: 2 });
  await nops('Mixed', 3);
  vidora.getWorkersPoolsStats();
  await nops('Mixed', 2);
  const first = poolStats('Mixed');
  assert.strictEqual(first.totalSeen, 5);
  assert.strictEqual(first.totalSeenSinceLastQuery, 2);
  assert.strictEqual(poolStats('Mixed').totalSeenSinceLastQuery, 0);
  assert.deepStrictEqual(Object.keys(first.stats), ['nop']);
  assert.deepStrictEqual(Object.keys(first.stats.nop), ['userUs', 'cpuUs', 'count']);
  assert.strictEqual(first.stats.nop.count, 5);

  await new Promise((resolve) => vidora.statvfs('/', () => setImmediate(resolve)));
  await nops('Misc', 1);
  const misc = poolStats('Misc');
  assert.deepStrictEqual(Object.keys(misc.stats).sort(), ['nop', 'statvfs']);
  assert.strictEqual(misc.stats.statvfs.count, 1);
});

test('the pools log starts and releases, but nothing of the frequent statvfs', async () => {
  const file = path.join(tempDir(), 'pools.log');
  vidora.setLogFile({ path: file, logLevel: 4 });
  const { ids } = await nops('Misc', 1);
  await new Promise((resolve) => vidora.statvfs('/', resolve));
  const released = `WorkersPool::SignalTaskFinished release task id=${ids[0]} name=nop`;
  await waitFor(() => fs.existsSync(file) && fs.readFileSync(file, 'utf8').includes(released));
  const text = fs.readFileSync(file, 'utf8');
  assert.ok(text.includes(`WorkersPool::Enqueue pool Misc task id=${ids[0]} name=nop starting now inprogress 1/1 [nop=1 `), text);
  assert.ok(!/name=statvfs/.test(text), text);
  vidora.setLogLevel({ logLevel: 1 });
});

test('loading the module again in a worker thread leaves the pools as they are', async () => {
  const { Worker } = require('worker_threads');
  const before = vidora.getWorkersPoolsStats().map((pool) => [pool.name, pool.maxSize]);
  const worker = new Worker(`${REQUIRE_VIDORA}.version();`, { eval: true });
  const code = await new Promise((resolve) => worker.on('exit', resolve));
  assert.strictEqual(code, 0);
  assert.deepStrictEqual(vidora.getWorkersPoolsStats().map((pool) => [pool.name, pool.maxSize]), before);
  await nops('Misc', 1);
});

test('loading the module twice in one environment gives working functions and the same pools', () => {
  // What a test runner that resets its module registry does: the binary is registered again
  // on the same environment.
  const script = `
    const vidora = ${REQUIRE_VIDORA};
    const file = Object.keys(require.cache).find((name) => name.endsWith('.node'));
    delete require.cache[file];
    const again = require(file);
    vidora.setWorkersPoolsLimits({ Twice: 3 });
    again.nop({ pool: 'Twice' }, (err, result) => {
      const pool = again.getWorkersPoolsStats().find((p) => p.name === 'Twice');
      console.log(err, result.poolName, pool.maxSize, again !== vidora);
    });
  `;
  assertCleanExit(runNodeSync(script), 'null Twice 3 true\n');
});

test('tasks asked for from a worker thread are dropped, and the main thread\'s go on', () => {
  // Tasks end on the main thread's loop, which must never call into a worker's environment.
  const script = `
    const { Worker } = require('worker_threads');
    const vidora = ${REQUIRE_VIDORA};
    const worker = new Worker(${JSON.stringify(`
      const vidora = ${REQUIRE_VIDORA};
      const fail = () => { throw new Error('a callback reached the worker'); };
      const ids = [vidora.nop({ pool: 'Misc' }, fail), vidora.statvfs('/', fail)];
      require('worker_threads').parentPort.postMessage(ids.every((id) => id > 0));
    `)}, { eval: true });
    worker.on('message', (idsGiven) => console.log('ids ' + idsGiven));
    worker.on('exit', (code) => {
      const misc = vidora.getWorkersPoolsStats().find((pool) => pool.name === 'Misc');
      vidora.nop({ pool: 'Misc' }, (err) => console.log('worker ' + code + ' seen ' + misc.totalSeen + ' main ' + err));
    });
  `;
  assertCleanExit(runNodeSync(script), 'ids true\nworker 0 seen 0 main null\n');
});
