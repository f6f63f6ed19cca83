'use strict';
// A first look at vidora: load the addon, log to a file, ask for its version and an error text.
const os = require('os');
const path = require('path');
const fs = require('fs');
const vidora = require('..');

const logPath = path.join(os.tmpdir(), 'vidora-demo.log');
vidora.setLogFile({ path: logPath, logLevel: 3 });

const { buildNumber, openSslVersion } = vidora.version();
console.log(`vidora ${buildNumber} (OpenSSL: ${openSslVersion})`);
console.log(`now: ${new Date(vidora.getTimeMillis()).toISOString()}`);
console.log(`error 0x8008000c: ${vidora.getErrorDescription(0x8008000c | 0)}`);
try {
  vidora.getErrorDescription('not a number');
} catch (err) {
  const [first] = err.errors;
  console.log(`a wrong argument throws "${err.message}" (module ${first.module}, code ${first.code}, at ${path.basename(first.fileName)}:${first.lineNumber})`);
}
setTimeout(() => {
  console.log(`log file ${logPath}:`);
  console.log(fs.readFileSync(logPath, 'utf8').trimEnd());
}, 100);
