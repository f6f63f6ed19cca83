'use strict';
// The package's task functions as promises, and their results without the fields every task
// adds (id, name, pool, times).

// Calls `fn(...args, callback)`; resolves with the result, rejects with the error object.
function runTask(fn, ...args) {
  return new Promise((resolve, reject) => {
    fn(...args, (error, value) => (error ? reject(error) : resolve(value)));
  });
}

const TASK_FIELDS = new Set(['id', 'name', 'poolName', 'timedOut', 'apiCallTime', 'operationStartTime',
  'operationEndTime', 'callbackTime']);

function ownFields(result) {
  return Object.fromEntries(Object.entries(result).filter(([key]) => !TASK_FIELDS.has(key)));
}

module.exports = { runTask, ownFields };
