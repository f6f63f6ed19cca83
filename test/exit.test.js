'use strict';
// The host process ends while tasks are running and pending in several pools: the exit hooks
// cancel them, and the process ends with its own exit code and nothing on standard error.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawn, spawnSync } = require('child_process');

const { tempDir } = require('./helpers');
const { holdFlock } = require('../tools/vrx_tools');

const root = JSON.stringify(path.join(__dirname, '..'));

// Starts `perPool` nops on each pool (and a few statvfs), then runs `then(state)` from the
// callback numbered `after`.
function loadScript(perPool, after, then) {
  return `
    const vidora = require(${root});
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

function run(script) {
  return spawnSync(process.execPath, ['-e', script], { encoding: 'utf8', timeout: 120000 });
}

test('process.exit from a callback mid-load ends the process cleanly', () => {
  for (const code of [0, 7]) {
    const child = run(loadScript(200, 150, `() => process.exit(${code})`));
    assert.strictEqual(child.signal, null, child.stderr);
    assert.strictEqual(child.stderr, '');
    assert.strictEqual(child.status, code);
    assert.strictEqual(child.stdout, `exit ${code} after 150\n`);
  }
});

test('process.exit right after enqueueing, before any callback, ends the process cleanly', () => {
  const child = run(`${loadScript(200, -1, '() => {}')}; process.exit(0);`);
  assert.strictEqual(child.signal, null, child.stderr);
  assert.strictEqual(child.stderr, '');
  assert.strictEqual(child.status, 0);
  assert.strictEqual(child.stdout, 'exit 0 after 0\n');
});

test('an uncaught exception mid-load ends the process with code 1 and its message only', () => {
  const child = run(loadScript(200, 100, '() => { throw new Error("boom"); }'));
  assert.strictEqual(child.signal, null, child.stderr);
  assert.strictEqual(child.status, 1);
  assert.match(child.stderr, /Error: boom/);
  assert.doesNotMatch(child.stderr, /Sanitizer|Segmentation|Aborted/);
});

test('with nothing left to do the process ends by itself once every task called back', () => {
  // 200 per pool fit the pending queues: no task is dropped, so every one must call back
  // before the event loop may end.
  const child = run(loadScript(150, -1, '() => {}'));
  assert.strictEqual(child.signal, null, child.stderr);
  assert.strictEqual(child.stderr, '');
  assert.strictEqual(child.status, 0);
  assert.strictEqual(child.stdout, `exit 0 after ${150 * 6 + 8}\n`);
});

test('a worker thread that loads the module and ends drops none of the main thread\'s tasks', async () => {
  // Another process holds the file, so each listing takes its whole 1.5 s lock limit: the
  // worker thread comes and goes while 4 listings run on "Read" and the rest wait behind them.
  const file = path.join(tempDir('vidora-exit-'), 'held.vrx');
  fs.copyFileSync(path.join(__dirname, '..', 'samples', 'sample.vrx'), file);
  const holder = await holdFlock(file, '-x');
  try {
    const script = `
      const { Worker } = require('worker_threads');
      const vidora = require(${root});
      let done = 0;
      for (let i = 0; i < 8; i++) vidora.vrxFileInfo(${JSON.stringify(file)}, () => ++done);
      for (let i = 0; i < 20; i++) vidora.nop({ pool: 'Read' }, () => ++done);
      new Worker(${JSON.stringify(`require(${root}).version();`)}, { eval: true });
      process.on('exit', () => console.log('callbacks ' + done));
    `;
    const child = spawn(process.execPath, ['-e', script], { encoding: 'utf8' });
    let stdout = '';
    let stderr = '';
    child.stdout.on('data', (data) => { stdout += data; });
    child.stderr.on('data', (data) => { stderr += data; });
    const status = await new Promise((resolve) => child.on('exit', resolve));
    assert.strictEqual(stderr, '');
    assert.strictEqual(status, 0);
    assert.strictEqual(stdout, 'callbacks 28\n');
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
  const script = `
    const { Worker } = require('worker_threads');
    let left = 20;
    function next() {
      const w = new Worker(${JSON.stringify(worker)}, { eval: true });
      w.on('error', () => {});
      w.once('message', () => setTimeout(() => w.terminate(), Math.random() * 5));
      w.on('exit', () => (--left > 0 ? next() : console.log('OK')));
    }
    next();
  `;
  const child = run(script);
  assert.strictEqual(child.stderr, '');
  assert.strictEqual(child.status, 0);
  assert.strictEqual(child.stdout, 'OK\n');
});
