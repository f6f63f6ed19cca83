'use strict';
// vidora's JavaScript entry: the native functions, unchanged.
module.exports = require('./binding');
