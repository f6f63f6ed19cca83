'use strict';
// The page's files (lib/server/public), read once at start and served from memory by their
// fixed paths: no request path is ever joined to a folder.
const fs = require('fs');
const path = require('path');

const PUBLIC = path.join(__dirname, 'public');
const TYPES = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.css': 'text/css; charset=utf-8',
};

// Map of URL path -> { type, body }; "/" is index.html.
function staticFiles() {
  const files = new Map();
  for (const name of fs.readdirSync(PUBLIC)) {
    const type = TYPES[path.extname(name)];
    if (!type) continue;
    const asset = { type, body: fs.readFileSync(path.join(PUBLIC, name)) };
    files.set(`/${name}`, asset);
    if (name === 'index.html') files.set('/', asset);
  }
  return files;
}

module.exports = { staticFiles };
