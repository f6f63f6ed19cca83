'use strict';
// MP4 exports of wall-clock ranges, kept as temporary files. An MP4 has its index (moov) at a
// place that is only known once all of the range has been read, so the length and any byte
// of the answer are known only after the export: the range is exported once to a file, which
// then answers the request and any Range request after it, byte for byte the same. A file is
// found again by the recording's identity and state (device, inode, size, mtime) and the
// range, so a recording that grows or changes gets a new export; requests for an export in
// progress wait for that one. The least recently used files go beyond `maxBytes`, and files
// unused for `maxIdleMs`; close() removes the folder.
const crypto = require('crypto');
const fs = require('fs');
const os = require('os');
const path = require('path');

const { HttpError } = require('./http_error');
const { MAX_WALL_CLOCK } = require('./query');

class Mp4Cache {
  constructor(api, { maxBytes = 2 ** 30, maxIdleMs = 10 * 60 * 1000 } = {}) {
    this._api = api;
    this._maxBytes = maxBytes;
    this._maxIdleMs = maxIdleMs;
    this._dir = fs.mkdtempSync(path.join(os.tmpdir(), 'vidora-serve-'));
    this._entries = new Map();  // key -> { file, size, etag, usedAt }, oldest use first
    this._pending = new Map();  // key -> Promise of an entry
    this._bytes = 0;
    this._timer = setInterval(() => this._evict(), Math.min(maxIdleMs, 60000)).unref();
  }

  // The export of [from, to] of `recording` ({ file, stat } from Recordings.resolve):
  // { file, size, etag }. The file may be removed once the caller has opened it.
  async get(recording, from, to) {
    const { stat } = recording;
    const key = crypto.createHash('sha1')
      .update([recording.file, stat.dev, stat.ino, stat.size, stat.mtimeMs, from, to].join('\n')).digest('hex');
    const entry = this._entries.get(key);
    if (entry) {
      this._entries.delete(key);
      this._entries.set(key, entry);
      entry.usedAt = Date.now();
      return entry;
    }
    if (!this._pending.has(key)) {
      const pending = this._export(key, recording.file, from, to).finally(() => this._pending.delete(key));
      this._pending.set(key, pending);
    }
    return this._pending.get(key);
  }

  async _export(key, source, from, to) {
    const file = path.join(this._dir, `${key}.mp4`);
    const partial = `${file}.part`;
    let result;
    try {
      result = await this._api.processMedia({
        srcFileNames: [source],
        dstFileName: partial,
        outputFormat: 'mp4',
        wallClockStart: from === undefined ? -1 : from,
        wallClockEnd: to === undefined ? MAX_WALL_CLOCK : to,
      });
    } catch (error) {
      fs.rmSync(partial, { force: true });
      throw error;
    }
    if (result.outputFramesCount === 0) {
      fs.rmSync(partial, { force: true });
      throw new HttpError(404, 'EMPTY_RANGE', 'nothing was recorded in that range');
    }
    fs.renameSync(partial, file);
    const size = fs.statSync(file).size;
    const entry = { file, size, etag: `"${key.slice(0, 32)}"`, usedAt: Date.now() };
    this._entries.set(key, entry);
    this._bytes += size;
    this._evict(key);
    return entry;
  }

  // Drops idle entries, then the least recently used ones while over the byte limit, but
  // never `keep`, the one just made.
  _evict(keep) {
    const idleBefore = Date.now() - this._maxIdleMs;
    for (const [key, entry] of this._entries) {
      if (key === keep) continue;
      if (entry.usedAt >= idleBefore && this._bytes <= this._maxBytes) break;
      this._entries.delete(key);
      this._bytes -= entry.size;
      fs.rm(entry.file, { force: true }, () => {});
    }
  }

  close() {
    clearInterval(this._timer);
    this._entries.clear();
    fs.rmSync(this._dir, { recursive: true, force: true });
  }
}

module.exports = { Mp4Cache };
