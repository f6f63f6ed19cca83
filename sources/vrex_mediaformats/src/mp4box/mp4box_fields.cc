// The leaf boxes of the moov: headers, sample tables and codec configuration records.
#include "mp4box/mp4box.h"

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

void mvhd_t::ReadFullBox(payload_reader_t& in) {
  bool wide = version == 1;
  creation_time = in.Uint(wide);
  modification_time = in.Uint(wide);
  timescale = in.U32();
  duration = in.Uint(wide);
  rate = in.U32();
  volume = in.U16();
  in.Skip(2 + 8);
  for (uint32_t& m : matrix) m = in.U32();
  in.Skip(24);
  next_track_ID = in.U32();
}

void tkhd_t::ReadFullBox(payload_reader_t& in) {
  bool wide = version == 1;
  creation_time = in.Uint(wide);
  modification_time = in.Uint(wide);
  track_ID = in.U32();
  in.Skip(4);
  duration = in.Uint(wide);
  in.Skip(8);
  layer = static_cast<int16_t>(in.U16());
  alternate_group = static_cast<int16_t>(in.U16());
  volume = in.U16();
  in.Skip(2);
  for (uint32_t& m : matrix) m = in.U32();
  width = in.U32();
  height = in.U32();
}

void mdhd_t::ReadFullBox(payload_reader_t& in) {
  bool wide = version == 1;
  creation_time = in.Uint(wide);
  modification_time = in.Uint(wide);
  timescale = in.U32();
  duration = in.Uint(wide);
  language = in.U16();
  in.Skip(2);
}

void hdlr_t::ReadFullBox(payload_reader_t& in) {
  in.Skip(4);
  handler_type = in.U32();
  in.Skip(12);
  name.clear();
  while (in.remaining() > 0) {
    char c = static_cast<char>(in.U8());
    if (c == 0) break;
    name.push_back(c);
  }
}

void time_table_t::ReadFullBox(payload_reader_t& in) {
  uint32_t count = in.U32();
  if (!in.Fits(count, 8)) return;
  entries.resize(count);
  for (auto& entry : entries) {
    entry.first = in.U32();
    entry.second = in.U32();
  }
}

void stss_t::ReadFullBox(payload_reader_t& in) {
  uint32_t count = in.U32();
  if (!in.Fits(count, 4)) return;
  sample_number.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    uint32_t number = in.U32();
    if (number == 0) {  // sample numbers start at 1
      in.Fail();
      return;
    }
    sample_number.push_back(number - 1);
  }
}

void stsz_t::ReadFullBox(payload_reader_t& in) {
  sample_size = in.U32();
  sample_count = in.U32();
  if (sample_size != 0 || !in.Fits(sample_count, 4)) return;
  entry_size.resize(sample_count);
  for (uint32_t& s : entry_size) s = in.U32();
}

void stsc_t::ReadFullBox(payload_reader_t& in) {
  uint32_t count = in.U32();
  if (!in.Fits(count, 12)) return;
  entries.resize(count);
  for (stsc_entry_t& e : entries) {
    e.first_chunk = in.U32();
    e.samples_per_chunk = in.U32();
    e.sample_description_index = in.U32();
  }
}

void chunk_offsets_t::ReadFullBox(payload_reader_t& in) {
  bool wide = type == Fourcc("co64");
  uint32_t count = in.U32();
  if (!in.Fits(count, wide ? 8 : 4)) return;
  chunk_offset.resize(count);
  for (uint64_t& offset : chunk_offset) offset = in.Uint(wide);
}

namespace {

// A descriptor header: the tag, then a size of 1 to 4 bytes, 7 bits each. False (and the
// reader failed) for another tag or a size past the bytes left.
bool ReadDescriptor(payload_reader_t& in, uint8_t expectedTag, uint32_t& size) {
  if (in.U8() != expectedTag) {
    in.Fail();
    return false;
  }
  size = 0;
  for (int i = 0; i < 4; ++i) {
    uint8_t b = in.U8();
    size = (size << 7) | (b & 0x7f);
    if ((b & 0x80) == 0) break;
  }
  if (!in.Fits(size, 1)) return false;
  return true;
}

}  // namespace

void esds_t::ReadFullBox(payload_reader_t& in) {
  uint32_t size = 0;
  if (!ReadDescriptor(in, 3, size)) return;
  ES_ID = in.U16();
  uint8_t esFlags = in.U8();
  if (esFlags & 0x80) in.Skip(2);       // dependsOn_ES_ID
  if (esFlags & 0x40) in.Skip(in.U8());  // URL
  if (esFlags & 0x20) in.Skip(2);       // OCR_ES_Id
  if (!ReadDescriptor(in, 4, size)) return;
  objectTypeIndication = in.U8();
  streamType = in.U8();
  in.Skip(3 + 4 + 4);  // bufferSizeDB, maxBitrate, avgBitrate
  if (!ReadDescriptor(in, 5, size)) return;
  const uint8_t* info = in.Bytes(size);
  if (info != nullptr) decoderSpecificInfo.assign(info, info + size);
  in.Skip(in.remaining());  // the SL config descriptor
}

void config_record_t::Parse(payload_reader_t& in) {
  size_t size = in.remaining();
  const uint8_t* p = in.Bytes(size);
  if (p != nullptr) body.assign(p, p + size);
}

void avcC_t::Parse(payload_reader_t& in) {
  payload_reader_t record = in;
  config_record_t::Parse(in);
  configurationVersion = record.U8();
  AVCProfileIndication = record.U8();
  profile_compatibility = record.U8();
  AVCLevelIndication = record.U8();
  lengthSizeMinusOne = record.U8() & 3;
  for (auto* sets : {&sequenceParameterSets, &pictureParameterSets}) {
    uint8_t count = record.U8();
    if (sets == &sequenceParameterSets) count &= 0x1f;
    for (uint8_t i = 0; i < count && record.ok(); ++i) {
      uint16_t length = record.U16();
      const uint8_t* unit = record.Bytes(length);
      if (unit != nullptr) sets->emplace_back(unit, unit + length);
    }
  }
  if (!record.ok()) in.Fail();
}

void btrt_t::Parse(payload_reader_t& in) {
  bufferSizeDB = in.U32();
  maxBitrate = in.U32();
  avgBitrate = in.U32();
}

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
