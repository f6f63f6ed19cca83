'use strict';
// Shared helpers of the JavaScript tests.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawn, spawnSync } = require('child_process');

const vidora = require('..');

// The code "NodeJS function parameters are incorrect" (module 8, code 12) as JavaScript sees it.
const INVALID_PARAMETERS = -2146959348;

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

// Polls `predicate` every 10 ms until it is true or `timeoutMs` passes.
async function waitFor(predicate, timeoutMs = 5000) {
  const end = Date.now() + timeoutMs;
  while (!predicate()) {
    if (Date.now() > end) throw new Error('timed out waiting for a condition');
    await new Promise((resolve) => setTimeout(resolve, 10));
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

module.exports = { vidora, INVALID_PARAMETERS, assertThrowsCode, tempDir, waitFor, runTool, runNode, cliIn, WRONG_VALUES };
