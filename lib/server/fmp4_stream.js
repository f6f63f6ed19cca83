'use strict';
// GET /api/recordings/NAME/fmp4?from=&to=: a wall-clock range as fragmented MP4 for Media
// Source Extensions, streamed as processMedia makes it. The head of the answer waits for the
// initialisation segment, so that a range with nothing in it is still a 404, and so that the
// head can name the codecs (Content-Type and X-Codecs) that the page gives addSourceBuffer.
// The rest goes through stream.pipeline: a client that reads slowly pauses the operation, one
// that goes away cancels it. Without `to` the answer follows a recording that grows, and ends
// 30 s after its last frame. Timestamps are the wall clock: a moment t (ms) plays at t / 1000 s.
const { pipeline } = require('stream');

const { HttpError } = require('./http_error');
const { initSegmentLength, codecsOf } = require('./mp4_boxes');

const empty = () => new HttpError(404, 'EMPTY_RANGE', 'nothing was recorded in that range');

// Reads `stream` until its initialisation segment is complete; resolves with all the bytes
// read so far, and leaves the stream paused.
function readInitSegment(stream) {
  return new Promise((resolve, reject) => {
    let head = Buffer.alloc(0);
    const listeners = {
      data: (chunk) => {
        head = Buffer.concat([head, chunk]);
        let length;
        try {
          length = initSegmentLength(head);
        } catch (error) {
          finish(error);
          return;
        }
        if (length > 0) {
          stream.pause();
          finish(null, head);
        }
      },
      end: () => finish(empty()),
      error: (error) => finish(error),
      close: () => finish(new HttpError(499, 'CLIENT_GONE', 'the client went away')),
    };
    function finish(error, value) {
      for (const [event, listener] of Object.entries(listeners)) stream.off(event, listener);
      if (error) reject(error);
      else resolve(value);
    }
    for (const [event, listener] of Object.entries(listeners)) stream.on(event, listener);
  });
}

async function serveFmp4(context, req, res, recording, { from, to }) {
  const stream = context.api.processMediaStream({
    srcFileNames: [recording.file],
    outputFormat: 'fmp4',
    wallClockStart: from === undefined ? -1 : from,
    wallClockEnd: to === undefined ? -1 : to,
  }, { highWaterMark: context.streamHighWaterMark });
  // A client that goes away cancels the operation at once, even while it waits for a
  // recording to grow, when no read of the pipeline below is pending.
  res.once('close', () => stream.destroy());
  let head;
  try {
    head = await readInitSegment(stream);
  } catch (error) {
    stream.destroy();
    throw error;
  }
  const codecs = codecsOf(head.subarray(0, initSegmentLength(head)));
  res.writeHead(200, {
    'Content-Type': `video/mp4; codecs="${codecs}"`,
    'X-Codecs': codecs,
    'Cache-Control': 'no-store',
    'X-Accel-Buffering': 'no',
  });
  res.write(head);
  await new Promise((resolve) => {
    pipeline(stream, res, () => resolve());
  });
}

module.exports = { serveFmp4 };
