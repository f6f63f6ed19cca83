'use strict';
// statvfs against what coreutils' `stat -f` says of the same path; its errors.
const test = require('node:test');
const assert = require('assert');
const os = require('os');
const { execFileSync } = require('child_process');
const { vidora, TASK_FIELDS } = require('./helpers');

const FIELDS = ['f_bsize', 'f_frsize', 'f_blocks', 'f_bfree', 'f_bavail', 'f_files', 'f_ffree',
  'f_favail', 'f_fsid', 'f_flag', 'f_namemax', 'bytesFree'];

function statvfs(path) {
  return new Promise((resolve) => {
    const id = vidora.statvfs(path, (error, result) => resolve({ id, error, result }));
  });
}

// coreutils: %s block size, %S fundamental block size, %b blocks, %f free, %a available,
// %c inodes, %d free inodes, %l name length, %i file-system id (hexadecimal).
function coreutilsStat(path) {
  const [bsize, frsize, blocks, bfree, bavail, files, ffree, namemax, fsid] =
    execFileSync('stat', ['-f', '-c', '%s %S %b %f %a %c %d %l %i', path], { encoding: 'utf8' }).trim().split(' ');
  return {
    bsize: Number(bsize), frsize: Number(frsize), blocks: Number(blocks), bfree: Number(bfree),
    bavail: Number(bavail), files: Number(files), ffree: Number(ffree), namemax: Number(namemax),
    fsid: BigInt(`0x${fsid}`),
  };
}

// Free counts move while other processes write; a swapped or misread field is far off.
function assertNear(actual, expected, total, what) {
  assert.ok(Math.abs(actual - expected) <= Math.max(64, total / 200), `${what}: ${actual} vs ${expected}`);
}

test('statvfs gives the fields of statvfs(2), as coreutils\' stat -f sees them', async () => {
  for (const path of ['/', os.tmpdir(), __dirname, __filename]) {
    const { id, error, result } = await statvfs(path);
    const tool = coreutilsStat(path);
    assert.strictEqual(error, null, path);
    assert.deepStrictEqual(Object.keys(result), [...FIELDS, ...TASK_FIELDS], path);
    assert.deepStrictEqual([result.id, result.name, result.poolName, result.timedOut], [id, 'statvfs', 'Misc', false]);
    for (const field of ['bsize', 'frsize', 'blocks', 'files', 'namemax']) {
      assert.strictEqual(result[`f_${field}`], tool[field], `${path} f_${field}`);
    }
    // stat prints the two 32-bit words of the id in the other order than statvfs(3) joins them.
    const swapped = ((tool.fsid & 0xffffffffn) << 32n) | (tool.fsid >> 32n);
    assert.strictEqual(result.f_fsid, Number(swapped), path);
    for (const [field, expected, total] of [['f_bfree', tool.bfree, result.f_blocks], ['f_bavail', tool.bavail, result.f_blocks],
      ['f_ffree', tool.ffree, result.f_files], ['f_favail', tool.ffree, result.f_files]]) {
      assertNear(result[field], expected, total, `${path} ${field}`);
    }
    assert.strictEqual(result.bytesFree, result.f_frsize * result.f_bfree, path);
    assert.ok(Number.isInteger(result.f_flag) && result.f_flag >= 0, path);
  }
});

test('statvfs of a path that cannot be looked at calls back with the system error', async () => {
  // [path, errno, text]
  const cases = [
    ['/no/such/dir', 2, 'No such file or directory'],
    ['', 2, 'No such file or directory'],
    [`${__filename}/below`, 20, 'Not a directory'],
    [`/${'x'.repeat(5000)}`, 36, 'File name too long'],
  ];
  for (const [path, errno, text] of cases) {
    const { id, error, result } = await statvfs(path);
    assert.strictEqual(result, null, path.slice(0, 40));
    assert.ok(error instanceof Error);
    assert.strictEqual(error.message, text);
    assert.strictEqual(error.errors.length, 1);
    const { full, module, code, fileName } = error.errors[0];
    assert.deepStrictEqual([full, module, code], [(0x80000000 | errno) | 0, 0, errno]);
    assert.match(fileName, /task_statvfs\.cc$/);
    assert.deepStrictEqual([error.id, error.poolName, error.timedOut], [id, 'Misc', false]);
  }
});

test('statvfs rejects wrong arguments', () => {
  const callback = () => assert.fail('no callback after a refused call');
  const cases = [[], ['/'], ['/', 'x'], ['/', null], [5, callback], [{ path: '/' }, callback],
    [null, callback], [undefined, callback], [Buffer.from('/'), callback]];
  for (const args of cases) {
    assert.throws(() => vidora.statvfs(...args), (err) => {
      assert.strictEqual(err.message, '<-# FAILED! callback_statvfs Invalid parameters');
      return true;
    }, String(args[0]));
  }
});
