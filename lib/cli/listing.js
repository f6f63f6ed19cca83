'use strict';
// The listing commands: what a recording holds, frame by frame, by partition, by span.
const { utc, pad, rescale } = require('./format');
const { checkRecordingPath, fileFailure } = require('./failure');
const { runTask } = require('./task');

function trackKind(trackId) {
  if ([7, 1001, 1003, 1004].includes(trackId)) return 'V';
  if ([1000, 1002].includes(trackId)) return 'A';
  return trackId === 19056 ? 'I' : 'U';
}

function wallClockOf(frame, rate) {
  const { streamClock: sc, wallClock: wc } = frame.clockSync;
  const dts = frame.timestamp.dts;
  if (sc.clockRate === 0 || wc.clockRate === 0 || sc.value < 0 || wc.value < 0 || dts.value < 0 ||
      dts.clockRate === 0 || rate === 0) return -1n;
  return rescale(dts.value, dts.clockRate, rate) + rescale(wc.value, wc.clockRate, rate) -
    rescale(sc.value, sc.clockRate, rate);
}

const FRAME_HEADER = 'Type   TID  KF           OFFSET     SIZE          DTS   CTS              WC     CR';
const FRAME_HEADER_HUMAN =
  'Type   TID  KF           OFFSET     SIZE          DTS   CTS                             WC(UTC)     CR';

// One row as frame_t::ToString prints it, in the frame's own clock rate.
function frameRow(frame, human) {
  const rate = frame.timestamp.dts.value >= 0 ? frame.timestamp.clockRate : 0;
  const dts = rescale(frame.timestamp.dts.value, frame.timestamp.clockRate, rate);
  const head = `   ${trackKind(frame.trackId)} ${pad(frame.trackId, 5)}   ${frame.isKeyFrame ? 1 : 0} ` +
    `${pad(frame.offset, 16)} ${pad(frame.length, 8)} ${pad(dts, 12)}`;
  if (human) {
    const cts = rescale(frame.timestamp.cts.value, frame.timestamp.clockRate, rate);
    return `${head} ${pad(cts, 5)} ${utc(wallClockOf(frame, 1000))} ${pad(rate, 6)}`;
  }
  const cts = rescale(frame.timestamp.cts.value, frame.timestamp.clockRate, 1000);
  return `${head} ${pad(cts, 5)} ${pad(wallClockOf(frame, rate), 15)} ${pad(rate, 6)}`;
}

function infoText(file, info) {
  const lines = [`file: ${file}`];
  for (const medium of ['video', 'audio']) {
    const t = info[medium];
    lines.push(`${medium}: ${t.framesCount} frames, ${t.keyFramesCount} key frames`);
    if (t.framesCount > 0) {
      lines.push(`  stream clock: ${t.startMillis.streamClock} ms .. ${t.endMillis.streamClock} ms`);
      lines.push(`  wall clock:   ${utc(t.startMillis.wallClock)} .. ${utc(t.endMillis.wallClock)} UTC` +
        ` (${t.startMillis.wallClock} .. ${t.endMillis.wallClock})`);
    }
  }
  return lines;
}

function partitionsText(partitions) {
  const lines = [`${partitions.length} partitions`];
  partitions.forEach((p, i) => {
    lines.push(`partition ${i}: offset ${p.fullBounds.offset}, ${p.fullBounds.length} bytes`);
    lines.push(`  fixed metadata: ${p.fixedMetadata}`);
    lines.push(`  dynamic metadata: ${p.dynamicMetadataBounds.offset}/${p.dynamicMetadataBounds.length}`);
    lines.push(`  contents: ${p.contentsBounds.offset}/${p.contentsBounds.length}`);
    lines.push(`  seek points: ${p.seekPoints.length}`);
    p.seekPoints.forEach((s, n) => {
      lines.push(`    ${pad(n, 4)}. OFF: ${s.offset}; WC: ${s.wallClockMillis} (${utc(s.wallClockMillis)})`);
    });
    if (p.lastVideoWallClockMillis > 0) {
      lines.push(`  last video wall clock: ${p.lastVideoWallClockMillis} (${utc(p.lastVideoWallClockMillis)})`);
    }
  });
  return lines;
}

function fragmentsText(fragments) {
  const lines = [`${fragments.length} fragments`, '                  START(UTC)                    END(UTC)   DURATION(ms)'];
  for (const f of fragments) {
    lines.push(`${pad(utc(f.wallClockStart), 28)} ${pad(utc(f.wallClockEnd), 27)} ${pad(f.wallClockEnd - f.wallClockStart, 14)}`);
  }
  return lines;
}

// One listing: the native call on the file, then its JSON or its text.
function listing(call, json, text) {
  return async (vidora, args, io) => {
    checkRecordingPath(args.file);
    const [fn, arg] = call(vidora, args);
    let result;
    try {
      result = await runTask(fn, arg);
    } catch (error) {
      throw fileFailure(args.file, error);
    }
    io.out(args.json ? JSON.stringify(json(result), null, 2) : text(result, args).join('\n'));
  };
}

module.exports = {
  info: {
    usage: 'info FILE',
    summary: ['frames, key frames and first/last clocks per medium'],
    positional: ['FILE'],
    options: {},
    run: listing((v, a) => [v.vrxFileInfo, a.file], (r) => ({ audio: r.audio, video: r.video }),
      (r, a) => infoText(a.file, r)),
  },
  frames: {
    usage: 'frames FILE [--human]',
    summary: ['every frame: type, track, key flag, payload offset and', 'size, DTS, CTS (ms), wall clock, clock rate'],
    positional: ['FILE'],
    options: { human: 'flag' },
    run: listing((v, a) => [v.vrxFileListFrames, a.file], (r) => r.frames,
      (r, a) => [a.human ? FRAME_HEADER_HUMAN : FRAME_HEADER, ...r.frames.map((f) => frameRow(f, a.human))]),
  },
  partitions: {
    usage: 'partitions FILE',
    summary: ['bounds, metadata and seek table of every partition'],
    positional: ['FILE'],
    options: {},
    run: listing((v, a) => [v.vrxFileListPartitions, a.file], (r) => r.partitions, (r) => partitionsText(r.partitions)),
  },
  fragments: {
    usage: 'fragments FILE [--from MS] [--to MS]',
    summary: ['spans of continuous recording (wall clocks in ms since', 'the epoch; 0 or absent: open end)'],
    positional: ['FILE'],
    options: { from: 'ms', to: 'ms' },
    range: true,
    run: listing((v, a) => [v.vrxFileListFragments, { fileName: a.file, wallClockStart: a.from || 0, wallClockEnd: a.to || 0 }],
      (r) => r.fragments, (r) => fragmentsText(r.fragments)),
  },
};
