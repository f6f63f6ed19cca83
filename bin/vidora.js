#!/usr/bin/env node
'use strict';
// vidora: the command line of the package; `vidora --help` lists the commands.
const { main } = require('../lib/cli');

main(process.argv.slice(2), {
  out: (text) => process.stdout.write(`${text}\n`),
  err: (text) => process.stderr.write(`${text}\n`),
  stdout: process.stdout,
  stderr: process.stderr,
}).then((status) => {
  process.exitCode = status;
});
