// The box factory and the generic boxes: stepped-over, container, in-memory leaf, full box.
#include "mp4box/mp4box.h"

#include <cctype>
#include <functional>
#include <map>

#include "abstraction/logging.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {
namespace internal {
namespace mp4box {

namespace {

// Nested containers are bounded so that a crafted file cannot exhaust the stack.
constexpr int kMaxDepth = 16;
thread_local int t_depth = 0;

struct depth_guard_t {
  depth_guard_t() { ++t_depth; }
  ~depth_guard_t() { --t_depth; }
};

template <typename T>
std::unique_ptr<box_t> Make() {
  return std::unique_ptr<box_t>(new T());
}

// The class for a type; free_t (stepped over) for the types not parsed.
std::unique_ptr<box_t> MakeBox(uint32_t type, bool& known) {
  static const std::map<uint32_t, std::unique_ptr<box_t> (*)()> kParsed = {
      {Fourcc("moov"), Make<moov_t>}, {Fourcc("mvhd"), Make<mvhd_t>},
      {Fourcc("trak"), Make<trak_t>}, {Fourcc("tkhd"), Make<tkhd_t>},
      {Fourcc("mdia"), Make<mdia_t>}, {Fourcc("mdhd"), Make<mdhd_t>},
      {Fourcc("hdlr"), Make<hdlr_t>}, {Fourcc("minf"), Make<minf_t>},
      {Fourcc("stbl"), Make<stbl_t>}, {Fourcc("stsd"), Make<stsd_t>},
      {Fourcc("stts"), Make<stts_t>}, {Fourcc("ctts"), Make<ctts_t>},
      {Fourcc("stss"), Make<stss_t>}, {Fourcc("stsz"), Make<stsz_t>},
      {Fourcc("stsc"), Make<stsc_t>}, {Fourcc("stco"), Make<stco_t>},
      {Fourcc("co64"), Make<co64_t>}, {Fourcc("avc1"), Make<avc1_t>},
      {Fourcc("hev1"), Make<hev1_t>}, {Fourcc("mp4a"), Make<mp4a_t>},
      {Fourcc("ac-3"), Make<ac3_t>},  {Fourcc("avcC"), Make<avcC_t>},
      {Fourcc("hvcC"), Make<hvcC_t>}, {Fourcc("dac3"), Make<dac3_t>},
      {Fourcc("esds"), Make<esds_t>}, {Fourcc("btrt"), Make<btrt_t>},
  };
  static const uint32_t kSkipped[] = {
      Fourcc("mdat"), Fourcc("free"), Fourcc("ftyp"), Fourcc("skip"), Fourcc("dinf"),
      Fourcc("edts"), Fourcc("iods"), Fourcc("pasp"), Fourcc("sbgp"), Fourcc("sgpd"),
      Fourcc("smhd"), Fourcc("tgas"), Fourcc("udta"), Fourcc("vmhd")};
  auto parsed = kParsed.find(type);
  if (parsed != kParsed.end()) {
    known = true;
    return parsed->second();
  }
  known = false;
  for (uint32_t skipped : kSkipped) known = known || skipped == type;
  return Make<free_t>();
}

}  // namespace

std::string type2str(uint32_t type) {
  std::string text(4, ' ');
  for (int i = 0; i < 4; ++i) {
    unsigned char c = static_cast<unsigned char>(type >> (24 - 8 * i));
    if (c == 0) {
      text[i] = ' ';
    } else {
      text[i] = (isalnum(c) || c == ' ') ? static_cast<char>(c) : '.';
    }
  }
  return text;
}

std::unique_ptr<box_t> box_t::ReadBox(DataSource* source, int& error) {
  if (source->Available() < 8) {
    error = VREX_ERROR(ERR_MEDIAFORMATS_MP4_PARSING);
    return nullptr;
  }
  int64_t start = source->Cursor();
  uint64_t size = source->ReadUInt32();
  uint32_t type = source->ReadUInt32();
  uint64_t headerSize = 8;
  if (size == 0) {
    size = static_cast<uint64_t>(source->Size() - start);
  } else if (size == 1) {
    if (source->Available() < 8) {
      error = VREX_ERROR(ERR_MEDIAFORMATS_MP4_PARSING);
      return nullptr;
    }
    size = source->ReadUInt64();
    headerSize = 16;
  }
  if (size < headerSize || size > static_cast<uint64_t>(source->Size() - start)) {
    LOGE << "<-# box_t::ReadBox FAILED! box " << type2str(type) << " at " << start << " of size "
         << size << " does not fit the source of " << source->Size() << " bytes";
    error = VREX_ERROR(ERR_MEDIAFORMATS_MP4_PARSING);
    return nullptr;
  }
  if (t_depth >= kMaxDepth) {
    error = VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
    return nullptr;
  }
  depth_guard_t depth;

  bool known = false;
  std::unique_ptr<box_t> box = MakeBox(type, known);
  if (!known) {
    LOGW << " box type found at 0x" << std::hex << start << " not supported: __CASE_BRANCH(0x"
         << type << ", vrex::mediaformats::internal::mp4box::" << type2str(type) << ")";
  }
  box->start = start;
  box->size = size;
  box->type = type;
  box->payloadSize = size - headerSize;
  box->end = start + static_cast<int64_t>(size);
  error = box->Read(source);
  if (error < 0) return nullptr;
  if (source->Cursor() != box->end) {
    LOGE << "<-# box_t::ReadBox FAILED! box " << type2str(type) << " at " << start << " read to "
         << source->Cursor() << " instead of " << box->end;
    error = VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
    return nullptr;
  }
  return box;
}

int box_t::ReadString(DataSource* source, std::string& out) const {
  out.clear();
  while (source->Cursor() < end) {
    uint8_t c = source->ReadUInt8();
    if (c == 0) break;
    out.push_back(static_cast<char>(c));
  }
  return 0;
}

int free_t::Read(DataSource* source) {
  source->Cursor(end);
  return 0;
}

int box_t::ReadChildBoxes(DataSource* source, std::vector<std::unique_ptr<box_t>>& out) const {
  while (source->Cursor() < end) {
    if (end - source->Cursor() < 8) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
    int error = 0;
    std::unique_ptr<box_t> child = ReadBox(source, error);
    if (!child) return error;
    if (child->end > end) return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
    out.push_back(std::move(child));
  }
  return 0;
}

int leaf_box_t::Read(DataSource* source) {
  std::vector<uint8_t> payload(static_cast<size_t>(end - source->Cursor()));
  if (!payload.empty()) {
    long got = source->ReadBuffer(payload.data(), payload.size());
    if (got < 0) return static_cast<int>(got);
  }
  payload_reader_t in(payload.data(), payload.size());
  Parse(in);
  if (!in.ok()) {
    LOGE << "<-# leaf_box_t::Read FAILED! box " << type2str(type) << " at " << start
         << " is shorter than its content";
    return VREX_ERROR(ERR_MEDIAFORMATS_INTERNAL_STATE);
  }
  return 0;
}

void full_box_t::Parse(payload_reader_t& in) {
  version = in.U8();
  flags = in.U24();
  ReadFullBox(in);
}

}  // namespace mp4box
}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
