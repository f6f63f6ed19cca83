'use strict';
// The commands that change recordings: make a managed file, append finished files to it, cut a
// range out of it, copy a range into it, recover it after a crash; and the size of a range.
const { utc } = require('./format');
const { UsageError, parseSize } = require('./args');
const { EXIT, CliError, checkRecordingPath, fileFailure } = require('./failure');
const { runTask, ownFields } = require('./task');

const INVALID_FILE_SIZE = 2;  // the code of a size no managed file may have, in the VRX module
const FILE_NOT_FOUND = 0x80000002 | 0;
const NO_PARTITION = 0x800c001d | 0;  // recover on a file without partitions

// --from and --to, both required, as a closed range.
function requiredRange(args) {
  if (args.from === undefined || args.to === undefined) throw new UsageError('--from and --to are required');
  if (args.from > args.to) throw new UsageError('--from must not be after --to');
}

// Runs one task on files that must exist; a failure names them all, but a full file only the
// first, the destination.
async function onFiles(files, fn, ...args) {
  files.forEach(checkRecordingPath);
  try {
    return await runTask(fn, ...args);
  } catch (error) {
    const failure = fileFailure(files, error);
    throw Object.assign(failure.status === EXIT.full ? fileFailure(files[0], error) : failure,
      { code: error.errors && error.errors[0].full });
  }
}

function print(io, json, result, lines) {
  io.out(json ? JSON.stringify(ownFields(result), null, 2) : lines.join('\n'));
}

const span = (from, to) => `${utc(from)} .. ${utc(to)} UTC (${from} .. ${to})`;

async function create(vidora, args, io) {
  let result;
  try {
    result = await runTask(vidora.vrxFileCreate, args.file, args.size);
  } catch (error) {
    const first = error.errors && error.errors[0];
    if (first && first.module === 12 && first.code === INVALID_FILE_SIZE) {
      throw new UsageError(`SIZE must be at least 1M and a multiple of 4K (${args.size} is not)`);
    }
    if (first && first.full === FILE_NOT_FOUND) throw new CliError(EXIT.missing, `${args.file}: no such directory`);
    throw fileFailure(args.file, error);
  }
  print(io, args.json, result, [`${args.file}: created, ${args.size} bytes of free space`]);
}

async function append(vidora, args, io) {
  if (args.metadata !== undefined && !/^[0-9a-f]{24}$/i.test(args.metadata)) {
    throw new UsageError('--metadata needs 24 hex digits (12 bytes)');
  }
  const metadata = args.metadata === undefined ? {} : { fixedMetadata: args.metadata };
  // The pool of appends exists only once the application names it.
  vidora.setWorkersPoolsLimits({ Append: 1 });
  const result = await onFiles([args.dst, args.src], vidora.vrxFileAppend,
    { srcFileName: args.src, dstFileName: args.dst, createNewPartition: Boolean(args['new-partition']), ...metadata });
  print(io, args.json, result, [`${args.dst}: appended ${args.src}, ${result.totalAppended} bytes, ` +
    (args['new-partition'] ? 'as a new partition' : 'onto the last partition (a new one in a file without)')]);
}

async function cut(vidora, args, io) {
  requiredRange(args);
  const result = await onFiles([args.file], vidora.vrxFileDeleteContent,
    { fileNames: [args.file], wallClockStart: args.from, wallClockEnd: args.to, fillWithZeros: Boolean(args.zero) });
  print(io, args.json, result, [`${args.file}: cut ${span(args.from, args.to)}`]);
}

async function copy(vidora, args, io) {
  requiredRange(args);
  const result = await onFiles([args.dst, ...args.src], vidora.vrxFileCopyContent,
    { srcFileNames: args.src, dstFileName: args.dst, wallClockStart: args.from, wallClockEnd: args.to });
  print(io, args.json, result, [result.totalAppended > 0
    ? `${args.dst}: copied ${span(args.from, args.to)}, ${result.totalAppended} bytes in a new partition`
    : `${args.dst}: nothing of the sources lies in ${span(args.from, args.to)}`]);
}

async function recover(vidora, args, io) {
  if (args.check && args.salvage) throw new UsageError('--check changes nothing: it takes no --salvage');
  const options = { fileName: args.file, check: Boolean(args.check), salvage: Boolean(args.salvage) };
  let result;
  try {
    result = await onFiles([args.file], vidora.vrxFileRecover, options);
  } catch (failure) {
    if (!args.check && failure.code === NO_PARTITION) {
      throw new CliError(EXIT.notVrx, `${args.file}: holds no partition, so nothing to recover`);
    }
    if (args.check && failure.status === EXIT.notVrx) {
      throw new CliError(EXIT.notVrx, failure.message.replace('not a VRX file, or damaged', 'needs recover (or is no VRX file)'));
    }
    throw failure;
  }
  if (args.check) {
    print(io, args.json, result, [`${args.file}: sound, every partition reads`]);
    return;
  }
  const last = result.lastPartitionInfo;
  print(io, args.json, result, [`${args.file}: recovered`,
    `last partition: offset ${last.bounds.offset}, ${last.bounds.length} bytes, fixed metadata ${last.fixedMetadata}`,
    `  ${span(last.startMillis, last.endMillis)}`]);
}

async function estimate(vidora, args, io) {
  if (args.from === undefined) throw new UsageError('--from is required');
  if (args.to > 0 && args.from > args.to) throw new UsageError('--from must not be after --to');
  const params = { srcFileNames: args.file, wallClockStart: args.from, wallClockEnd: args.to || 0,
    getAvgKFrameSize: Boolean(args['key-frames']) };
  const result = await onFiles(args.file, vidora.vrxFileEstimateSize, params);
  const what = args['key-frames'] ? 'average key frame' : (args.to > 0 ? span(args.from, args.to) : `from ${utc(args.from)} UTC to the end`);
  print(io, args.json, result, [`${what}: ${result.estimatedSize} bytes`]);
}

module.exports = {
  create: {
    usage: 'create FILE SIZE',
    summary: ['a managed VRX file of SIZE bytes (at least 1M, a multiple', 'of 4K; K, M, G, T allowed), all free space'],
    positional: ['FILE', 'SIZE'],
    options: {},
    run: (vidora, args, io) => {
      const size = parseSize(args.size);
      if (size === undefined) throw new UsageError('SIZE needs a size in bytes (K, M, G, T allowed)');
      return create(vidora, { ...args, size }, io);
    },
  },
  append: {
    usage: 'append DST SRC [--new-partition] [--metadata HEX]',
    summary: ['appends the finished file SRC to the managed file DST:', 'onto its last partition, or as a new one with 12 bytes',
      'of fixed metadata (24 hex digits)'],
    positional: ['DST', 'SRC'],
    options: { 'new-partition': 'flag', metadata: 'text' },
    run: append,
  },
  cut: {
    usage: 'cut FILE --from MS --to MS [--zero]',
    summary: ['deletes that wall-clock range in place (heads cut on key', 'frames, tails on frames); --zero zeroes the freed bytes'],
    positional: ['FILE'],
    options: { from: 'ms', to: 'ms', zero: 'flag' },
    run: cut,
  },
  copy: {
    usage: 'copy DST SRC... --from MS --to MS',
    summary: ['copies that range of the sources (from the key frame', 'before it) into a new partition of DST'],
    positional: ['DST', 'SRC...'],
    options: { from: 'ms', to: 'ms' },
    run: copy,
  },
  recover: {
    usage: 'recover FILE [--check] [--salvage]',
    summary: ['repairs a managed file after a crash; --check only tells', 'whether it needs it; --salvage also keeps the whole',
      'frames of a torn last partition (beyond the usual repair)'],
    positional: ['FILE'],
    options: { check: 'flag', salvage: 'flag' },
    run: recover,
  },
  estimate: {
    usage: 'estimate FILE... --from MS [--to MS] [--key-frames]',
    summary: ['bytes of that range of the files read as one (from the key', 'frame before --from to the one after --to, or to the end);',
      '--key-frames: the average key frame size'],
    positional: ['FILE...'],
    options: { from: 'ms', to: 'ms', 'key-frames': 'flag' },
    run: estimate,
  },
};
