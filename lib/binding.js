'use strict';
// Loads vidora.node, with a message that says how to build it when it is missing.
const path = require('path');

const root = path.join(__dirname, '..');
const candidates = [
  process.env.VIDORA_ADDON_PATH,
  path.join(root, 'build', 'vidora.node'),
].filter(Boolean);

function load() {
  const failures = [];
  for (const file of candidates) {
    try {
      return require(file);
    } catch (err) {
      if (err.code !== 'MODULE_NOT_FOUND') throw err;
      failures.push(file);
    }
  }
  const error = new Error(
    `vidora: the native addon is not built (looked for ${failures.join(', ')}). ` +
      `Build it with "npm install" (or "npm run build") in ${root}.`);
  error.code = 'VIDORA_ADDON_MISSING';
  throw error;
}

module.exports = load();
