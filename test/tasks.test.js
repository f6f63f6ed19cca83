'use strict';
// The road of one task as JavaScript sees it: nop on each pool, the result fields, bad
// arguments, unknown pools, cancelOperation on a plain task, a throwing callback.
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { vidora, INVALID_PARAMETERS, assertThrowsCode } = require('./helpers');

const OPERATION_NOT_FOUND = 0x8008000e | 0;
const RESULT_KEYS = ['id', 'name', 'poolName', 'timedOut', 'apiCallTime', 'operationStartTime',
  'operationEndTime', 'callbackTime'];

// Runs nop on `pool` and resolves with {id, args} once it calls back.
function nop(pool) {
  return new Promise((resolve) => {
    const id = vidora.nop({ pool }, (...args) => resolve({ id, args }));
  });
}

test('nop runs on each default pool and answers with the common result fields', async () => {
  let lastId = 0;
  for (const pool of ['Serve', 'Write', 'Read', 'Misc']) {
    const before = Date.now();
    const { id, args } = await nop(pool);
    const after = Date.now();
    assert.strictEqual(args.length, 2, pool);
    const [error, result] = args;
    assert.strictEqual(error, null, pool);
    assert.deepStrictEqual(Object.keys(result), RESULT_KEYS, pool);
    assert.ok(Number.isInteger(id) && id > lastId, `${pool}: ids grow`);
    lastId = id;
    assert.strictEqual(result.id, id);
    assert.strictEqual(result.name, 'nop');
    assert.strictEqual(result.poolName, pool);
    assert.strictEqual(result.timedOut, false);
    const times = [before, result.apiCallTime, result.operationStartTime, result.operationEndTime,
      result.callbackTime, after];
    for (let i = 1; i < times.length; i++) assert.ok(times[i - 1] <= times[i], `${pool}: times in order ${times}`);
    for (const key of RESULT_KEYS.slice(4)) assert.ok(Number.isInteger(result[key]), key);
  }
});

test('nop and cancelOperation reject wrong arguments', () => {
  const callback = () => assert.fail('no callback after a refused call');
  const nopCases = [
    [],
    [{ pool: 'Misc' }],
    [{ pool: 'Misc' }, 'x'],
    [{ pool: 'Misc' }, null],
    [{}, callback],
    [{ pool: 5 }, callback],
    [{ pool: null }, callback],
    ['Misc', callback],
    [null, callback],
    [5, callback],
  ];
  for (const args of nopCases) {
    assert.throws(() => vidora.nop(...args), (err) => {
      assert.strictEqual(err.message, '<-# FAILED! callback_nop Invalid parameters');
      return true;
    }, JSON.stringify(args));
  }
  for (const value of [undefined, null, '1', {}, [1], true]) {
    assertThrowsCode(() => vidora.cancelOperation(value), INVALID_PARAMETERS, String(value));
  }
  assertThrowsCode(() => vidora.cancelOperation(), INVALID_PARAMETERS);
});

test('nop on an unknown pool is dropped: it never calls back and its id is never found', async () => {
  let called = false;
  const id = vidora.nop({ pool: 'NoSuchPool' }, () => { called = true; });
  assert.ok(Number.isInteger(id) && id > 0);
  assertThrowsCode(() => vidora.cancelOperation(id), OPERATION_NOT_FOUND);
  // Round trips after it on every pool: had it been queued anywhere, it would have run.
  for (const pool of ['Serve', 'Write', 'Read', 'Misc']) await nop(pool);
  assert.strictEqual(called, false);
  assert.ok(!vidora.getWorkersPoolsStats().some((pool) => pool.name === 'NoSuchPool'));
});

test('cancelOperation does not see a plain task, running, pending or finished', async () => {
  const ids = [];
  const done = [];
  for (let i = 0; i < 3; i++) ids.push(vidora.nop({ pool: 'Misc' }, () => done.push(i)));
  for (const id of ids) {
    assert.throws(() => vidora.cancelOperation(id), (err) => {
      assert.strictEqual(err.message, 'NodeJS sending operation not found');
      assert.strictEqual(err.errors[0].full, OPERATION_NOT_FOUND);
      assert.match(err.errors[0].fileName, /find_operation\.cc$/);
      return true;
    });
  }
  await nop('Misc');
  assert.deepStrictEqual(done, [0, 1, 2]);
  assertThrowsCode(() => vidora.cancelOperation(ids[0]), OPERATION_NOT_FOUND);
});

test('an exception thrown by a completion callback is the process\'s uncaught exception', () => {
  const script = `
    const vidora = require(${JSON.stringify(path.join(__dirname, '..'))});
    process.on('uncaughtException', (err) => {
      console.log('caught ' + err.message);
      vidora.nop({pool: 'Misc'}, () => console.log('still alive'));
    });
    vidora.nop({pool: 'Misc'}, () => { throw new Error('from the callback'); });
  `;
  const child = spawnSync(process.execPath, ['-e', script], { encoding: 'utf8' });
  assert.strictEqual(child.status, 0, child.stderr);
  assert.strictEqual(child.stdout, 'caught from the callback\nstill alive\n');
});

test('ADDON_TRACE_TASKS and ADDON_TRACE_STATVFS switch on the tasks\' trace lines', () => {
  const dir = require('./helpers').tempDir();
  const log = path.join(dir, 'trace.log');
  const script = `
    const vidora = require(${JSON.stringify(path.join(__dirname, '..'))});
    vidora.setLogFile({ path: ${JSON.stringify(log)}, logLevel: 4 });
    const id = vidora.nop({ pool: 'Misc' }, () => vidora.statvfs('/', () => console.log(id)));
  `;
  const run = (env) => spawnSync(process.execPath, ['-e', script],
    { encoding: 'utf8', env: { ...process.env, ...env } });
  // [environment, lines that must be there, lines that must not]
  const cases = [
    [{ ADDON_TRACE_TASKS: '1', ADDON_TRACE_STATVFS: '1' },
      ['#-> Task::Enqueue id=ID name=nop', '<-# Task::SignalWorkEnd id=ID done in', '<-# Task::~Task id=ID in',
        '#-> TaskStatvfs::SignalWork path=/ errno=0 res=0 time='], []],
    [{ ADDON_TRACE_TASKS: 'no', ADDON_TRACE_STATVFS: '0' }, [], ['Task::Enqueue', 'TaskStatvfs::']],
  ];
  for (const [env, present, absent] of cases) {
    fs.rmSync(log, { force: true });
    const child = run(env);
    assert.strictEqual(child.status, 0, child.stderr);
    const id = child.stdout.trim();
    const text = fs.readFileSync(log, 'utf8');
    for (const line of present) assert.ok(text.includes(line.replace('ID', id)), `${line}\n${text}`);
    for (const line of absent) assert.ok(!text.includes(line), `${line}\n${text}`);
  }
});
