'use strict';
// The errors of the JavaScript layer: VidoraError for every native failure, with a stable
// string code, and AbortError for an operation ended through its AbortSignal.
const os = require('os');

const CODES = require('./error_codes.json');

// errno values by number: module 0 of the native codes is the system's errno.
const ERRNO = Object.fromEntries(Object.entries(os.constants.errno).map(([name, value]) => [value, name]));
// The one system code the native layer gives a meaning of its own: a file lock not taken in
// 1.5 s.
const LOCK_TIMEOUT = 0x80000004 | 0;

// The string code of a native error code: "ERR_<MODULE>_<WHAT>" for vidora's own, the errno
// name ("ENOENT") for a system error, "ERR_LOCK_TIMEOUT", or "ERR_UNKNOWN".
function codeOf(full) {
  if (full === LOCK_TIMEOUT) return 'ERR_LOCK_TIMEOUT';
  if (CODES[String(full)]) return CODES[String(full)];
  if (((full >>> 16) & 0x3fff) === 0 && (full >>> 30) === 2) return ERRNO[full & 0xffff] || 'ERR_UNKNOWN';
  return 'ERR_UNKNOWN';
}

class VidoraError extends Error {
  // Made from the error object of a native call: its message, its `errors` chain (newest first)
  // and every other field it carries; the task's name, which would hide Error's own, becomes
  // `taskName`.
  constructor(native) {
    super(native.message);
    for (const [key, value] of Object.entries(native)) {
      if (key === 'name') this.taskName = value;
      else if (key !== 'message' && key !== 'stack') this[key] = value;
    }
    this.full = native.errors && native.errors[0] ? native.errors[0].full : 0;
    this.code = codeOf(this.full);
  }

  // An error of the layer itself, with no native chain behind it.
  static of(code, message) {
    const error = new VidoraError({ message, errors: [] });
    error.code = code;
    return error;
  }

  // `error` as a VidoraError: a native error object with its chain; anything else a native
  // function threw (a refused argument, an exception of the caller's parameter object) as
  // ERR_INVALID_ARG, with that error as its `cause`.
  static from(error) {
    if (error instanceof VidoraError) return error;
    if (error && Array.isArray(error.errors)) return new VidoraError(error);
    const wrapped = VidoraError.of('ERR_INVALID_ARG', error instanceof Error ? error.message : String(error));
    wrapped.cause = error;
    return wrapped;
  }
}
VidoraError.prototype.name = 'VidoraError';

class AbortError extends Error {
  constructor(reason) {
    super('The operation was aborted', reason === undefined ? undefined : { cause: reason });
    this.code = 'ABORT_ERR';
  }
}
AbortError.prototype.name = 'AbortError';

module.exports = { VidoraError, AbortError, codeOf };
