'use strict';
// What the tests and the benchmarks need around .vrx files: the tools of a build tree,
// vrx_write run on a description (see vrx_write.cc) to make files with WriterVREX, and another
// process holding flock on a file.
const { spawn, spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');

const root = path.join(__dirname, '..');

// The executable `name` in VIDORA_TOOLS_DIR, else in the tools/ beside the addon under test,
// else in build/tools.
function findTool(name) {
  const candidates = [];
  if (process.env.VIDORA_TOOLS_DIR) candidates.push(process.env.VIDORA_TOOLS_DIR);
  if (process.env.VIDORA_ADDON_PATH) candidates.push(path.join(path.dirname(process.env.VIDORA_ADDON_PATH), 'tools'));
  candidates.push(path.join(root, 'build', 'tools'));
  for (const dir of candidates) {
    const tool = path.join(dir, name);
    if (fs.existsSync(tool)) return tool;
  }
  throw new Error(`${name} not found in ${candidates.join(', ')}: build with -DVIDORA_BUILD_TESTS=ON`);
}

// Writes `file` from the description `lines` (an array of commands, or one string) and returns
// what the tool reports: { size, frames: [{offset, size}], partitions: [{offset, size,
// contents: [offset, size], dynamic: [offset, size], seekPoints: [[offset, wallClock]]}] }.
function writeVrx(file, lines) {
  const input = Array.isArray(lines) ? lines.join('\n') + '\n' : lines;
  const run = spawnSync(findTool('vrx_write'), [file], { input, maxBuffer: 1 << 30 });
  if (run.status !== 0) throw new Error(`vrx_write failed: ${run.stderr}`);
  return JSON.parse(run.stdout);
}

// The environment for child processes: without the sanitizer runtimes that a sanitized test
// run preloads into node.
function childEnv() {
  const env = { ...process.env };
  delete env.LD_PRELOAD;
  return env;
}

// Starts flock(1) holding `file` with `mode` ('-x' exclusive, '-s' shared); resolves once it
// holds the lock, with release(), which ends the holder.
async function holdFlock(file, mode) {
  const child = spawn('flock', [mode, file, '-c', 'echo locked; read line'], { env: childEnv() });
  await new Promise((resolve, reject) => {
    child.stdout.once('data', resolve);
    child.once('error', reject);
  });
  return { release: () => new Promise((resolve) => { child.once('exit', resolve); child.stdin.end(); }) };
}

module.exports = { findTool, writeVrx, childEnv, holdFlock };
