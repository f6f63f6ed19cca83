'use strict';
// The JavaScript face of the native functions: each task function returns a Promise when it is
// given no callback, and calls the callback (error, result) otherwise; failures are VidoraError;
// an operation (sendFile, processMedia) takes an AbortSignal as `signal` among its parameters;
// and every call waits its turn in the layer's own queue of its pool, so that none is dropped.
// The native functions stay as they are on the package's exports.
const { AbortError, VidoraError } = require('./errors');
const { PoolQueues } = require('./pool_queue');
const { operationStream } = require('./streams');

// The pool of each task function, from its arguments.
const POOLS = {
  nop: (params) => params && params.pool,
  statvfs: () => 'Misc',
  vrxFileInfo: () => 'Read',
  vrxFileListFrames: () => 'Read',
  vrxFileListPartitions: () => 'Read',
  vrxFileListFragments: () => 'Read',
  vrxFileCreate: () => 'Write',
  vrxFileClear: () => 'Write',
  vrxFileClose: () => 'Write',
  vrxFileRecover: () => 'Write',
  vrxFileCopyContent: () => 'Write',
  vrxFileDeleteContent: () => 'Write',
  vrxFileEstimateSize: () => 'Serve',
  vrxFileAppend: () => 'Append',
  sendFile: () => 'Serve',
  processMedia: (params) => (params && (params.dstTcpFd >= 0 || params.dstWrtcId !== undefined ||
    params.networkDestination === true) ? 'Serve' : 'Write'),
};
const OPERATIONS = new Set(['sendFile', 'processMedia']);

function abortReason(signal) {
  return new AbortError(signal.reason);
}

function makeApi(native) {
  const queues = new PoolQueues(native);

  // Starts native[name](...args, callback) in its pool's turn. With `hooks.signal` the call is
  // taken out of the queue, or canceled once it runs (operations), when the signal aborts.
  // `hooks.started(id)` and `hooks.ending(id)` (inside the native callback) see the operation.
  function call(name, args, hooks = {}) {
    const { signal } = hooks;
    return new Promise((resolve, reject) => {
      if (signal && signal.aborted) {
        reject(abortReason(signal));
        return;
      }
      let id = null;
      let onAbort = null;
      const settle = () => signal && onAbort && signal.removeEventListener('abort', onAbort);
      const queued = queues.submit(POOLS[name](...args), (done) => {
        try {
          id = native[name](...args, (error, result) => {
            if (hooks.ending) hooks.ending(id, error, result);
            done();
            settle();
            if (error) reject(VidoraError.from(error));
            else if (signal && signal.aborted && result && result.canceled) reject(abortReason(signal));
            else resolve(result);
          });
        } catch (error) {
          done();
          settle();
          reject(VidoraError.from(error));
          return;
        }
        if (hooks.started) hooks.started(id);
      }, (error) => {
        settle();
        reject(error);
      });
      if (signal) {
        onAbort = () => {
          if (queued.cancel()) {
            settle();
            reject(abortReason(signal));
          } else if (id !== null && OPERATIONS.has(name)) {
            try { native.cancelOperation(id); } catch (error) { /* it has just ended */ }
          }
        };
        signal.addEventListener('abort', onAbort, { once: true });
      }
    });
  }

  // Promise without a callback, callback(error, result) with one.
  function dual(name) {
    return (...args) => {
      const callback = typeof args[args.length - 1] === 'function' ? args.pop() : null;
      let hooks = {};
      if (OPERATIONS.has(name) && args[0] && args[0].signal) {
        const { signal, ...params } = args[0];
        args[0] = params;
        hooks = { signal };
      }
      const promise = call(name, args, hooks);
      if (!callback) return promise;
      promise.then((result) => callback(null, result), (error) => callback(error, null));
      return undefined;
    };
  }

  const api = {};
  for (const name of Object.keys(POOLS)) {
    if (typeof native[name] === 'function') api[name] = dual(name);
  }
  // Limits set through the layer are the ones its queues use.
  api.setWorkersPoolsLimits = (limits) => {
    const stats = native.setWorkersPoolsLimits(limits);
    queues.refresh(stats);
    return stats;
  };
  // The native statistics, with `layerWaiting`: calls waiting in this layer's queue.
  api.getWorkersPoolsStats = () => {
    const waiting = queues.waitingCounts();
    return native.getWorkersPoolsStats().map((pool) => ({ ...pool, layerWaiting: waiting[pool.name] || 0 }));
  };
  api.sendFileStream = (params, options) => operationStream(native, call, 'sendFile', params, options);
  api.processMediaStream = (params, options) => {
    // The MP4 writer goes back to its header at the end: only a file destination can take that.
    if (params && String(params.outputFormat || 'vrx').toLowerCase() === 'mp4') {
      throw VidoraError.of('ERR_MP4_NEEDS_FILE', 'an MP4 is written with a seek back to its header, which a stream cannot take: ' +
        'stream "fmp4", or write the MP4 to a file (dstFileName) or a socket with transportFormat "http"');
    }
    return operationStream(native, call, 'processMedia', params, options);
  };
  return api;
}

module.exports = { makeApi, POOLS };
