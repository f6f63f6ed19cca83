'use strict';
// vidora's JavaScript entry: the native functions, unchanged, and beside them `api`, the same
// task functions with Promises, AbortSignal, streams and a queue per pool (lib/api.js), and
// the error classes that `api` rejects with.
const native = require('./binding');
const { makeApi } = require('./api');
const { VidoraError, AbortError } = require('./errors');

module.exports = { ...native, api: makeApi(native), VidoraError, AbortError };
