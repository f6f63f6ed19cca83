'use strict';
// The road of one task as JavaScript sees it: nop on each pool, the result fields, bad
// arguments, unknown pools, a throwing callback, the trace lines. (cancelOperation on a plain
// task, and its wrong arguments: the operation functions' tests in send_file.test.js.)
const test = require('node:test');
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { vidora, CODES, REQUIRE_VIDORA, TASK_FIELDS: RESULT_KEYS, assertThrowsCode, tempDir, runNodeSync,
  assertCleanExit } = require('./helpers');

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
    assert.deepStrictEqual([result.id, result.name, result.poolName, result.timedOut], [id, 'nop', pool, false]);
    const times = [before, result.apiCallTime, result.operationStartTime, result.operationEndTime,
      result.callbackTime, after];
    for (let i = 1; i < times.length; i++) assert.ok(times[i - 1] <= times[i], `${pool}: times in order ${times}`);
    for (const key of RESULT_KEYS.slice(4)) assert.ok(Number.isInteger(result[key]), key);
  }
});

test('nop rejects wrong arguments', () => {
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
});

test('nop on an unknown pool is dropped: it never calls back and its id is never found', async () => {
  let called = false;
  const id = vidora.nop({ pool: 'NoSuchPool' }, () => { called = true; });
  assert.ok(Number.isInteger(id) && id > 0);
  assertThrowsCode(() => vidora.cancelOperation(id), CODES.operationNotFound);
  // Round trips after it on every pool: had it been queued anywhere, it would have run.
  for (const pool of ['Serve', 'Write', 'Read', 'Misc']) await nop(pool);
  assert.strictEqual(called, false);
  assert.ok(!vidora.getWorkersPoolsStats().some((pool) => pool.name === 'NoSuchPool'));
});

test('an exception thrown by a completion callback is the process\'s uncaught exception', () => {
  assertCleanExit(runNodeSync(`
    const vidora = ${REQUIRE_VIDORA};
    process.on('uncaughtException', (err) => {
      console.log('caught ' + err.message);
      vidora.nop({pool: 'Misc'}, () => console.log('still alive'));
    });
    vidora.nop({pool: 'Misc'}, () => { throw new Error('from the callback'); });
  `), 'caught from the callback\nstill alive\n');
});

test('ADDON_TRACE_TASKS and ADDON_TRACE_STATVFS switch on the tasks\' trace lines', () => {
  const log = path.join(tempDir(), 'trace.log');
  const script = `
    const vidora = ${REQUIRE_VIDORA};
    vidora.setLogFile({ path: ${JSON.stringify(log)}, logLevel: 4 });
    const id = vidora.nop({ pool: 'Misc' }, () => vidora.statvfs('/', () => console.log(id)));
  `;
  // [environment, lines that must be there, lines that must not]
  const cases = [
    [{ ADDON_TRACE_TASKS: '1', ADDON_TRACE_STATVFS: '1' },
      ['#-> Task::Enqueue id=ID name=nop', '<-# Task::SignalWorkEnd id=ID done in', '<-# Task::~Task id=ID in',
        '#-> TaskStatvfs::SignalWork path=/ errno=0 res=0 time='], []],
    [{ ADDON_TRACE_TASKS: 'no', ADDON_TRACE_STATVFS: '0' }, [], ['Task::Enqueue', 'TaskStatvfs::']],
  ];
  for (const [env, present, absent] of cases) {
    fs.rmSync(log, { force: true });
    const child = runNodeSync(script, env);
    assert.strictEqual(child.status, 0, child.stderr);
    const id = child.stdout.trim();
    const text = fs.readFileSync(log, 'utf8');
    for (const line of present) assert.ok(text.includes(line.replace('ID', id)), `${line}\n${text}`);
    for (const line of absent) assert.ok(!text.includes(line), `${line}\n${text}`);
  }
});
