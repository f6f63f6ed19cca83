'use strict';
// Exit statuses and the messages of failures that concern a recording file.
const fs = require('fs');

const EXIT = { done: 0, other: 1, usage: 2, missing: 3, notVrx: 4, locked: 5, full: 6 };
const FILE_NOT_FOUND = 0x80000002 | 0;
const TIMED_OUT = 0x80000004 | 0;
const VRX_MODULE = 12;
const NOT_ENOUGH_SPACE = 6;  // the code of a full VRX file in its module

// A failure with the exit status it ends the command with.
class CliError extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

function writable(file) {
  try {
    fs.accessSync(file, fs.constants.W_OK);
    return true;
  } catch (err) {
    return false;
  }
}

// A path that cannot be a recording, told before the native call would only time out on it.
function checkRecordingPath(file) {
  let stat;
  try {
    stat = fs.statSync(file);
  } catch (err) {
    if (err.code === 'ENOENT') throw new CliError(EXIT.missing, `${file}: no such file`);
    throw new CliError(EXIT.other, `${file}: ${err.message}`);
  }
  if (stat.isDirectory()) throw new CliError(EXIT.notVrx, `${file}: is a directory, not a VRX file`);
  if (!stat.isFile()) throw new CliError(EXIT.notVrx, `${file}: not a regular file, not a VRX file`);
}

// The CliError for a native error about `files` (one name, or the names of the files one call
// worked on).
function fileFailure(files, error) {
  const names = [].concat(files);
  const file = names.join(' or ');
  const first = error.errors && error.errors[0];
  const code = first ? first.full : 0;
  if (code === FILE_NOT_FOUND) return new CliError(EXIT.missing, `${file}: no such file`);
  if (code === TIMED_OUT) {
    // The lock is taken through a descriptor opened for writing: a file this user may only
    // read cannot be locked at all.
    if (!names.every(writable)) {
      return new CliError(EXIT.locked, `${file}: cannot be locked: vidora locks a recording through a ` +
        'descriptor opened for writing, and this user may not write it');
    }
    return new CliError(EXIT.locked, `${file}: locked by another process (gave up after 1.5 s)`);
  }
  if (first && first.module === VRX_MODULE && first.code === NOT_ENOUGH_SPACE) {
    return new CliError(EXIT.full, `${file}: full: not enough free space (${error.message})`);
  }
  if (first && first.module === VRX_MODULE) {
    return new CliError(EXIT.notVrx, `${file}: not a VRX file, or damaged (${error.message})`);
  }
  return new CliError(EXIT.other, `${file}: ${error.message}`);
}

module.exports = { EXIT, CliError, checkRecordingPath, fileFailure };
