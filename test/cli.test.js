'use strict';
// The vidora command line on the sample: output, JSON and exit status, and its error paths.
// Frame rows are compared with frame_t::ToString as the C++ reader prints them (tools/vrx_walk).
const test = require('node:test');
const assert = require('assert');
const { spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');

const { vidora, SAMPLE, tempDir, runTool, readOnlySample, runAsNobody, cliIn } = require('./helpers');
const { ok: listing, sampleWithSeekPoint } = require('./managed_files');
const { findTool, childEnv } = require('../tools/vrx_tools');

const dir = tempDir('vidora-cli-');

const { CLI, cli } = cliIn(dir);

test('--help lists the commands and options', () => {
  const { status, stdout, stderr } = cli('--help');
  assert.strictEqual(status, 0);
  assert.strictEqual(stderr, '');
  for (const word of ['info FILE', 'frames FILE [--human]', 'partitions FILE', 'fragments FILE [--from MS] [--to MS]',
    '--json', '--human', '--help']) {
    assert.ok(stdout.includes(word), word);
  }
});

test('info prints the per-medium totals of the sample', () => {
  const { status, stdout, stderr } = cli('info', SAMPLE);
  assert.strictEqual(status, 0, stderr);
  assert.strictEqual(stdout, [
    `file: ${SAMPLE}`,
    'video: 150 frames, 6 key frames',
    '  stream clock: 0 ms .. 5960 ms',
    '  wall clock:   2026-01-01 00:00:00.000 .. 2026-01-01 00:00:35.960 UTC (1767225600000 .. 1767225635960)',
    'audio: 280 frames, 280 key frames',
    '  stream clock: 0 ms .. 5952 ms',
    '  wall clock:   2026-01-01 00:00:00.021 .. 2026-01-01 00:00:35.952 UTC (1767225600021 .. 1767225635952)',
    '',
  ].join('\n'));
});

test('frames prints the rows of frame_t::ToString, plain and human', () => {
  for (const [flag, walkFlag] of [[[], '--rows'], [['--human'], '--human']]) {
    const expected = spawnSync(findTool('vrx_walk'), [SAMPLE, walkFlag], { encoding: 'utf8', env: childEnv() });
    assert.strictEqual(expected.status, 0, expected.stderr);
    const { status, stdout, stderr } = cli('frames', SAMPLE, ...flag);
    assert.strictEqual(status, 0, stderr);
    assert.strictEqual(stdout, expected.stdout, walkFlag);
    assert.strictEqual(stdout.split('\n').length, 1 + 430 + 1);
  }
  const { stdout } = cli('frames', SAMPLE, '--human');
  assert.ok(stdout.startsWith('Type   TID  KF           OFFSET     SIZE          DTS   CTS                             WC(UTC)     CR\n'));
  assert.ok(stdout.includes('   V     7   1              264     3674            0     0 2026-01-01 00:00:00.000  90000\n'));
});

test('--json gives what the functions give', async () => {
  const cases = [
    [['info', SAMPLE], () => listing(vidora.vrxFileInfo, SAMPLE).then((r) => ({ audio: r.audio, video: r.video }))],
    [['frames', SAMPLE], () => listing(vidora.vrxFileListFrames, SAMPLE).then((r) => r.frames)],
    [['partitions', SAMPLE], () => listing(vidora.vrxFileListPartitions, SAMPLE).then((r) => r.partitions)],
    [['fragments', SAMPLE, '--from', '1767225602000', '--to', '1767225630000'],
      () => listing(vidora.vrxFileListFragments, { fileName: SAMPLE, wallClockStart: 1767225602000, wallClockEnd: 1767225630000 })
        .then((r) => r.fragments)],
  ];
  for (const [args, expected] of cases) {
    const { status, stdout, stderr } = cli(...args, '--json');
    assert.strictEqual(status, 0, stderr);
    assert.deepStrictEqual(JSON.parse(stdout), await expected(), args.join(' '));
  }
});

test('partitions and fragments print the sample\'s layout', () => {
  const partitions = cli('partitions', SAMPLE);
  assert.strictEqual(partitions.status, 0);
  const lines = partitions.stdout.split('\n');
  assert.strictEqual(lines[0], '3 partitions');
  assert.deepStrictEqual(lines.filter((l) => l.includes('OFF:')).map((l) => l.replace(/OFF: \d+; /, '')),
    ['       0. WC: 1767225600000 (2026-01-01 00:00:00.000)', '       1. WC: 1767225601000 (2026-01-01 00:00:01.000)',
      '       0. WC: 1767225602000 (2026-01-01 00:00:02.000)', '       1. WC: 1767225603000 (2026-01-01 00:00:03.000)',
      '       0. WC: 1767225634000 (2026-01-01 00:00:34.000)', '       1. WC: 1767225635000 (2026-01-01 00:00:35.000)']);
  assert.deepStrictEqual(lines.filter((l) => l.includes('fixed metadata')),
    ['  fixed metadata: 010100000000000000000000', '  fixed metadata: 020100000000000000000000',
      '  fixed metadata: 030100000000000000000000']);

  const fragments = cli('fragments', SAMPLE, '--from', '1767225602000');
  assert.strictEqual(fragments.status, 0);
  assert.strictEqual(fragments.stdout, [
    '2 fragments',
    '                  START(UTC)                    END(UTC)   DURATION(ms)',
    '     2026-01-01 00:00:02.000     2026-01-01 00:00:03.000           1000',
    '     2026-01-01 00:00:34.000     2026-01-01 00:00:35.000           1000',
    '',
  ].join('\n'));
});

test('wrong usage, damaged, odd and unwritable files give their own message and status, never a stack trace', async () => {
  const backwards = await sampleWithSeekPoint(dir, 'backwards.vrx', 1767225600000n - 1n);
  const far = await sampleWithSeekPoint(dir, 'far.vrx', 2n ** 62n);
  const dashed = path.join(dir, '-x.vrx');
  fs.copyFileSync(SAMPLE, dashed);
  const fifo = path.join(dir, 'fifo.vrx');
  spawnSync('mkfifo', [fifo]);
  // (Missing, not VRX or locked files: the maintenance commands' failures, through the same checks.)
  const cases = [
    [[], 2, /usage: vidora <command> FILE/],
    [['info'], 2, /usage:/],
    [['list', SAMPLE], 2, /unknown command list/],
    [['info', SAMPLE, 'extra'], 2, /usage:/],
    [['fragments', SAMPLE, '--from'], 2, /--from needs a number of ms/],
    [['fragments', SAMPLE, '--to', 'soon'], 2, /--to needs a number of ms/],
    [['info', SAMPLE, '--verbose'], 2, /unknown option --verbose/],
    [['fragments', backwards], 4, /backwards\.vrx: not a VRX file, or damaged \(Incorrect VRX file content\)/],
    [['info', dir], 4, /is a directory, not a VRX file/],
    [['frames', fifo], 4, /fifo\.vrx: not a regular file/],
    [['fragments', SAMPLE, '--from', '1767225630000', '--to', '1767225602000'], 2, /--from must not be after --to/],
    [['info', '-x.vrx'], 2, /unknown option -x\.vrx/],
  ];
  for (const [args, status, message] of cases) {
    const run = cli(...args);
    assert.strictEqual(run.status, status, args.join(' '));
    assert.match(run.stderr, message, args.join(' '));
    assert.doesNotMatch(run.stderr, /\n\s+at /, args.join(' '));
    assert.strictEqual(run.stdout, '', args.join(' '));
  }
  // Any value a file holds is printed, even one no date can show.
  const partitions = cli('partitions', far);
  assert.strictEqual(partitions.status, 0, partitions.stderr);
  assert.match(partitions.stdout, /WC: 4611686018427388000 \(4611686018427388000\)/);
  const fragments = cli('fragments', far);
  assert.strictEqual(fragments.status, 0, fragments.stderr);
  // "--" ends the options: a file may start with a dash.
  assert.strictEqual(cli('info', '--', '-x.vrx').stdout, cli('info', SAMPLE).stdout.replace(SAMPLE, '-x.vrx'));

  const readonly = readOnlySample();
  const run = runAsNobody(process.execPath, CLI, 'info', readonly);
  if (run !== null) {
    assert.strictEqual(run.status, 5, run.stderr);
    assert.match(run.stderr, /readonly\.vrx: cannot be locked: vidora locks a recording through a descriptor opened for writing/);
  }
});

test('export writes a range that ffprobe plays, with a progress line only on a terminal', () => {
  const out = path.join(dir, 'range.mp4');
  const run = cli('export', SAMPLE, '-o', out, '--from', '1767225601500', '--to', '1767225634500');
  assert.strictEqual(run.status, 0, run.stderr);
  assert.strictEqual(run.stderr, '', 'no progress line when standard error is not a terminal');
  assert.match(run.stdout, /range\.mp4: 248 frames, \d+ bytes of mp4 in \d+ ms/);
  const probe = runTool('ffprobe', ['-v', 'error', '-count_frames', '-show_entries',
    'stream=codec_name,nb_read_frames', '-of', 'csv=p=0', out]);
  assert.strictEqual(probe.stdout.trim().split('\n').sort().join(' '), 'aac,160 h264,88');

  const json = cli('export', SAMPLE, '-o', path.join(dir, 'back.h264'), '--format', 'annexb', '--reverse', 'gop', '--json');
  assert.strictEqual(json.status, 0, json.stderr);
  assert.deepStrictEqual(Object.keys(JSON.parse(json.stdout)), ['output', 'format', 'frames', 'bytes', 'timestamps', 'milliseconds']);
  assert.strictEqual(JSON.parse(json.stdout).frames, 150);

  // Under a pseudo-terminal (script(1)) the progress line is drawn and cleared.
  const tty = spawnSync('script', ['-qec', `${process.execPath} ${CLI} export ${SAMPLE} -o ${path.join(dir, 'tty.mp4')}`, '/dev/null'],
    { encoding: 'utf8', env: process.env });
  assert.strictEqual(tty.status, 0, tty.stdout);
  assert.match(tty.stdout, /\rexporting \[[#.]{30}\] \d+% [\d.]+ MiB, [\d.]+ s/);

  for (const [args, message] of [
    [['export', SAMPLE], /export needs -o OUT/],
    [['export', SAMPLE, '-o', out, '--format', 'avi'], /--format needs one of mp4, fmp4, vrx, annexb/],
    [['export', SAMPLE, '-o', out, '--reverse', 'gop', '--speedup', '2'], /do not go together/],
    [['export', SAMPLE, '-o', out, '--from', '5', '--to', '4'], /--from must not be after --to/],
  ]) {
    const refused = cli(...args);
    assert.strictEqual(refused.status, 2, args.join(' '));
    assert.match(refused.stderr, message);
  }
});
