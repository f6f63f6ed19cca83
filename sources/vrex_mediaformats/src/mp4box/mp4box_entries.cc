// stsd and its sample entries, read from the source because the visual entry's compressor
// name is read the way existing files need it read.
#include "abstraction/logging.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"
#include "mp4box/mp4box.h"

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

namespace {

// True when `count` bytes of the box ending at `end` remain at the cursor.
bool Remains(DataSource* source, int64_t end, int64_t count) { return end - source->Cursor() >= count; }

constexpr int kCompressorNameBytes = 32;
// Files of this packer write their name without a length byte; 20 bytes with its zero, then
// 12 zero bytes.
const char kTessarinName[] = "Tessarin MP4 packer";
constexpr int kTessarinReads = 13;

}  // namespace

int stsd_t::Read(DataSource* source) {
  if (!Remains(source, end, 8)) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  uint32_t word = source->ReadUInt32();
  version = static_cast<uint8_t>(word >> 24);
  flags = word & 0xffffff;
  entry_count = source->ReadUInt32();
  return ReadChildren(source);
}

const sample_entry_t* stsd_t::FirstEntry() const {
  for (const auto& child : children) {
    if (auto* entry = dynamic_cast<const sample_entry_t*>(child.get())) return entry;
  }
  return nullptr;
}

int sample_entry_t::Read(DataSource* source) {
  if (!Remains(source, end, 8)) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  source->Cursor(source->Cursor() + 6);
  data_reference_index = source->ReadUInt16();
  int err = ReadSampleEntry(source);
  return err < 0 ? err : ReadChildren(source);
}

int visual_sample_entry_t::ReadSampleEntry(DataSource* source) {
  // pre_defined, reserved, pre_defined[3], width, height, resolutions, reserved, frame_count
  if (!Remains(source, end, 2 + 2 + 12 + 4 + 8 + 4 + 2)) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  source->Cursor(source->Cursor() + 16);
  width = source->ReadUInt16();
  height = source->ReadUInt16();
  horizresolution = source->ReadUInt32();
  vertresolution = source->ReadUInt32();
  source->Cursor(source->Cursor() + 4);
  frame_count = source->ReadUInt16();
  // The name is read as strings, one byte per empty one: an empty name takes its 32 bytes; a
  // name with a length byte in front overruns the field by its length, as it always has.
  ReadString(source, compressorname);
  int reads = compressorname == kTessarinName ? kTessarinReads : kCompressorNameBytes;
  std::string ignored;
  for (int i = 1; i < reads; ++i) ReadString(source, ignored);
  if (!Remains(source, end, 4)) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  depth = source->ReadUInt16();
  source->ReadUInt16();  // pre_defined
  return 0;
}

int audio_sample_entry_t::ReadSampleEntry(DataSource* source) {
  if (!Remains(source, end, 8 + 2 + 2 + 4 + 4)) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  source->Cursor(source->Cursor() + 8);
  channelcount = source->ReadUInt16();
  samplesize = source->ReadUInt16();
  source->Cursor(source->Cursor() + 4);
  samplerate = source->ReadUInt32();
  return 0;
}

uint64_t avc1_t::Tag() const { return media::TAG_VH264; }

const std::vector<uint8_t>* avc1_t::CodecConfig() const {
  const avcC_t* avcC = Find<avcC_t>(Fourcc("avcC"));
  return avcC ? &avcC->body : nullptr;
}

uint64_t hev1_t::Tag() const { return media::TAG_VH265; }

const std::vector<uint8_t>* hev1_t::CodecConfig() const {
  const hvcC_t* hvcC = Find<hvcC_t>(Fourcc("hvcC"));
  return hvcC ? &hvcC->body : nullptr;
}

uint64_t mp4a_t::Tag() const { return media::TAG_AAAC; }

const std::vector<uint8_t>* mp4a_t::CodecConfig() const {
  const esds_t* esds = Find<esds_t>(Fourcc("esds"));
  return esds ? &esds->decoderSpecificInfo : nullptr;
}

uint64_t ac3_t::Tag() const { return media::TAG_AC3; }

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
