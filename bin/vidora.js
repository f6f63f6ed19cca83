#!/usr/bin/env node
'use strict';
// vidora: lists what a .vrx recording holds, through the package's public functions only.
const path = require('path');

const USAGE = `usage: vidora <command> FILE [options]

commands:
  info FILE                          frames, key frames and first/last clocks per medium
  frames FILE [--human]              every frame: type, track, key flag, payload offset and
                                     size, DTS, CTS (ms), wall clock, clock rate
  partitions FILE                    bounds, metadata and seek table of every partition
  fragments FILE [--from MS] [--to MS]
                                     spans of continuous recording (wall clocks in ms since
                                     the epoch; 0 or absent: open end)

options:
  --json     the listing as JSON
  --human    (frames) the wall clock as UTC text
  --help     this text

exit status: 0 done, 2 bad command line, 3 no such file, 4 not a VRX file or damaged,
5 locked by another process, 1 anything else`;

const EXIT = { usage: 2, missing: 3, notVrx: 4, locked: 5, other: 1 };
const FILE_NOT_FOUND = 0x80000002 | 0;
const TIMED_OUT = 0x80000004 | 0;
const VRX_MODULE = 12;

class UsageError extends Error {}

function parseArguments(argv) {
  const options = { json: false, human: false, from: 0, to: 0, positional: [] };
  for (let i = 0; i < argv.length; ++i) {
    const arg = argv[i];
    if (arg === '--help' || arg === '-h') options.help = true;
    else if (arg === '--json') options.json = true;
    else if (arg === '--human') options.human = true;
    else if (arg === '--from' || arg === '--to') {
      const value = argv[++i];
      if (value === undefined || !/^\d+$/.test(value)) throw new UsageError(`${arg} needs a number of ms`);
      options[arg.slice(2)] = Number(value);
    } else if (arg.startsWith('-')) throw new UsageError(`unknown option ${arg}`);
    else options.positional.push(arg);
  }
  return options;
}

// rescale of the media model: half up, in integers.
function rescale(value, from, to) {
  if (value < 0 || from === 0) return -1n;
  if (from === to) return BigInt(value);
  return (BigInt(from >> 1) + BigInt(value) * BigInt(to)) / BigInt(from);
}

function wallClockOf(frame, rate) {
  const { streamClock: sc, wallClock: wc } = frame.clockSync;
  const dts = frame.timestamp.dts;
  if (sc.clockRate === 0 || wc.clockRate === 0 || sc.value < 0 || wc.value < 0 || dts.value < 0 ||
      dts.clockRate === 0 || rate === 0) return -1n;
  return rescale(dts.value, dts.clockRate, rate) + rescale(wc.value, wc.clockRate, rate) -
    rescale(sc.value, sc.clockRate, rate);
}

function utc(millis) {
  const ms = Number(millis);
  if (ms < 0) return String(ms);
  return new Date(ms).toISOString().replace('T', ' ').replace('Z', '');
}

const pad = (value, width) => String(value).padStart(width);

function trackKind(trackId) {
  if ([7, 1001, 1003, 1004].includes(trackId)) return 'V';
  if ([1000, 1002].includes(trackId)) return 'A';
  return trackId === 19056 ? 'I' : 'U';
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

function printInfo(file, info) {
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

function printPartitions(partitions) {
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

function printFragments(fragments) {
  const lines = [`${fragments.length} fragments`, '                  START(UTC)                    END(UTC)   DURATION(ms)'];
  for (const f of fragments) {
    lines.push(`${pad(utc(f.wallClockStart), 28)} ${pad(utc(f.wallClockEnd), 27)} ${pad(f.wallClockEnd - f.wallClockStart, 14)}`);
  }
  return lines;
}

const COMMANDS = {
  info: {
    call: (vidora, file) => [vidora.vrxFileInfo, file],
    json: (r) => ({ audio: r.audio, video: r.video }),
    text: (r, o, file) => printInfo(file, r),
  },
  frames: {
    call: (vidora, file) => [vidora.vrxFileListFrames, file],
    json: (r) => r.frames,
    text: (r, o) => [o.human ? FRAME_HEADER_HUMAN : FRAME_HEADER, ...r.frames.map((f) => frameRow(f, o.human))],
  },
  partitions: {
    call: (vidora, file) => [vidora.vrxFileListPartitions, file],
    json: (r) => r.partitions,
    text: (r) => printPartitions(r.partitions),
  },
  fragments: {
    call: (vidora, file, o) => [vidora.vrxFileListFragments, { fileName: file, wallClockStart: o.from, wallClockEnd: o.to }],
    json: (r) => r.fragments,
    text: (r) => printFragments(r.fragments),
  },
};

function failure(file, error) {
  const code = error.errors && error.errors[0] ? error.errors[0].full : 0;
  if (code === FILE_NOT_FOUND) return [EXIT.missing, `${file}: no such file`];
  if (code === TIMED_OUT) return [EXIT.locked, `${file}: locked by another process (gave up after 1.5 s)`];
  if (error.errors && error.errors[0] && error.errors[0].module === VRX_MODULE) {
    return [EXIT.notVrx, `${file}: not a VRX file, or damaged (${error.message})`];
  }
  return [EXIT.other, `${file}: ${error.message}`];
}

function run(argv) {
  let options;
  try {
    options = parseArguments(argv);
  } catch (err) {
    if (!(err instanceof UsageError)) throw err;
    return Promise.resolve([EXIT.usage, `${err.message}\n${USAGE}`]);
  }
  if (options.help) return Promise.resolve([0, null, USAGE]);
  const [command, file, ...extra] = options.positional;
  if (!COMMANDS[command] || file === undefined || extra.length > 0) {
    return Promise.resolve([EXIT.usage, `${command && !COMMANDS[command] ? `unknown command ${command}\n` : ''}${USAGE}`]);
  }
  let vidora;
  try {
    vidora = require(path.join(__dirname, '..'));
  } catch (err) {
    return Promise.resolve([EXIT.other, err.message]);
  }
  const entry = COMMANDS[command];
  const [fn, arg] = entry.call(vidora, file, options);
  if (typeof fn !== 'function') {
    return Promise.resolve([EXIT.other, `this build of the addon cannot list VRX files; rebuild it with "npm install"`]);
  }
  return new Promise((resolve) => {
    fn(arg, (error, result) => {
      if (error) {
        resolve(failure(file, error));
        return;
      }
      const out = options.json ? JSON.stringify(entry.json(result), null, 2) : entry.text(result, options, file).join('\n');
      resolve([0, null, out]);
    });
  });
}

run(process.argv.slice(2)).then(([status, message, output]) => {
  if (output !== undefined) process.stdout.write(`${output}\n`);
  if (message) process.stderr.write(`vidora: ${message}\n`);
  process.exitCode = status;
});
