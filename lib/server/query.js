'use strict';
// The query of a request: a wall-clock range `from` and `to` (ms since the epoch, both
// optional), and nothing else; whatever does not read as such is a 400.
const { HttpError } = require('./http_error');

// Beyond any date a Date can hold: no wall clock of a recording is larger.
const MAX_WALL_CLOCK = 8.64e15;

function wallClock(params, name) {
  const text = params.get(name);
  if (text === null || text === '') return undefined;
  if (!/^\d{1,16}$/.test(text) || Number(text) > MAX_WALL_CLOCK) {
    throw new HttpError(400, 'BAD_PARAMETER', `${name} must be a wall clock in ms since the epoch (got "${text}")`);
  }
  return Number(text);
}

// { from, to }, each a number or undefined, from the query string `search` (without "?").
function rangeOf(search) {
  const params = new URLSearchParams(search);
  for (const name of new Set(params.keys())) {
    if (name !== 'from' && name !== 'to') throw new HttpError(400, 'BAD_PARAMETER', `unknown parameter "${name}" (from and to are known)`);
    if (params.getAll(name).length > 1) throw new HttpError(400, 'BAD_PARAMETER', `${name} is given more than once`);
  }
  const from = wallClock(params, 'from');
  const to = wallClock(params, 'to');
  if (from !== undefined && to !== undefined && from > to) {
    throw new HttpError(400, 'BAD_RANGE', `from (${from}) is after to (${to})`);
  }
  return { from, to };
}

module.exports = { rangeOf, MAX_WALL_CLOCK };
