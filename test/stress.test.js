'use strict';
// Thousands of tasks in flight from many pools at once, several waves: every task that fits
// calls back exactly once, pools of limit 1 in id order, and everything is released. (That a
// process ends by itself after such a load is the exit tests'.)
const test = require('node:test');
const assert = require('assert');
const { vidora } = require('./helpers');

const sanitized = Boolean(process.env.VIDORA_SANITIZED);
const WAVES = sanitized ? 2 : 6;
const EXTRA_POOLS = 10;  // of limit 1; with the default pools' 100 they stay under 128 threads
const PER_POOL = 201;    // one running and a full pending queue

function wave(pools) {
  return new Promise((resolve) => {
    const offered = new Map(pools.map((pool) => [pool, []]));
    const ended = new Map(pools.map((pool) => [pool, []]));
    let outstanding = 0;
    for (let i = 0; i < PER_POOL; i++) {
      for (const pool of pools) {
        outstanding++;
        offered.get(pool).push(vidora.nop({ pool }, (err, result) => {
          assert.strictEqual(err, null);
          assert.strictEqual(result.poolName, pool);
          ended.get(pool).push(result.id);
          if (--outstanding === 0) setImmediate(resolve, { offered, ended });
        }));
      }
    }
  });
}

test('thousands of nops in flight across many pools, several waves', async () => {
  const extra = Array.from({ length: EXTRA_POOLS }, (_, i) => `Stress${i}`);
  vidora.setWorkersPoolsLimits(Object.fromEntries(extra.map((name) => [name, 1])));
  const pools = ['Serve', 'Write', 'Read', 'Misc', ...extra];
  const limitOne = new Set(['Misc', ...extra]);
  for (let w = 0; w < WAVES; w++) {
    const { offered, ended } = await wave(pools);
    for (const pool of pools) {
      const expected = offered.get(pool);
      const actual = ended.get(pool);
      if (limitOne.has(pool)) {
        assert.deepStrictEqual(actual, expected, `${pool}: id order`);
      } else {
        assert.deepStrictEqual([...actual].sort((a, b) => a - b), expected, `${pool}: each once`);
      }
    }
  }
  for (const stats of vidora.getWorkersPoolsStats()) {
    if (!pools.includes(stats.name)) continue;
    assert.strictEqual(stats.pendingSize, 0, stats.name);
    assert.strictEqual(stats.inProgressSize, 0, stats.name);
    assert.strictEqual(stats.totalSeen, WAVES * PER_POOL, stats.name);
    assert.strictEqual(stats.stats.nop.count, WAVES * PER_POOL, stats.name);
  }
});
