'use strict';
// setLogFile and setLogLevel from JavaScript: files, levels, the environment's word, bad input.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { vidora, REQUIRE_VIDORA, INVALID_PARAMETERS, assertThrowsCode, tempDir, systemError, runNodeSync, assertCleanExit,
  WRONG_VALUES } = require('./helpers');

// Runs `script` in a fresh node process with the addon loaded as `vidora`.
const runChild = (script, env) => assertCleanExit(runNodeSync(`const vidora = ${REQUIRE_VIDORA};${script}`, env));

test('ADDON_LOG_LEVEL wins over setLogLevel and is logged; set but empty it reads as 0, and is not logged', () => {
  const dir = tempDir();
  // [ADDON_LOG_LEVEL, the level the script asks for, the lines after the PID line]
  const cases = [
    ['4', 0, [/^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z I \S+ {2}- ADDON_LOG_LEVEL=4 \[0\] ?$/]],
    ['', 4, []],
  ];
  for (const [value, level, expected] of cases) {
    const file = path.join(dir, `level-${value}.log`);
    runChild(`
      vidora.setLogFile({ path: ${JSON.stringify(file)}, logLevel: ${level} });
      vidora.setLogLevel({ logLevel: ${level} });
      setTimeout(() => {}, 200);`, { ADDON_LOG_LEVEL: value });
    const lines = fs.readFileSync(file, 'utf8').trimEnd().split('\n').slice(1);
    assert.strictEqual(lines.length, expected.length, lines.join('\n'));
    lines.forEach((line, i) => assert.match(line, expected[i]));
  }
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
