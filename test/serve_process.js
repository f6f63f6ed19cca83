'use strict';
// `vidora serve` as a child process, as a user starts it: resolves once it listens, with its
// address (from its first line of output) and stop(), which ends it with SIGTERM and resolves
// with its exit status.
const path = require('path');
const { spawn } = require('child_process');

const BIN = path.join(__dirname, '..', 'bin', 'vidora.js');

function spawnServe(dir, args = [], options = {}) {
  const child = spawn(process.execPath, [BIN, 'serve', dir, '--port', '0', ...args], { stdio: ['ignore', 'pipe', 'pipe'], ...options });
  let stderr = '';
  child.stderr.on('data', (data) => { stderr += data; });
  return new Promise((resolve, reject) => {
    let out = '';
    const onData = (data) => {
      out += data;
      const match = /^vidora serve: (http:\/\/\S+?)\/? serving/m.exec(out);
      if (!match) return;
      child.stdout.off('data', onData);
      const exited = new Promise((done) => child.once('exit', (status, signal) => done({ status, signal, stderr })));
      resolve({ url: match[1], child, stop: () => { child.kill('SIGTERM'); return exited; } });
    };
    child.stdout.on('data', onData);
    child.once('exit', (status) => reject(new Error(`vidora serve exited (${status}) before listening: ${stderr}`)));
    child.once('error', reject);
  });
}

module.exports = { spawnServe };
