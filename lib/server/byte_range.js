'use strict';
// The Range header of a request for a body of `size` bytes (RFC 9110): one range of bytes is
// served as 206; a header that is no single bytes range is ignored (the whole body, 200), as a
// server that does not do multipart answers may; a range that no byte of the body satisfies
// is 416.

// { start, end } (end included), null to serve the whole body, or 'unsatisfiable'.
function parseRange(header, size) {
  if (typeof header !== 'string') return null;
  const match = /^\s*bytes\s*=\s*(\d*)\s*-\s*(\d*)\s*$/i.exec(header);
  if (!match || (match[1] === '' && match[2] === '')) return null;
  const [first, last] = [match[1], match[2]];
  if (first === '') {
    // A suffix: the last N bytes.
    const length = Number(last);
    if (length === 0 || size === 0) return 'unsatisfiable';
    return { start: Math.max(0, size - length), end: size - 1 };
  }
  const start = Number(first);
  const end = last === '' ? size - 1 : Math.min(Number(last), size - 1);
  if (last !== '' && Number(last) < start) return null;
  if (start >= size) return 'unsatisfiable';
  return { start, end };
}

module.exports = { parseRange };
