'use strict';
// vidora export: a wall-clock range of recordings written out as MP4, fragmented MP4, VRX or
// raw H.264, through processMedia. On a terminal a progress line shows the bytes written
// against an estimate taken from the partitions' seek tables (no frame data is read for it).
const fs = require('fs');

const { UsageError } = require('./args');
const { checkRecordingPath, fileFailure } = require('./failure');

// processMedia's end for "no end": a range closed beyond any recording, so that the export
// ends with the data instead of waiting for more.
const NO_END = 8.64e15;

function call(fn, arg) {
  return new Promise((resolve, reject) => fn(arg, (error, result) => (error ? reject(error) : resolve(result))));
}

// The bytes of the sources between the seek points around [from, to]: what the export reads.
async function estimateBytes(vidora, files, from, to) {
  let total = 0;
  for (const file of files) {
    const { partitions } = await call(vidora.vrxFileListPartitions, file);
    for (const p of partitions) {
      const points = p.seekPoints;
      const contentsEnd = p.contentsBounds.offset + p.contentsBounds.length;
      if (points.length === 0 || points[0].wallClockMillis > to || p.lastVideoWallClockMillis < from) continue;
      const before = points.filter((s) => s.wallClockMillis <= from).pop() || points[0];
      const after = points.find((s) => s.wallClockMillis > to);
      total += (after ? after.offset : contentsEnd) - before.offset;
    }
  }
  return total;
}

function progressLine(written, estimate, started) {
  const seconds = ((Date.now() - started) / 1000).toFixed(1);
  const size = `${(written / 1048576).toFixed(1)} MiB`;
  if (!estimate) return `exporting: ${size}, ${seconds} s`;
  const share = Math.min(0.99, written / estimate);
  const width = 30;
  const done = Math.round(share * width);
  return `exporting [${'#'.repeat(done)}${'.'.repeat(width - done)}] ${Math.floor(share * 100)}% ${size}, ${seconds} s`;
}

async function run(vidora, args, io) {
  if (!args.o) throw new UsageError('export needs -o OUT');
  if (args.reverse && args.speedup) throw new UsageError('--reverse and --speedup do not go together');
  for (const file of args.file) checkRecordingPath(file);
  const from = args.from || 0;
  const to = args.to || NO_END;
  const tty = Boolean(io.stderr && io.stderr.isTTY);
  const estimate = tty && args.file.every((f) => f.toLowerCase().endsWith('.vrx'))
    ? await estimateBytes(vidora, args.file, from, to).catch(() => 0) : 0;
  const started = Date.now();
  const show = () => {
    const written = fs.existsSync(args.o) ? fs.statSync(args.o).size : 0;
    io.stderr.write(`\r${progressLine(written, estimate, started)}`);
  };
  if (tty) show();
  const timer = tty ? setInterval(show, 200) : null;
  let result;
  try {
    result = await call(vidora.processMedia, {
      srcFileNames: args.file,
      dstFileName: args.o,
      outputFormat: args.format || 'mp4',
      wallClockStart: from > 0 ? from : -1,
      wallClockEnd: to,
      serveInReverse: args.reverse || '',
      speedupFactor: args.speedup || 0,
    });
  } catch (error) {
    throw fileFailure(args.file[0], error);
  } finally {
    if (timer) {
      clearInterval(timer);
      io.stderr.write('\r\x1b[K');
    }
  }
  const bytes = fs.statSync(args.o).size;
  const summary = {
    output: args.o,
    format: args.format || 'mp4',
    frames: result.outputFramesCount,
    bytes,
    timestamps: result.timestampsInfo,
    milliseconds: Date.now() - started,
  };
  if (args.json) {
    io.out(JSON.stringify(summary, null, 2));
  } else {
    io.out(`${args.o}: ${summary.frames} frames, ${bytes} bytes of ${summary.format} in ${summary.milliseconds} ms`);
  }
}

module.exports = {
  export: {
    usage: 'export FILE... -o OUT [--from MS] [--to MS] [--format mp4|fmp4|vrx|annexb] [--reverse gop|idr] [--speedup N]',
    summary: ['a wall-clock range written out (default mp4; the range', 'snaps back to the key frame before --from)'],
    positional: ['FILE...'],
    options: { o: 'text', from: 'ms', to: 'ms', format: ['mp4', 'fmp4', 'vrx', 'annexb'], reverse: ['gop', 'idr'], speedup: 'count' },
    range: true,
    run,
  },
};
