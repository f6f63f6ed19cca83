#!/usr/bin/env node
'use strict';
// Writes lib/error_codes.json: the name of every error code of vidora's modules, from the enums
// of their C++ headers (ERR_<MODULE>_<WHAT> = MakeError(module, number)), so that JavaScript has
// a stable string for each code. Run it after adding a code; a test checks the file is current.
const fs = require('fs');
const path = require('path');

const root = path.join(__dirname, '..');

// { "<signed 32-bit code>": "ERR_..." } from every sources/*/include/*/errors.h.
function collect() {
  const codes = {};
  for (const module of fs.readdirSync(path.join(root, 'sources'))) {
    const include = path.join(root, 'sources', module, 'include');
    if (!fs.existsSync(include)) continue;
    for (const folder of fs.readdirSync(include)) {
      const header = path.join(include, folder, 'errors.h');
      if (!fs.existsSync(header)) continue;
      const text = fs.readFileSync(header, 'utf8');
      for (const [, name, moduleId, number] of text.matchAll(/\b(ERR_\w+)\s*=\s*::vrex::errors::MakeError\((\d+),\s*(\d+)\)/g)) {
        codes[String((0x80000000 | (Number(moduleId) << 16) | Number(number)) | 0)] = name;
      }
    }
  }
  return Object.fromEntries(Object.entries(codes).sort((a, b) => Number(b[0]) - Number(a[0])));
}

if (require.main === module) {
  fs.writeFileSync(path.join(root, 'lib', 'error_codes.json'), `${JSON.stringify(collect(), null, 2)}\n`);
}

module.exports = { collect };
