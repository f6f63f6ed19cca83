'use strict';
// Text forms shared by the commands: wall clocks, padding, the media model's rescale.

// A wall clock in ms as UTC text; a value that is no time (negative, or beyond what a Date can
// hold, as a damaged file may give) is printed as the number it is.
function utc(millis) {
  const ms = Number(millis);
  const date = new Date(ms);
  if (!(ms >= 0) || Number.isNaN(date.getTime())) return String(millis);
  return date.toISOString().replace('T', ' ').replace('Z', '');
}

const pad = (value, width) => String(value).padStart(width);

// The media model's rate conversion: half up, in integers.
function rescale(value, from, to) {
  if (value < 0 || from === 0) return -1n;
  if (from === to) return BigInt(value);
  return (BigInt(from >> 1) + BigInt(value) * BigInt(to)) / BigInt(from);
}

module.exports = { utc, pad, rescale };
