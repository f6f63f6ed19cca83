'use strict';
// installCrashHandler from JavaScript: node processes that install it and then crash leave
// the crash log, and end by SIGKILL; a signal it leaves alone ends them as it would have.
// (Faults of every kind, and repeated installations: the C++ crash handler test.)
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { vidora, CODES, REQUIRE_VIDORA, INVALID_PARAMETERS, assertThrowsCode, runNode, tempDir, WRONG_VALUES } = require('./helpers');

// Splits a crash log into its head, its body (memory map and saved lines) and the lines of
// the crash, checking the layout on the way.
function parseCrashLog(text) {
  const head = /^pid: (\d+)\nstart timestamp: (\d+)\nversion: ([^\n]*)\n/.exec(text);
  assert.ok(head, `a head in ${text.slice(0, 200)}`);
  const tailStart = text.indexOf('crt: 0x', head[0].length);
  const log = { pid: Number(head[1]), startSeconds: Number(head[2]), version: head[3],
    body: text.slice(head[0].length, tailStart < 0 ? undefined : tailStart), crash: null };
  if (tailStart < 0) return log;
  const crash = /^crt: 0x([0-9A-F]{16}); \n(?:snd: 0x([0-9A-F]{8}); \n)?sig: 0x([0-9A-F]{8}); \n((?:frm: 0x[0-9A-F]{16}; \n)*)endstack\ncustom backtrace\n((?:frm: 0x[0-9A-F]{16}; \n)*)endstack\n$/
    .exec(text.slice(tailStart));
  assert.ok(crash, `the crash lines in their order:\n${text.slice(tailStart)}`);
  const frames = (lines) => lines.split('\n').filter(Boolean).map((line) => line.slice(5, 23));
  log.crash = {
    millis: parseInt(crash[1], 16),
    sender: crash[2] === undefined ? null : parseInt(crash[2], 16),
    signal: parseInt(crash[3], 16),
    frames: frames(crash[4]),
    customFrames: frames(crash[5]),
  };
  return log;
}

// Runs `then` in a node process after it installed the handler on `logPath`.
function installAndRun(logPath, then) {
  return runNode(`
    const vidora = ${REQUIRE_VIDORA};
    vidora.installCrashHandler(${JSON.stringify(logPath)});
    ${then}
  `);
}

test('installCrashHandler throws for a path missing, not a string, empty, or in no folder', () => {
  for (const value of WRONG_VALUES.filter((v) => typeof v !== 'string').concat([''])) {
    assertThrowsCode(() => vidora.installCrashHandler(value), INVALID_PARAMETERS, String(value));
  }
  assertThrowsCode(() => vidora.installCrashHandler(), INVALID_PARAMETERS);
  // Nothing is installed then: the later tests' processes install theirs.
  const missing = path.join(tempDir('vidora-crash-'), 'missing', 'service');
  assertThrowsCode(() => vidora.installCrashHandler(missing), CODES.fileNotFound);
});

test('each crash leaves the log of this process and ends it by SIGKILL; SIGTERM is left alone', async () => {
  const dir = tempDir('vidora-crash-');
  const banner = `vidora ${vidora.version().buildNumber} (`;
  // (module (memory 1) (func (export "load") (param i32) (result i32) local.get 0 i32.load))
  const outOfBounds = `try {
    new WebAssembly.Instance(new WebAssembly.Module(Buffer.from(
      '0061736d0100000001060160017f017f030201000503010001070801046c6f616400000a0901070020002802000b',
      'hex'))).exports.load(70000);
  } catch (err) { console.log(err.name + ': ' + err.message); }`;
  const cases = [
    ['SIGSEGV from kill()', "process.kill(process.pid, 'SIGSEGV')", 11],
    // The engine's WebAssembly bounds checks fault on purpose: that fault stays the engine's
    // RuntimeError, and the real one after it is logged.
    ['SIGSEGV after a WebAssembly access out of bounds', `${outOfBounds}; process.kill(process.pid, 'SIGSEGV')`, 11],
    ['process.abort()', 'process.abort()', 6],
    ['SIGBUS from kill()', "process.kill(process.pid, 'SIGBUS')", 7],
    // Not caught: the process ends by the signal itself, and the log has no crash lines.
    ['SIGTERM from kill()', "process.kill(process.pid, 'SIGTERM')", null],
  ];
  for (const [how, crash, signal] of cases) {
    const logPath = path.join(dir, how.replace(/\W+/g, '-'));
    const before = Date.now();
    const child = await installAndRun(logPath, crash);
    const after = Date.now();
    assert.strictEqual(child.signal, signal === null ? 'SIGTERM' : 'SIGKILL', `${how}: ${child.stderr}`);
    if (crash.startsWith('try')) assert.strictEqual(child.stdout, 'RuntimeError: memory access out of bounds\n');
    const log = parseCrashLog(fs.readFileSync(`${logPath}.crash.log`, 'latin1'));
    assert.strictEqual(log.pid, child.pid, how);
    assert.ok(log.startSeconds >= Math.floor(before / 1000) && log.startSeconds <= after / 1000, how);
    assert.ok(log.version.startsWith(banner), `${how}: ${log.version}`);
    // The memory map of the node process that loaded the addon.
    assert.match(log.body, /^[0-9a-f]+-[0-9a-f]+ [-r][-w][-x][ps] /, how);
    assert.match(log.body, /vidora\.node\n/, how);
    assert.match(log.body, /\[stack\]\n/, how);
    if (signal === null) {
      assert.strictEqual(log.crash, null, how);
      continue;
    }
    assert.ok(log.crash, `${how}: the crash lines`);
    assert.ok(log.crash.millis >= before && log.crash.millis <= after, how);
    assert.strictEqual(log.crash.signal, signal, how);
    assert.strictEqual(log.crash.sender, child.pid, `${how}: the sender is the process itself`);
    assert.ok(log.crash.frames.length >= 3 && log.crash.frames.length <= 64, how);
    assert.ok(log.crash.customFrames.length >= 1 && log.crash.customFrames.length <= 64, how);
  }
});
