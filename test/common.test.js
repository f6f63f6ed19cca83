'use strict';
// The common functions and the error object, as an application sees them.
const test = require('node:test');
const assert = require('assert');
const path = require('path');
const { spawnSync } = require('child_process');
const { vidora, INVALID_PARAMETERS, assertThrowsCode } = require('./helpers');

test('version gives the build number and the OpenSSL version as strings', () => {
  const info = vidora.version();
  assert.deepStrictEqual(Object.keys(info), ['buildNumber', 'openSslVersion']);
  assert.strictEqual(info.buildNumber, require('../package.json').version);
  assert.strictEqual(typeof info.openSslVersion, 'string');
});

test('getErrorDescription gives the texts of the addon\'s modules', () => {
  // The layout of a code (error bits, module, past a table's end) is the C++ errors test's.
  const cases = [
    [0, 'OK'],
    [0x8008000c | 0, 'NodeJS function parameters are incorrect'],
    [0x8008000e | 0, 'NodeJS sending operation not found'],
    [0x80080024 | 0, 'unknown'],
    [0x80630001 | 0, '### UNKNOWN ERROR CODE ###'],
    [0x80010006 | 0, 'read() POSIX function did not full complete'],
    [0x800b0004 | 0, 'The stream of bits could not be read as an Exp-Golomb number'],
    [0x800c0025 | 0, 'MP4 parsing error'],
    [0x800c0028 | 0, 'unknown'],
    [0x800d0023 | 0, 'Remoting session invalid response'],
    [0x800d0024 | 0, 'unknown'],
    // read as a signed 32-bit integer: the unsigned spelling is the same code
    [0x8008000c, 'NodeJS function parameters are incorrect'],
  ];
  for (const [code, text] of cases) assert.strictEqual(vidora.getErrorDescription(code), text, `code ${code}`);
  // module 0 is errno through strerror
  assert.strictEqual(vidora.getErrorDescription(0x80000002 | 0), 'No such file or directory');
});

test('a wrong argument throws the error object with its exact shape', () => {
  let caught;
  try {
    vidora.getErrorDescription('x');
  } catch (err) {
    caught = err;
  }
  const text = 'NodeJS function parameters are incorrect';
  assert.ok(caught instanceof Error);
  assert.strictEqual(caught.message, text);
  assert.deepStrictEqual(Object.keys(caught), ['errors']);
  assert.strictEqual(caught.errors.length, 1);
  const { fileName, lineNumber, ...entry } = caught.errors[0];
  assert.deepStrictEqual(Object.keys(caught.errors[0]), ['full', 'module', 'code', 'description', 'fileName', 'lineNumber']);
  assert.deepStrictEqual(entry, { full: -2146959348, module: 8, code: 12, description: text });
  assert.match(fileName, /callbacks_info\.cc$/);
  assert.ok(Number.isInteger(lineNumber) && lineNumber > 0);
});

test('getErrorDescription rejects every value that is not a number', () => {
  for (const value of [undefined, null, 'x', '5', true, {}, [], () => {}, Symbol('s'), 5n]) {
    assertThrowsCode(() => vidora.getErrorDescription(value), INVALID_PARAMETERS, String(typeof value));
  }
  assertThrowsCode(() => vidora.getErrorDescription(), INVALID_PARAMETERS);
});

test('getTimeMillis is the wall clock in whole milliseconds', () => {
  const before = Date.now();
  const now = vidora.getTimeMillis();
  const after = Date.now();
  assert.ok(Number.isInteger(now));
  assert.ok(now >= before - 1 && now <= after + 1, `${before} <= ${now} <= ${after}`);
});

test('the exports are the native functions unchanged, with the layer and its error classes beside them', () => {
  const native = require('../lib/binding');
  const { api, VidoraError, AbortError, ...functions } = vidora;
  assert.deepStrictEqual(Object.keys(functions).sort(), Object.keys(native).sort());
  for (const [name, value] of Object.entries(functions)) assert.strictEqual(value, native[name], name);
  for (const name of ['version', 'getErrorDescription', 'getTimeMillis', 'setLogFile', 'setLogLevel']) {
    assert.strictEqual(typeof functions[name], 'function', name);
  }
  assert.strictEqual(typeof api.processMedia, 'function');
  assert.ok(new VidoraError({ message: 'm', errors: [] }) instanceof Error);
  assert.ok(new AbortError() instanceof Error);
});

test('a missing binary gives a message that names the build command', () => {
  const script = `process.env.VIDORA_ADDON_PATH = '/nonexistent/vidora.node';
    require(${JSON.stringify(path.join(__dirname, '..', 'lib', 'binding.js'))});`;
  const child = spawnSync(process.execPath, ['-e', script], {
    env: { ...process.env, VIDORA_ADDON_PATH: '/nonexistent/vidora.node' },
    cwd: '/', encoding: 'utf8',
  });
  if (require('fs').existsSync(path.join(__dirname, '..', 'build', 'vidora.node'))) {
    assert.strictEqual(child.status, 0, 'falls back to build/vidora.node');
    return;
  }
  assert.notStrictEqual(child.status, 0);
  assert.match(child.stderr, /npm install/);
});

test('a parameter object whose property access throws passes that very exception on', () => {
  const cb = () => assert.fail('no task for a parameter object that throws');
  const thrown = new Error('from the parameter object');
  const getter = (name) => ({ get [name]() { throw thrown; } });
  const proxy = () => new Proxy({}, { has() { throw thrown; } });
  const calls = [
    ['vrxFileListFragments getter', () => vidora.vrxFileListFragments(getter('fileName'), cb)],
    ['vrxFileListFragments proxy', () => vidora.vrxFileListFragments(proxy(), cb)],
    ['nop getter', () => vidora.nop(getter('pool'), cb)],
    ['nop proxy', () => vidora.nop(proxy(), cb)],
    ['setLogFile getter', () => vidora.setLogFile(getter('path'))],
    ['setLogFile proxy', () => vidora.setLogFile(proxy())],
    ['setLogLevel getter', () => vidora.setLogLevel(getter('logLevel'))],
  ];
  for (const [label, fn] of calls) {
    assert.throws(fn, (err) => err === thrown, label);
  }
});
