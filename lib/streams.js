'use strict';
// An operation (sendFile, processMedia) as a node Readable. Its drain callback takes the
// operation's bytes with transferOperationBufferedData (no copy) while the stream wants more;
// when the consumer falls behind, the stream stops taking and pauses the operation, whose
// buffer then stays within its limit, and resumes it when it is read again. Destroying the
// stream cancels the operation; `signal` aborts it. The operation's result is the stream's
// `result` property and its 'result' event once it has ended.
const { Readable } = require('stream');

const { VidoraError } = require('./errors');

// An operation left paused this long ends itself (the native idle limit is 60 s): a stream
// whose consumer did not read for that long did not get the whole of it.
const IDLE_END_MS = 59000;

function operationStream(native, call, name, params, options = {}) {
  let id = null;
  let wanting = true;
  let pausedAt = 0;
  let ended = false;

  const resume = () => {
    if (pausedAt === 0 || id === null || ended) return;
    pausedAt = 0;
    try { native.resumeOperation(id); } catch (error) { /* it has just ended */ }
  };
  const take = () => {
    if (id === null || !wanting) return;
    let chunk;
    try {
      chunk = native.transferOperationBufferedData(id);
    } catch (error) {
      return;
    }
    if (chunk.length === 0 || stream.destroyed) return;
    if (!stream.push(chunk)) {
      wanting = false;
      if (pausedAt === 0 && !ended) {
        pausedAt = Date.now();
        try { native.pauseOperation(id); } catch (error) { /* it has just ended */ }
      }
    }
  };
  const stream = new Readable({
    highWaterMark: options.highWaterMark,
    read() {
      wanting = true;
      resume();
      take();
    },
    destroy(error, done) {
      if (!ended && id !== null) {
        try { native.cancelOperation(id); } catch (cancelError) { /* it has just ended */ }
      } else if (!ended) {
        // Still waiting in its pool's queue: it must not start for nobody.
        unqueue.abort();
      }
      done(error);
    },
  });
  // Aborted by the caller's signal, or by a destroy before the operation started.
  const unqueue = new AbortController();
  const forward = () => unqueue.abort(options.signal.reason);
  if (options.signal) {
    if (options.signal.aborted) forward();
    else options.signal.addEventListener('abort', forward, { once: true });
  }
  const hooks = {
    signal: unqueue.signal,
    started: (operationId) => { id = operationId; },
    // The bytes left are readable only until the completion callback returns: all go now.
    ending: (operationId, error) => {
      ended = true;
      if (error || stream.destroyed) return;
      const last = native.transferOperationBufferedData(operationId);
      if (last.length > 0) stream.push(last);
    },
  };
  const settled = () => options.signal && options.signal.removeEventListener('abort', forward);
  call(name, [{ ...params, dstCallback: take }], hooks).finally(settled).then((result) => {
    stream.result = result;
    stream.emit('result', result);
    if (pausedAt !== 0 && Date.now() - pausedAt >= IDLE_END_MS && !result.canceled) {
      stream.destroy(VidoraError.of('ERR_OPERATION_IDLE', `${name} ended itself: the stream was not read for a minute`));
    } else {
      stream.push(null);
    }
  }, (error) => stream.destroy(error));
  return stream;
}

module.exports = { operationStream };
