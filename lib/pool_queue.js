'use strict';
// Keeps the native pools' waiting queues from overflowing. The native layer drops a task that it
// is offered while 200 already wait in its pool, and that task never calls back; it also drops
// a task for a pool that does not exist. Every call of the layer goes through here: a pool gets
// at most its concurrency limit plus PENDING_ROOM calls at once, and the rest wait here, in
// order, for one of them to end.
const { VidoraError } = require('./errors');

// Of the 200 native waiting places, what the layer takes; the rest stays for callers of the
// native functions themselves.
const PENDING_ROOM = 150;
// The pools that only setWorkersPoolsLimits makes, with the limits the layer gives them when
// the application has not: the default pools' 100 and these stay under the 128 worker threads.
const DEFAULT_LIMITS = { Append: 2, Transcode: 4 };

class PoolQueues {
  constructor(native) {
    this._native = native;
    this._pools = new Map();  // name -> { limit, running, waiting: [start] }
  }

  // Reads the pools' limits again (after setWorkersPoolsLimits).
  refresh(stats) {
    for (const { name, maxSize } of stats) {
      if (this._pools.has(name)) this._pools.get(name).limit = maxSize;
    }
  }

  _pool(name) {
    let pool = this._pools.get(name);
    if (pool) return pool;
    let stats = this._native.getWorkersPoolsStats();
    if (!stats.some((p) => p.name === name) && DEFAULT_LIMITS[name]) {
      stats = this._native.setWorkersPoolsLimits({ [name]: DEFAULT_LIMITS[name] });
    }
    const found = stats.find((p) => p.name === name);
    if (!found) return null;
    pool = { limit: found.maxSize, running: 0, waiting: [] };
    this._pools.set(name, pool);
    return pool;
  }

  // Runs `start(done)` on pool `name` now or when there is room; `start` makes the native call
  // and `done` must be called once when its callback came. Returns { cancel() }, which takes a
  // call that still waits here out of the queue (true) or says it has started (false).
  submit(name, start, refuse) {
    const pool = this._pool(name);
    if (pool === null) {
      refuse(VidoraError.of('ERR_POOL_NOT_FOUND', `no workers pool "${name}": create it with setWorkersPoolsLimits`));
      return { cancel: () => false };
    }
    const entry = { start };
    const run = () => {
      pool.running++;
      entry.started = true;
      let ended = false;
      start(() => {
        if (ended) return;
        ended = true;
        pool.running--;
        this._next(pool);
      });
    };
    if (pool.running < pool.limit + PENDING_ROOM) run();
    else pool.waiting.push(Object.assign(entry, { run }));
    return {
      cancel: () => {
        const at = pool.waiting.indexOf(entry);
        if (at < 0) return false;
        pool.waiting.splice(at, 1);
        return true;
      },
    };
  }

  _next(pool) {
    while (pool.waiting.length > 0 && pool.running < pool.limit + PENDING_ROOM) pool.waiting.shift().run();
  }

  // Calls waiting in the layer, by pool, for the statistics.
  waitingCounts() {
    return Object.fromEntries([...this._pools].map(([name, pool]) => [name, pool.waiting.length]));
  }
}

module.exports = { PoolQueues, PENDING_ROOM, DEFAULT_LIMITS };
