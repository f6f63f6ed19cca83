'use strict';
// Shared helpers of the JavaScript tests.
const assert = require('assert');
const fs = require('fs');
const http = require('http');
const net = require('net');
const os = require('os');
const path = require('path');
const { spawn, spawnSync } = require('child_process');

const vidora = require('..');

const SAMPLE = path.join(__dirname, '..', 'samples', 'sample.vrx');
// What a script of runNode or runNodeSync writes to load the package under test.
const REQUIRE_VIDORA = `require(${JSON.stringify(path.join(__dirname, '..'))})`;

// The codes of the errors the tests expect, as signed 32-bit numbers (as JavaScript sees them).
const systemError = (errno) => (0x80000000 | errno) | 0;
const CODES = {
  fileNotFound: systemError(2),
  timedOut: systemError(4),
  invalidRange: 0x80080008 | 0,
  invalidParameters: 0x8008000c | 0,
  operationNotFound: 0x8008000e | 0,
  noRecordings: 0x80080010 | 0,
  invalidFileSize: 0x800c0002 | 0,
  incorrectContent: 0x800c0005 | 0,
  notEnoughSpace: 0x800c0006 | 0,
  noSyncNode: 0x800c000e | 0,
  noPartition: 0x800c001d | 0,
  doubleAppend: 0x800c001e | 0,
};
const INVALID_PARAMETERS = CODES.invalidParameters;
// The fields every task's result has, whatever the task.
const TASK_FIELDS = ['id', 'name', 'poolName', 'timedOut', 'apiCallTime', 'operationStartTime', 'operationEndTime',
  'callbackTime'];

// Asserts that `fn` throws vidora's error object for `full` (a signed 32-bit code).
function assertThrowsCode(fn, full, message) {
  assert.throws(fn, (err) => {
    assert.ok(err instanceof Error, 'an Error is thrown');
    assert.ok(Array.isArray(err.errors), 'the error has an errors array');
    assert.strictEqual(err.errors[0].full, full, message);
    assert.strictEqual(err.message, vidora.getErrorDescription(full));
    return true;
  }, message);
}

// A fresh temporary folder, removed when the process exits.
function tempDir(prefix = 'vidora-test-') {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), prefix));
  process.on('exit', () => fs.rmSync(dir, { recursive: true, force: true }));
  return dir;
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
// A pool's entry in the statistics of the native functions, or of `from` (the layer `api`).
const poolStats = (name, from = vidora) => from.getWorkersPoolsStats().find((pool) => pool.name === name);

// Polls `predicate` every 10 ms until it is true or `timeoutMs` passes.
async function waitFor(predicate, timeoutMs = 5000) {
  const end = Date.now() + timeoutMs;
  while (!predicate()) {
    if (Date.now() > end) throw new Error('timed out waiting for a condition');
    await sleep(10);
  }
}

// Runs a tool that the tests take from Debian (ffmpeg, ffprobe, flock...), with the
// environment of a child process; a tool that is missing fails with what to install.
function runTool(command, args, options = {}) {
  const { childEnv } = require('../tools/vrx_tools');
  const run = spawnSync(command, args, { env: childEnv(), encoding: 'utf8', maxBuffer: 1 << 28, ...options });
  if (run.error && run.error.code === 'ENOENT') {
    const debian = { ffprobe: 'ffmpeg', ffmpeg: 'ffmpeg' }[command] || command;
    throw new Error(`${command} is not installed: the tests need it (Debian package ${debian}; ` +
      '"npm test" installs it when run as root)');
  }
  if (run.error) throw run.error;
  return run;
}

// Runs `script` in a new node process that inherits the environment (and so the addon to
// load). Resolves with {pid, status, signal, stdout, stderr} when it ends; `onLine` sees each
// line of its standard output as it comes.
function runNode(script, { onLine = () => {} } = {}) {
  return new Promise((resolve, reject) => {
    const child = spawn(process.execPath, ['-e', script]);
    let stdout = '';
    let stderr = '';
    let pending = '';
    child.stdout.setEncoding('utf8');
    child.stdout.on('data', (data) => {
      stdout += data;
      const lines = (pending + data).split('\n');
      pending = lines.pop();
      lines.forEach(onLine);
    });
    child.stderr.on('data', (data) => { stderr += data; });
    child.on('error', reject);
    child.on('close', (status, signal) => resolve({ pid: child.pid, status, signal, stdout, stderr }));
  });
}

// Runs `script` in a new node process with `env` added to this one's, and waits for its end.
function runNodeSync(script, env = {}) {
  return spawnSync(process.execPath, ['-e', script], { encoding: 'utf8', timeout: 120000, env: { ...process.env, ...env } });
}

// A child process ended by itself with `status`, nothing on standard error and, when given, `stdout`.
function assertCleanExit(child, stdout, status = 0) {
  assert.strictEqual(child.signal, null, child.stderr);
  assert.strictEqual(child.stderr, '');
  assert.strictEqual(child.status, status);
  if (stdout !== undefined) assert.strictEqual(child.stdout, stdout);
}

// A copy of the sample that nobody but root may write, in a folder anyone may enter.
function readOnlySample() {
  const file = path.join(tempDir('vidora-readonly-'), 'readonly.vrx');
  fs.copyFileSync(SAMPLE, file);
  fs.chmodSync(file, 0o444);
  fs.chmodSync(path.dirname(file), 0o755);
  return file;
}

// Runs `command` as the user nobody; null when this run cannot (not root, or no runuser).
function runAsNobody(command, ...args) {
  if (process.getuid() !== 0 || spawnSync('runuser', ['--help']).status !== 0) return null;
  return spawnSync('runuser', ['-u', 'nobody', '--', command, ...args], { encoding: 'utf8', env: process.env });
}

// A port that nothing listens on at the moment of asking; null when `host` is not here.
function freePort(host = '127.0.0.1') {
  return new Promise((resolve) => {
    const server = net.createServer();
    server.on('error', () => resolve(null));
    server.listen(0, host, () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

// One HTTP request on a new connection to 127.0.0.1: { status, headers, body }.
function httpRequest(port, urlPath = '/', { method = 'GET', headers = {} } = {}) {
  return new Promise((resolve, reject) => {
    const req = http.request({ host: '127.0.0.1', port, path: urlPath, method, headers, agent: false }, (res) => {
      const chunks = [];
      res.on('data', (chunk) => chunks.push(chunk));
      res.on('end', () => resolve({ status: res.statusCode, headers: res.headers, body: Buffer.concat(chunks) }));
      res.on('error', reject);
    });
    req.on('error', reject);
    req.end();
  });
}

// The command line, run in a node of its own (with the sanitizer runtimes when this run has
// them) from `cwd`: `cli` waits for it to end, `cliAsync` resolves when it ends.
const CLI = path.join(__dirname, '..', 'bin', 'vidora.js');
function cliIn(cwd) {
  const cli = (...args) => {
    const { status, stdout, stderr } = spawnSync(process.execPath, [CLI, ...args], { encoding: 'utf8', env: process.env, cwd });
    return { status, stdout, stderr };
  };
  const cliAsync = (...args) => new Promise((resolve) => {
    const child = spawn(process.execPath, [CLI, ...args], { env: process.env, cwd });
    let stdout = '';
    let stderr = '';
    child.stdout.on('data', (d) => { stdout += d; });
    child.stderr.on('data', (d) => { stderr += d; });
    child.on('exit', (status) => resolve({ status, stdout, stderr }));
  });
  return { CLI, cli, cliAsync };
}

// Values of every kind, for trying each argument position with the wrong type.
const WRONG_VALUES = [undefined, null, 0, 1.5, NaN, 'text', '', true, Symbol('s'), 10n, [], () => {}];

module.exports = {
  vidora, SAMPLE, REQUIRE_VIDORA, CODES, INVALID_PARAMETERS, TASK_FIELDS, systemError, assertThrowsCode, tempDir,
  sleep, poolStats, waitFor, runTool, runNode, runNodeSync, assertCleanExit, readOnlySample, runAsNobody,
  freePort, httpRequest, cliIn,
  WRONG_VALUES,
};
