'use strict';
// GET/HEAD /api/recordings/NAME/mp4?from=&to=: a wall-clock range as a downloadable MP4, from
// the export cache, with its exact length, and one byte range (206) at a time when asked.
// If-Range with another ETag (the recording changed since) gets the whole new answer.
const fs = require('fs');
const path = require('path');
const { pipeline } = require('stream');

const { parseRange } = require('./byte_range');

function downloadName(name, from, to) {
  const base = path.posix.basename(name).replace(/\.vrx$/i, '').replace(/[^\w.-]/g, '_');
  return `${base}_${from === undefined ? 'start' : from}-${to === undefined ? 'end' : to}.mp4`;
}

async function serveMp4(context, req, res, recording, { from, to }) {
  const entry = await context.mp4Cache.get(recording, from, to);
  // Open before anything else: the cache may remove the file, and an open file stays readable.
  const handle = await fs.promises.open(entry.file, 'r');
  const size = entry.size;
  const ifRange = req.headers['if-range'];
  const range = ifRange === undefined || ifRange === entry.etag ? parseRange(req.headers.range, size) : null;
  const headers = {
    'Content-Type': 'video/mp4',
    'Accept-Ranges': 'bytes',
    ETag: entry.etag,
    'Cache-Control': 'private, max-age=0',
    'Content-Disposition': `attachment; filename="${downloadName(recording.name, from, to)}"`,
  };
  if (range === 'unsatisfiable') {
    await handle.close();
    res.writeHead(416, { ...headers, 'Content-Range': `bytes */${size}`, 'Content-Length': 0 });
    res.end();
    return;
  }
  const { start, end } = range || { start: 0, end: size - 1 };
  res.writeHead(range ? 206 : 200, {
    ...headers,
    'Content-Length': end - start + 1,
    ...(range ? { 'Content-Range': `bytes ${start}-${end}/${size}` } : {}),
  });
  if (req.method === 'HEAD') {
    await handle.close();
    res.end();
    return;
  }
  await new Promise((resolve) => {
    pipeline(handle.createReadStream({ start, end }), res, () => resolve());
  });
}

module.exports = { serveMp4 };
