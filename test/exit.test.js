'use strict';
// The host process ends while tasks are running and pending in several pools: the exit hooks
// cancel them, and the process ends with its own exit code and nothing on standard error.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');

const { SAMPLE, REQUIRE_VIDORA, tempDir, runNode, runNodeSync, assertCleanExit } = require('./helpers');
const { holdFlock } = require('../tools/vrx_tools');

// Starts `perPool` nops on each pool (and a few statvfs), then runs `then(state)` from the
// callback numbered `after`.
function loadScript(perPool, after, then) {
  return `
    const vidora = ${REQUIRE_VIDORA};
    vidora.setWorkersPoolsLimits({ ExitA: 2, ExitB: 3 });
    const state = { done: 0 };
    const pools = ['Serve', 'Write', 'Read', 'Misc', 'ExitA', 'ExitB'];
    const callback = (err) => {
      if (err) throw err;
      if (++state.done === ${after}) (${then})(state, vidora);
    };
    for (let i = 0; i < ${perPool}; i++) {
      for (const pool of pools) vidora.nop({ pool }, callback);
      if (i % 20 === 0) vidora.statvfs('/', callback);
    }
    process.on('exit', (code) => console.log('exit ' + code + ' after ' + state.done));
  `;
}

test('mid-load the process ends cleanly by process.exit, from a callback or before any, and by itself', () => {
  // [script, exit status, standard output]
  const cases = [
    [loadScript(200, 150, '() => process.exit(0)'), 0, 'exit 0 after 150\n'],
    [loadScript(200, 150, '() => process.exit(7)'), 7, 'exit 7 after 150\n'],
    [`${loadScript(200, -1, '() => {}')}; process.exit(0);`, 0, 'exit 0 after 0\n'],
    // 150 per pool fit the pending queues: no task is dropped, so every one must call back
    // before the event loop may end.
    [loadScript(150, -1, '() => {}'), 0, `exit 0 after ${150 * 6 + 8}\n`],
  ];
  for (const [script, status, stdout] of cases) assertCleanExit(runNodeSync(script), stdout, status);
});

test('an uncaught exception mid-load ends the process with code 1 and its message only', () => {
  const child = runNodeSync(loadScript(200, 100, '() => { throw new Error("boom"); }'));
  assert.strictEqual(child.signal, null, child.stderr);
  assert.strictEqual(child.status, 1);
  assert.match(child.stderr, /Error: boom/);
  assert.doesNotMatch(child.stderr, /Sanitizer|Segmentation|Aborted/);
});

test('a worker thread that loads the module and ends drops none of the main thread\'s tasks', async () => {
  // Another process holds the file, so each listing takes its whole 1.5 s lock limit: the
  // worker thread comes and goes while 4 listings run on "Read" and the rest wait behind them.
  const file = path.join(tempDir('vidora-exit-'), 'held.vrx');
  fs.copyFileSync(SAMPLE, file);
  const holder = await holdFlock(file, '-x');
  try {
    const child = await runNode(`
      const { Worker } = require('worker_threads');
      const vidora = ${REQUIRE_VIDORA};
      let done = 0;
      for (let i = 0; i < 8; i++) vidora.vrxFileInfo(${JSON.stringify(file)}, () => ++done);
      for (let i = 0; i < 20; i++) vidora.nop({ pool: 'Read' }, () => ++done);
      new Worker(${JSON.stringify(`${REQUIRE_VIDORA}.version();`)}, { eval: true });
      process.on('exit', () => console.log('callbacks ' + done));
    `);
    assertCleanExit(child, 'callbacks 28\n');
  } finally {
    await holder.release();
  }
});

test('worker threads terminated while they load the module never take the host down', () => {
  // Each worker loads the addon over and over, so that its termination, a few ms after it
  // starts, lands in the middle of the module's registration.
  const addon = JSON.stringify(process.env.VIDORA_ADDON_PATH || path.join(__dirname, '..', 'build', 'vidora.node'));
  const worker = `
    require('worker_threads').parentPort.postMessage(0);
    for (;;) process.dlopen({ exports: {} }, ${addon});
  `;
  assertCleanExit(runNodeSync(`
    const { Worker } = require('worker_threads');
    let left = 20;
    function next() {
      const w = new Worker(${JSON.stringify(worker)}, { eval: true });
      w.on('error', () => {});
      w.once('message', () => setTimeout(() => w.terminate(), Math.random() * 5));
      w.on('exit', () => (--left > 0 ? next() : console.log('OK')));
    }
    next();
  `), 'OK\n');
});
