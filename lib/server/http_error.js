'use strict';
// Failures as HTTP answers: HttpError carries its status and a stable code; a VidoraError
// from the package is mapped to the status a client can act on; every failure goes out as
// JSON { error: { code, message } }.

class HttpError extends Error {
  constructor(status, code, message, headers = {}) {
    super(message);
    this.status = status;
    this.code = code;
    this.headers = headers;
  }
}

// The package's codes that say something about the request rather than about the server.
const MAPPED = {
  ENOENT: [404, 'no such recording'],
  ERR_NODEJS_FILE_NOT_FOUND: [404, 'no such recording'],
  ERR_NODEJS_NO_SEEK_POINTS: [404, 'nothing was recorded in that range'],
  ERR_NODEJS_NO_MP4_TRACKS: [404, 'nothing was recorded in that range'],
  ERR_MEDIAFORMATS_WALL_CLOCK_NOT_FOUND: [404, 'nothing was recorded in that range'],
  ERR_MEDIAFORMATS_INCORRECT_VRX_CONTENT: [422, 'the recording is not a VRX file, or it is damaged'],
  ERR_MEDIAFORMATS_NOT_PARTITIONED: [422, 'the recording is not a VRX file, or it is damaged'],
  ERR_LOCK_TIMEOUT: [503, 'the recording is locked by another process; try again', { 'Retry-After': '1' }],
};

// An HttpError for any failure: HttpErrors as they are, the package's errors by their code,
// anything else as 500.
function toHttpError(error) {
  if (error instanceof HttpError) return error;
  const mapped = error && MAPPED[error.code];
  if (mapped) return new HttpError(mapped[0], error.code, `${mapped[1]} (${error.message})`, mapped[2]);
  const detail = error && error.message ? error.message : String(error);
  return new HttpError(500, (error && error.code) || 'ERR_INTERNAL', `internal error: ${detail}`);
}

// Answers `res` with the failure, unless the head has gone already: then the answer can only
// be cut short.
function sendError(res, error) {
  const failure = toHttpError(error);
  if (res.headersSent) {
    res.destroy(failure);
    return failure;
  }
  const body = JSON.stringify({ error: { code: failure.code, message: failure.message } });
  res.writeHead(failure.status, {
    'Content-Type': 'application/json; charset=utf-8',
    'Content-Length': Buffer.byteLength(body),
    'Cache-Control': 'no-store',
    ...failure.headers,
  });
  res.end(res.req && res.req.method === 'HEAD' ? undefined : body);
  return failure;
}

module.exports = { HttpError, toHttpError, sendError };
