'use strict';
// The recordings of the served folder: the .vrx files under it (a few levels of subfolders
// deep), named by their path relative to it with "/". A name from a request is resolved only
// to a regular .vrx file whose real path lies inside the folder: "..", absolute paths, empty
// or hidden parts and symbolic links that lead out of the folder are refused.
const fs = require('fs');
const path = require('path');

const { HttpError } = require('./http_error');

const MAX_DEPTH = 4;
const isRecordingName = (name) => name.toLowerCase().endsWith('.vrx');

class Recordings {
  constructor(dir) {
    this.root = fs.realpathSync(dir);
    if (!fs.statSync(this.root).isDirectory()) throw new Error(`${dir} is not a directory`);
  }

  _inside(real) {
    return real.startsWith(this.root + path.sep);
  }

  // Resolves a recording's name (already decoded) to { name, file, stat }; throws HttpError.
  async resolve(name) {
    if (typeof name !== 'string' || name.length === 0 || name.length > 1024) {
      throw new HttpError(400, 'BAD_NAME', 'a recording name is needed');
    }
    const parts = name.split('/');
    if (parts.some((part) => part === '' || part.startsWith('.') || /[\\\0]/.test(part))) {
      throw new HttpError(400, 'BAD_NAME', `"${name}" is not a recording name: no absolute paths, ".." or hidden files`);
    }
    if (!isRecordingName(name)) throw new HttpError(400, 'BAD_NAME', `"${name}" is not a .vrx recording`);
    let real;
    try {
      real = await fs.promises.realpath(path.join(this.root, ...parts));
    } catch (error) {
      throw new HttpError(404, 'NOT_FOUND', `no recording "${name}"`);
    }
    if (!this._inside(real)) throw new HttpError(403, 'OUTSIDE', `"${name}" leads outside the served folder`);
    const stat = await fs.promises.stat(real);
    if (!stat.isFile()) throw new HttpError(404, 'NOT_FOUND', `no recording "${name}"`);
    return { name, file: real, stat };
  }

  // Every recording: { name, size, modified } sorted by name; links that lead out of the
  // folder, and what cannot be read, are left out.
  async list() {
    const found = [];
    const walk = async (dir, prefix, depth) => {
      let entries;
      try {
        entries = await fs.promises.readdir(dir, { withFileTypes: true });
      } catch (error) {
        return;
      }
      for (const entry of entries) {
        if (entry.name.startsWith('.')) continue;
        const name = prefix + entry.name;
        let real;
        let stat;
        try {
          real = await fs.promises.realpath(path.join(dir, entry.name));
          stat = await fs.promises.stat(real);
        } catch (error) {
          continue;
        }
        if (!this._inside(real)) continue;
        if (stat.isDirectory() && depth < MAX_DEPTH && !entry.isSymbolicLink()) {
          await walk(real, `${name}/`, depth + 1);
        } else if (stat.isFile() && isRecordingName(entry.name)) {
          found.push({ name, size: stat.size, modified: stat.mtimeMs });
        }
      }
    };
    await walk(this.root, '', 0);
    return found.sort((a, b) => (a.name < b.name ? -1 : a.name > b.name ? 1 : 0));
  }
}

module.exports = { Recordings };
