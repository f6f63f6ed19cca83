#!/usr/bin/env node
'use strict';
// Builds vidora.node in Release with CMake into build/ (npm install runs this).
// Extra CMake arguments may follow: node scripts/build.js -DVIDORA_BUILD_TESTS=ON
const { spawnSync } = require('child_process');
const path = require('path');
const os = require('os');

const root = path.join(__dirname, '..');
const buildDir = process.env.VIDORA_BUILD_DIR || path.join(root, 'build');
const jobs = String(Math.max(1, os.cpus().length));

function run(args) {
  const result = spawnSync('cmake', args, { cwd: root, stdio: 'inherit' });
  if (result.error) {
    console.error(`vidora: cmake could not be started (${result.error.message}); install cmake and g++`);
    process.exit(1);
  }
  if (result.status !== 0) process.exit(result.status);
}

const defaults = process.env.npm_lifecycle_event === 'install' ? ['-DVIDORA_BUILD_TESTS=OFF'] : [];
run(['-S', root, '-B', buildDir, '-DCMAKE_BUILD_TYPE=Release', ...defaults, ...process.argv.slice(2)]);
run(['--build', buildDir, '--parallel', jobs]);
