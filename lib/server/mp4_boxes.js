'use strict';
// The few ISO BMFF box readings the server needs: where the initialisation segment (ftyp and
// moov) of a fragmented MP4 stream ends, and the RFC 6381 codecs string of its tracks, which
// a browser asks for before it accepts the stream (MediaSource.isTypeSupported).

// The boxes of `buffer` between `start` and `end`: { type, body, end } with the body's offset.
// A box that runs past `end` is not returned.
function* boxes(buffer, start = 0, end = buffer.length) {
  let at = start;
  while (at + 8 <= end) {
    let size = buffer.readUInt32BE(at);
    let header = 8;
    if (size === 1) {
      if (at + 16 > end) return;
      size = Number(buffer.readBigUInt64BE(at + 8));
      header = 16;
    } else if (size === 0) {
      size = end - at;
    }
    if (size < header || at + size > end) return;
    yield { type: buffer.toString('latin1', at + 4, at + 8), body: at + header, end: at + size };
    at += size;
  }
}

function child(buffer, parent, type) {
  for (const box of boxes(buffer, parent.body, parent.end)) if (box.type === type) return box;
  return null;
}

// The length of the initialisation segment at the head of `buffer` (the end of its moov), or
// 0 while the moov is not complete; throws when the stream does not start with ftyp.
function initSegmentLength(buffer) {
  if (buffer.length >= 8 && buffer.toString('latin1', 4, 8) !== 'ftyp') {
    throw new Error('the stream does not start with an ftyp box');
  }
  for (const box of boxes(buffer)) if (box.type === 'moov') return box.end;
  return 0;
}

const hex = (value, width = 2) => value.toString(16).toUpperCase().padStart(width, '0');

// avcC: profile, constraint flags and level, each one byte after the version.
function avcCodec(type, buffer, record) {
  return `${type}.${buffer.subarray(record.body + 1, record.body + 4).toString('hex').toUpperCase()}`;
}

// hvcC: profile space and idc, the compatibility flags in reverse bit order, tier and level,
// and the constraint bytes without their trailing zero bytes.
function hevcCodec(type, buffer, record) {
  const b = record.body;
  const first = buffer[b + 1];
  const space = ['', 'A', 'B', 'C'][first >> 6];
  const tier = (first >> 5) & 1 ? 'H' : 'L';
  const flags = buffer.readUInt32BE(b + 2);
  let reversed = 0;
  for (let bit = 0; bit < 32; ++bit) reversed = (reversed * 2) + ((flags >>> bit) & 1);
  const constraints = [...buffer.subarray(b + 6, b + 12)];
  while (constraints.length > 0 && constraints[constraints.length - 1] === 0) constraints.pop();
  return [type, `${space}${first & 0x1f}`, reversed.toString(16).toUpperCase(), `${tier}${buffer[b + 12]}`,
    ...constraints.map((c) => hex(c))].join('.');
}

// av1C: profile, level, tier and bit depth.
function av1Codec(type, buffer, record) {
  const b = record.body;
  const profile = buffer[b + 1] >> 5;
  const level = buffer[b + 1] & 0x1f;
  const tier = buffer[b + 2] >> 7 ? 'H' : 'M';
  const highBitDepth = (buffer[b + 2] >> 6) & 1;
  const twelveBit = (buffer[b + 2] >> 5) & 1;
  const depth = highBitDepth ? (twelveBit ? 12 : 10) : 8;
  return `av01.${profile}.${String(level).padStart(2, '0')}${tier}.${String(depth).padStart(2, '0')}`;
}

// esds: the object type of the decoder configuration, and for AAC the audio object type of
// the decoder specific info.
function mp4aCodec(type, buffer, esds) {
  let at = esds.body + 4;
  const descriptor = (tag) => {
    if (buffer[at] !== tag) return false;
    at += 1;
    while (buffer[at] & 0x80) at += 1;
    at += 1;
    return true;
  };
  if (!descriptor(3)) return type;
  const flags = buffer[at + 2];
  at += 3 + (flags & 0x80 ? 2 : 0) + (flags & 0x40 ? 1 + buffer[at + 3] : 0) + (flags & 0x20 ? 2 : 0);
  if (!descriptor(4)) return type;
  const objectType = buffer[at];
  at += 13;
  if (objectType !== 0x40 || !descriptor(5)) return `${type}.${hex(objectType).toLowerCase()}`;
  let audioObjectType = buffer[at] >> 3;
  if (audioObjectType === 31) audioObjectType = 32 + (((buffer[at] & 7) << 3) | (buffer[at + 1] >> 5));
  return `${type}.40.${audioObjectType}`;
}

// Sample entry type -> [its configuration box, the codecs string made from it, bytes of the
// entry before its child boxes].
const ENTRIES = {
  avc1: ['avcC', avcCodec, 78], avc3: ['avcC', avcCodec, 78],
  hvc1: ['hvcC', hevcCodec, 78], hev1: ['hvcC', hevcCodec, 78],
  av01: ['av1C', av1Codec, 78],
  mp4a: ['esds', mp4aCodec, 28],
};

// The codecs string of every track of the initialisation segment `buffer`, in track order,
// joined with ",". Unknown sample entries are named by their type alone.
function codecsOf(buffer) {
  const moov = [...boxes(buffer)].find((box) => box.type === 'moov');
  if (!moov) throw new Error('no moov box');
  const codecs = [];
  for (const trak of boxes(buffer, moov.body, moov.end)) {
    if (trak.type !== 'trak') continue;
    const stbl = ['mdia', 'minf', 'stbl'].reduce((box, type) => box && child(buffer, box, type), trak);
    const stsd = stbl && child(buffer, stbl, 'stsd');
    if (!stsd) continue;
    const [entry] = boxes(buffer, stsd.body + 8, stsd.end);
    if (!entry) continue;
    const known = ENTRIES[entry.type];
    const config = known && child(buffer, { body: entry.body + known[2], end: entry.end }, known[0]);
    codecs.push(config ? known[1](entry.type, buffer, config) : entry.type);
  }
  return codecs.join(',');
}

module.exports = { boxes, initSegmentLength, codecsOf };
