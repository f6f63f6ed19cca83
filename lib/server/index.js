'use strict';
// The reference recording server: the recordings of one folder over HTTP, on node's http and
// the package's Promise and stream functions (`api`).
//
//   GET /                                      the page (lib/server/public)
//   GET /api/recordings                        { recordings: [{ name, size, modified }] }
//   GET /api/recordings/NAME/spans?from=&to=   { name, spans: [{ start, end }] }
//   GET /api/recordings/NAME/mp4?from=&to=     the range as a downloadable MP4 (Range requests)
//   GET /api/recordings/NAME/fmp4?from=&to=    the range as fragmented MP4 for MSE, streamed
//
// NAME is the recording's path under the folder, URL-encoded as one path segment; from and to
// are wall clocks in ms since the epoch. Failures are JSON { error: { code, message } }.
const http = require('http');

const { HttpError, sendError } = require('./http_error');
const { Recordings } = require('./recordings');
const { Mp4Cache } = require('./mp4_cache');
const { rangeOf } = require('./query');
const { serveMp4 } = require('./mp4_download');
const { serveFmp4 } = require('./fmp4_stream');
const { staticFiles } = require('./static_files');
const { listSpans, recordedRange } = require('./spans');

function sendJson(res, value) {
  const body = JSON.stringify(value);
  res.writeHead(200, { 'Content-Type': 'application/json; charset=utf-8', 'Content-Length': Buffer.byteLength(body),
    'Cache-Control': 'no-store' });
  res.end(body);
}

async function serveSpans(context, req, res, recording, { from, to }) {
  const spans = await listSpans(context.api, recording.file, from, to);
  sendJson(res, { name: recording.name, size: recording.stat.size, spans });
}

const RECORDING_ROUTES = { spans: serveSpans, mp4: serveMp4, fmp4: serveFmp4 };
const METHODS = { spans: ['GET'], mp4: ['GET', 'HEAD'], fmp4: ['GET'] };

function decodeSegment(segment) {
  try {
    return decodeURIComponent(segment);
  } catch (error) {
    throw new HttpError(400, 'BAD_NAME', 'the path is not valid percent-encoding');
  }
}

async function route(context, req, res) {
  const [rawPath, search = ''] = req.url.split(/\?(.*)/s);
  const segments = rawPath.split('/').slice(1).map(decodeSegment);
  if (segments.some((s) => s === '.' || s === '..')) {
    throw new HttpError(400, 'BAD_PATH', 'the path may not hold "." or ".." segments');
  }
  const asset = context.staticFiles.get(rawPath);
  if (asset) {
    if (req.method !== 'GET' && req.method !== 'HEAD') throw new HttpError(405, 'METHOD', 'only GET and HEAD', { Allow: 'GET, HEAD' });
    res.writeHead(200, { 'Content-Type': asset.type, 'Content-Length': asset.body.length, 'Cache-Control': 'no-cache' });
    res.end(req.method === 'HEAD' ? undefined : asset.body);
    return;
  }
  if (segments[0] !== 'api' || segments[1] !== 'recordings') throw new HttpError(404, 'NOT_FOUND', `no such path: ${rawPath}`);
  if (segments.length === 2) {
    if (req.method !== 'GET') throw new HttpError(405, 'METHOD', 'only GET', { Allow: 'GET' });
    if (search) throw new HttpError(400, 'BAD_PARAMETER', 'the list of recordings takes no parameters');
    sendJson(res, { recordings: await context.recordings.list() });
    return;
  }
  const handler = segments.length === 4 && Object.hasOwn(RECORDING_ROUTES, segments[3]) ? RECORDING_ROUTES[segments[3]] : null;
  if (!handler) throw new HttpError(404, 'NOT_FOUND', `no such path: ${rawPath} (spans, mp4 or fmp4 of a recording)`);
  const methods = METHODS[segments[3]];
  if (!methods.includes(req.method)) {
    throw new HttpError(405, 'METHOD', `only ${methods.join(' and ')}`, { Allow: methods.join(', ') });
  }
  const range = rangeOf(search);
  const recording = await context.recordings.resolve(segments[2]);
  await handler(context, req, res, recording, handler === serveSpans ? range
    : await recordedRange(context.api, recording.file, range.from, range.to, handler === serveFmp4));
}

// An http.Server for `dir`, not yet listening. Options: `api` (the package's Promise layer),
// `maxCacheBytes` (MP4 exports kept, default 1 GiB), `streams` (at least this many exports and
// streams run at once: the limit of the "Write" pool is raised to it, default 100, and the
// unused "Serve" pool's lowered),
// `onError(error, req)` for failures of the server's own (5xx).
function createServer(dir, { api, maxCacheBytes, streams = 100, onError = () => {} } = {}) {
  if (!api) throw new Error('createServer needs the package\'s api');
  const write = api.getWorkersPoolsStats().find((pool) => pool.name === 'Write');
  // Streams to JavaScript and exports to files run on "Write"; nothing here uses "Serve", whose
  // limit goes down so that the sum of the limits stays within the 128 worker threads.
  if (write && write.maxSize < streams) api.setWorkersPoolsLimits({ Write: streams, Serve: 2 });
  const context = {
    api,
    recordings: new Recordings(dir),
    mp4Cache: new Mp4Cache(api, { maxBytes: maxCacheBytes }),
    staticFiles: staticFiles(),
    streamHighWaterMark: 256 * 1024,
  };
  const server = http.createServer((req, res) => {
    route(context, req, res).catch((error) => {
      if (res.destroyed || res.writableEnded) return;
      const failure = sendError(res, error);
      if (failure.status >= 500) onError(error, req);
    });
  });
  server.on('close', () => context.mp4Cache.close());
  return server;
}

module.exports = { createServer };
