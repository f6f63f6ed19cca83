'use strict';
// The command line's commands that change recordings: the README's walk-through as written,
// each command's text and JSON (the function's result), and the exit status of each failure.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { vidora, TASK_FIELDS, tempDir, cliIn } = require('./helpers');
const { holdFlock, writeVrx } = require('../tools/vrx_tools');
const { ok, T0 } = require('./managed_files');

const ROOT = path.join(__dirname, '..');
const SEGMENTS = path.join(ROOT, 'samples', 'segments');
const dir = tempDir('vidora-cli-maintenance-');
fs.symlinkSync(path.join(ROOT, 'samples'), path.join(dir, 'samples'));

const { cli, cliAsync } = cliIn(dir);

const segment = (n) => path.join(SEGMENTS, `segment-${n}.vrx`);
const own = (result) => Object.fromEntries(Object.entries(result).filter(([k]) => !TASK_FIELDS.includes(k)));

test('the walk-through of the README runs as written', () => {
  const readme = fs.readFileSync(path.join(ROOT, 'README.md'), 'utf8');
  const block = /\*\*A recording file, step by step\.\*\*[\s\S]*?```sh\n([\s\S]*?)```/.exec(readme)[1];
  const lines = block.trim().split('\n');
  assert.ok(lines.length >= 8);
  const { COMMANDS } = require('../lib/cli');
  for (const line of lines) {
    const [npx, name, ...args] = line.split(/\s+/);
    assert.strictEqual(`${npx} ${name}`, 'npx vidora', line);
    // A command not built in this tree yet (the export) is left out.
    if (!COMMANDS[args[0]]) continue;
    const run = cli(...args);
    assert.strictEqual(run.status, 0, `${line}: ${run.stderr}`);
  }
  const info = cli('info', 'recording.vrx');
  assert.match(info.stdout, /video: 125 frames, 5 key frames/);
  assert.match(info.stdout, /wall clock:\s+2026-01-01 00:00:01\.000 \.\. 2026-01-01 00:00:35\.960 UTC/);
  assert.strictEqual(fs.statSync(path.join(dir, 'recording.vrx')).size, 16 << 20);
});

test('each command prints its text, and with --json what its function gives', async () => {
  vidora.setWorkersPoolsLimits({ Append: 1 });
  const a = path.join(dir, 'a.vrx'), b = path.join(dir, 'b.vrx');
  const outputs = [];
  const steps = [
    [['create', 'FILE', '4M'], /^FILE: created, 4194304 bytes of free space\n$/,
      (f) => ok(vidora.vrxFileCreate, f, 4 << 20)],
    [['append', 'FILE', segment(1), '--new-partition', '--metadata', '0000000000000000000000ab'],
      /^FILE: appended .*segment-1\.vrx, 56484 bytes, as a new partition\n$/,
      (f) => ok(vidora.vrxFileAppend, { srcFileName: segment(1), dstFileName: f, createNewPartition: true, fixedMetadata: '0000000000000000000000ab' })],
    [['append', 'FILE', segment(2)], /^FILE: appended .*segment-2\.vrx, \d+ bytes, onto the last partition \(a new one in a file without\)\n$/,
      (f) => ok(vidora.vrxFileAppend, { srcFileName: segment(2), dstFileName: f })],
    [['cut', 'FILE', '--from', '0', '--to', `${T0 + 1000}`],
      /^FILE: cut 1970-01-01 00:00:00\.000 \.\. 2026-01-01 00:00:01\.000 UTC \(0 \.\. 1767225601000\)\n$/,
      (f) => ok(vidora.vrxFileDeleteContent, { fileNames: [f], wallClockStart: 0, wallClockEnd: T0 + 1000 })],
    [['estimate', 'FILE', '--from', `${T0 + 1500}`, '--to', `${T0 + 2500}`], /^2026-01-01 00:00:01\.500 \.\. .*: \d+ bytes\n$/,
      (f) => ok(vidora.vrxFileEstimateSize, { srcFileNames: [f], wallClockStart: T0 + 1500, wallClockEnd: T0 + 2500 })],
    [['estimate', 'FILE', '--from', `${T0}`, '--to', `${T0 + 4000}`, '--key-frames'], /^average key frame: \d+ bytes\n$/,
      (f) => ok(vidora.vrxFileEstimateSize, { srcFileNames: [f], wallClockStart: T0, wallClockEnd: T0 + 4000, getAvgKFrameSize: true })],
    [['recover', 'FILE', '--check'], /^FILE: sound, every partition reads\n$/,
      (f) => ok(vidora.vrxFileRecover, { fileName: f, check: true })],
    [['recover', 'FILE'], /^FILE: recovered\nlast partition: offset 0, \d+ bytes, fixed metadata 0000000000000000000000ab\n  2026-01-01 00:00:01\.000 \.\. 2026-01-01 00:00:03\.960 UTC/,
      (f) => ok(vidora.vrxFileRecover, f)],
  ];
  for (const [args, text, fn] of steps) {
    const plain = cli(...args.map((x) => (x === 'FILE' ? a : x)));
    assert.strictEqual(plain.status, 0, plain.stderr);
    assert.match(plain.stdout.split(a).join('FILE'), text, args.join(' '));
    const json = cli(...args.map((x) => (x === 'FILE' ? b : x)), '--json');
    assert.strictEqual(json.status, 0, json.stderr);
    const c = path.join(dir, `c-${outputs.length}.vrx`);
    if (args[0] !== 'create') fs.copyFileSync(path.join(dir, `c-${outputs.length - 1}.vrx`), c);
    assert.deepStrictEqual(JSON.parse(json.stdout), own(await fn(c)), args.join(' '));
    outputs.push(json.stdout);
  }
  assert.ok(fs.readFileSync(a).equals(fs.readFileSync(b)), 'text and JSON runs did the same');

  const copy = path.join(dir, 'copy.vrx');
  assert.strictEqual(cli('create', copy, '1M').status, 0);
  const copied = cli('copy', copy, segment(2), segment(3), '--from', `${T0 + 2500}`, '--to', `${T0 + 34000}`, '--json');
  assert.strictEqual(copied.status, 0, copied.stderr);
  const { partitions } = await ok(vidora.vrxFileListPartitions, copy);
  assert.deepStrictEqual(JSON.parse(copied.stdout), { totalAppended: partitions[0].fullBounds.length });
  assert.deepStrictEqual(partitions[0].seekPoints.map((s) => s.wallClockMillis - T0), [2000, 3000, 34000, 35000]);
  assert.match(cli('copy', copy, segment(1), '--from', `${T0 + 50000}`, '--to', `${T0 + 60000}`).stdout, /nothing of the sources lies in/);
});

test('failures give a clear message and their exit status, and change nothing', async () => {
  const file = path.join(dir, 'f.vrx');
  const small = path.join(dir, 'small.vrx');
  const notes = path.join(dir, 'notes.txt');
  fs.writeFileSync(notes, 'these are not the packets you are looking for\n'.repeat(10));
  assert.strictEqual(cli('create', file, '1M').status, 0);
  assert.strictEqual(cli('append', file, segment(1), '--new-partition').status, 0);
  writeVrx(small, ['pad 1048576']);
  const big = path.join(dir, 'big.vrx');
  writeVrx(big, ['partition 000000000000000000000000', `sync 0 90000 ${T0 + 99000}`, 'video 0 90000 0 1 pattern:1100000:1', 'end']);
  const before = fs.readFileSync(file);
  const cases = [
    [['create', file], 2, /missing SIZE/],
    [['create', path.join(dir, 'x.vrx'), '1000'], 2, /SIZE must be at least 1M and a multiple of 4K \(1000 is not\)/],
    [['create', path.join(dir, 'x.vrx'), 'lots'], 2, /SIZE needs a size in bytes/],
    [['create', path.join(dir, 'no', 'x.vrx'), '1M'], 3, /no such directory/],
    [['append', file], 2, /missing SRC/],
    [['append', file, segment(2), '--metadata', 'abc'], 2, /--metadata needs 24 hex digits/],
    [['cut', file, '--from', '5'], 2, /--from and --to are required/],
    [['cut', file, '--from', '5', '--to', '4'], 2, /--from must not be after --to/],
    [['cut', file, '--from', '-5', '--to', '4'], 2, /--from needs a number of ms/],
    [['copy', file, segment(1), '--from', '9', '--to', '1'], 2, /--from must not be after --to/],
    [['recover', file, '--check', '--salvage'], 2, /--check changes nothing/],
    [['estimate', file], 2, /--from is required/],
    [['cut', path.join(dir, 'missing.vrx'), '--from', '0', '--to', '1'], 3, /missing\.vrx: no such file/],
    [['append', file, path.join(dir, 'missing.vrx')], 3, /missing\.vrx: no such file/],
    [['estimate', path.join(dir, 'missing.vrx'), '--from', '0'], 3, /no such file/],
    [['cut', notes, '--from', '0', '--to', '1'], 4, /notes\.txt: not a VRX file, or damaged/],
    [['append', file, notes], 4, /f\.vrx or .*notes\.txt: not a VRX file, or damaged/],
    [['recover', notes, '--check'], 4, /notes\.txt: needs recover \(or is no VRX file\)/],
    [['recover', small], 4, /small\.vrx: holds no partition, so nothing to recover/],
    [['append', file, big], 6, /f\.vrx: full: not enough free space/],
  ];
  for (const [args, status, message] of cases) {
    const run = cli(...args);
    assert.strictEqual(run.status, status, `${args.join(' ')}: ${run.stderr}`);
    assert.match(run.stderr, message, args.join(' '));
    assert.doesNotMatch(run.stderr, /\n\s+at /, args.join(' '));
    assert.strictEqual(run.stdout, '', args.join(' '));
  }
  assert.ok(fs.readFileSync(file).equals(before));
  const holder = await holdFlock(file, '-x');
  try {
    const calls = [['cut', file, '--from', '0', '--to', '1'], ['recover', file], ['append', file, segment(3)]];
    const runs = await Promise.all(calls.map((args) => cliAsync(...args)));
    runs.forEach((run, i) => {
      assert.strictEqual(run.status, 5, calls[i].join(' '));
      assert.match(run.stderr, /locked by another process \(gave up after 1\.5 s\)/, calls[i].join(' '));
    });
  } finally {
    await holder.release();
  }
  assert.ok(fs.readFileSync(file).equals(before));
});
