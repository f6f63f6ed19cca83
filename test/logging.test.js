'use strict';
// setLogFile and setLogLevel from JavaScript: files, levels, the environment's word, bad input.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { vidora, INVALID_PARAMETERS, assertThrowsCode, tempDir, WRONG_VALUES } = require('./helpers');

// Runs `script` in a fresh node process with the addon loaded as `vidora`; returns stdout.
function runChild(script, env = {}) {
  const prelude = `const vidora = require(${JSON.stringify(path.join(__dirname, '..'))});`;
  const child = spawnSync(process.execPath, ['-e', prelude + script], {
    env: { ...process.env, ...env }, encoding: 'utf8', timeout: 20000,
  });
  assert.strictEqual(child.status, 0, child.stderr);
  return child.stdout;
}

test('ADDON_LOG_LEVEL wins over setLogLevel and is logged', () => {
  const dir = tempDir();
  const file = path.join(dir, 'env.log');
  runChild(`
    vidora.setLogFile({ path: ${JSON.stringify(file)}, logLevel: 0 });
    vidora.setLogLevel({ logLevel: 0 });
    setTimeout(() => {}, 200);`, { ADDON_LOG_LEVEL: '4' });
  const lines = fs.readFileSync(file, 'utf8').trimEnd().split('\n');
  assert.strictEqual(lines.length, 2, lines.join('\n'));
  assert.match(lines[1], /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z I \S+ {2}- ADDON_LOG_LEVEL=4 \[0\] ?$/);
});

test('without ADDON_LOG_LEVEL the level line is not written', () => {
  const dir = tempDir();
  const file = path.join(dir, 'quiet.log');
  const env = { ...process.env };
  delete env.ADDON_LOG_LEVEL;
  runChild(`
    vidora.setLogFile({ path: ${JSON.stringify(file)}, logLevel: 4 });
    vidora.setLogLevel({ logLevel: 4 });
    setTimeout(() => {}, 200);`, { ADDON_LOG_LEVEL: '' });
  // An empty variable is set, and reads as level 0: still only the PID line.
  assert.strictEqual(fs.readFileSync(file, 'utf8').trimEnd().split('\n').length, 1);
});

test('setLogFile rejects what is not an object, and a missing or empty path', () => {
  for (const value of WRONG_VALUES.filter((v) => typeof v !== 'function')) {
    assertThrowsCode(() => vidora.setLogFile(value), INVALID_PARAMETERS, String(value));
  }
  assertThrowsCode(() => vidora.setLogFile(), INVALID_PARAMETERS);
  for (const p of [undefined, null, '', 5, true, {}, ['a'], () => 'x']) {
    assertThrowsCode(() => vidora.setLogFile({ path: p }), INVALID_PARAMETERS, `path ${String(p)}`);
  }
  // A function is accepted as the options object, but it has no path.
  assertThrowsCode(() => vidora.setLogFile(() => {}), INVALID_PARAMETERS);
});

test('setLogLevel rejects what is not an object and takes any level value', () => {
  // An array is an object, so it is accepted like {}.
  for (const value of WRONG_VALUES.filter((v) => typeof v !== 'function' && !Array.isArray(v))) {
    assertThrowsCode(() => vidora.setLogLevel(value), INVALID_PARAMETERS, String(value));
  }
  assertThrowsCode(() => vidora.setLogLevel(), INVALID_PARAMETERS);
  for (const level of [undefined, 'x', 3.7, -1, NaN, Infinity, null]) {
    assert.strictEqual(vidora.setLogLevel({ logLevel: level }), undefined);
  }
  assert.strictEqual(vidora.setLogLevel(() => {}), undefined);
});

test('options of the wrong type fall back to their defaults', () => {
  const dir = tempDir();
  const file = path.join(dir, 'defaults.log');
  runChild(`
    vidora.setLogFile({ path: ${JSON.stringify(file)}, maxFileSize: '10', maxFileCount: null, logLevel: 'x' });
    setTimeout(() => {}, 200);`);
  assert.ok(fs.existsSync(file));
  assert.ok(!fs.existsSync(`${file}.001`));
});

test('setLogFile refuses a path that cannot take a log file, and leaves what stands there', () => {
  const dir = tempDir();
  const folder = path.join(dir, 'folder');
  fs.mkdirSync(folder);
  fs.writeFileSync(path.join(folder, 'keep.txt'), 'kept');
  const fifo = path.join(dir, 'fifo');
  spawnSync('mkfifo', [fifo]);
  const link = path.join(dir, 'link.log');
  fs.symlinkSync(path.join(dir, 'target.log'), link);
  const systemError = (errno) => (0x80000000 | errno) | 0;
  const cases = [
    [folder, systemError(21)], // EISDIR
    [fifo, systemError(22)], // EINVAL: not a regular file
    [link, systemError(22)],
    [path.join(dir, 'missing', 'addon.log'), systemError(2)], // ENOENT
  ];
  for (const [file, full] of cases) {
    assertThrowsCode(() => vidora.setLogFile({ path: file }), full, file);
  }
  assert.deepStrictEqual(fs.readdirSync(folder), ['keep.txt']);
  assert.deepStrictEqual(fs.readdirSync(dir).sort(), ['fifo', 'folder', 'link.log']);
});
