// The AV1 OBU walk (AV1 specification 5.3), the reusable State parser and temporal-delimiter
// stripping for MP4 samples.
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "abstraction/logging.h"
#include "bit_reader.h"
#include "media/av1/av1.h"

namespace ms {
namespace media {
namespace av1 {

namespace internal {
void SetError(OBPError* err, const char* text) {
  if (err == nullptr || err->error == nullptr || err->size == 0) return;
  std::snprintf(err->error, err->size, "%s", text);
}
}  // namespace internal

namespace {
// leb128(): at most 8 bytes, 7 bits each, least significant first.
int ReadLeb128(const uint8_t* buf, size_t size, uint64_t* value, ptrdiff_t* consumed,
               OBPError* err) {
  *value = 0;
  for (size_t i = 0; i < 8; ++i) {
    if (i >= size) {
      internal::SetError(err, "Buffer too short to read leb128 value.");
      return -1;
    }
    *value |= static_cast<uint64_t>(buf[i] & 0x7F) << (i * 7);
    if (!(buf[i] & 0x80)) {
      *consumed = static_cast<ptrdiff_t>(i + 1);
      return 0;
    }
  }
  internal::SetError(err, "Invalid leb128 value.");
  return -1;
}
}  // namespace

const char* OBUTypeToString(int type) {
  switch (type) {
    case OBU_SEQUENCE_HEADER:
      return "OBU_SEQUENCE_HEADER";
    case OBU_TEMPORAL_DELIMITER:
      return "OBU_TEMPORAL_DELIMITER";
    case OBU_FRAME_HEADER:
      return "OBU_FRAME_HEADER";
    case OBU_TILE_GROUP:
      return "OBU_TILE_GROUP";
    case OBU_METADATA:
      return "OBU_METADATA";
    case OBU_FRAME:
      return "OBU_FRAME";
    case OBU_REDUNDANT_FRAME_HEADER:
      return "OBU_REDUNDANT_FRAME_HEADER";
    case OBU_TILE_LIST:
      return "OBU_TILE_LIST";
    case OBU_PADDING:
      return "OBU_PADDING";
    default:
      return "Unknown OBPOBUType";
  }
}

const char* OBUFrameTypeToString(int type) {
  switch (type) {
    case OBP_KEY_FRAME:
      return "KEY_FRAME";
    case OBP_INTER_FRAME:
      return "INTER_FRAME";
    case OBP_INTRA_ONLY_FRAME:
      return "INTRA_ONLY_FRAME";
    case OBP_SWITCH_FRAME:
      return "SWITCH_FRAME";
    default:
      return "Unknown OBPFrameType";
  }
}

// OBU header: forbidden (1) | obu_type (4) | extension_flag (1) | has_size_field (1) |
// reserved (1) [| temporal_id (3) | spatial_id (2) | reserved (3)] [| leb128 obu_size]
int obp_get_next_obu(const uint8_t* buf, size_t buf_size, OBPOBUType* obu_type, ptrdiff_t* offset,
                     size_t* obu_size, int* temporal_id, int* spatial_id, OBPError* err) {
  if (buf_size < 1) {
    internal::SetError(err, "Buffer is too small to contain an OBU.");
    return -1;
  }
  const int type = (buf[0] >> 3) & 15;
  const bool hasExtension = (buf[0] >> 2) & 1;
  const bool hasSize = (buf[0] >> 1) & 1;
  if (type == 0 || (type >= 9 && type <= 14)) {
    char text[64];
    std::snprintf(text, sizeof(text), "OBU header contains invalid OBU type: %d", type);
    internal::SetError(err, text);
    return -1;
  }
  ptrdiff_t pos = 1;
  *temporal_id = 0;
  *spatial_id = 0;
  if (hasExtension) {
    if (buf_size < 2) {
      internal::SetError(err, "Buffer is too small to contain an OBU.");
      return -1;
    }
    *temporal_id = (buf[1] >> 5) & 7;
    *spatial_id = (buf[1] >> 3) & 3;
    pos = 2;
  }
  uint64_t size = 0;
  if (hasSize) {
    ptrdiff_t consumed = 0;
    char inner[128] = {0};
    OBPError innerErr = {inner, sizeof(inner)};
    if (ReadLeb128(buf + pos, buf_size - static_cast<size_t>(pos), &size, &consumed, &innerErr) <
        0) {
      char text[192];
      std::snprintf(text, sizeof(text), "Failed to read OBU size: %s", inner);
      internal::SetError(err, text);
      return -1;
    }
    pos += consumed;
  } else {
    size = buf_size - static_cast<size_t>(pos);
  }
  if (size >= UINT32_MAX || size > buf_size - static_cast<size_t>(pos)) {
    internal::SetError(err, "Invalid OBU size: larger than remaining buffer.");
    return -1;
  }
  *obu_type = static_cast<OBPOBUType>(type);
  *offset = pos;
  *obu_size = static_cast<size_t>(size);
  return 0;
}

bool ParseObus(const uint8_t* buf, size_t size, std::vector<ParsedObu>& obus) {
  try {
    size_t pos = 0;
    while (pos < size) {
      char text[1024] = {0};
      OBPError err = {text, sizeof(text)};
      ParsedObu obu;
      ptrdiff_t headerSize = 0;
      if (obp_get_next_obu(buf + pos, size - pos, &obu.type, &headerSize, &obu.payloadSize,
                           &obu.temporal_id, &obu.spatial_id, &err) < 0)
        throw std::runtime_error(text);
      obu.pHeader = buf + pos;
      obu.headerSize = static_cast<size_t>(headerSize);
      obu.pPayload = obu.pHeader + obu.headerSize;
      obus.push_back(obu);
      pos += obu.headerSize + obu.payloadSize;
    }
  } catch (const std::exception& e) {
    LOGD << "ms::media::av1::ParseObus " << e.what();
    return false;
  }
  return true;
}

State::State() {
  std::memset(&obpState, 0, sizeof(obpState));
  ClearHeaders();
}

void State::ClearHeaders() {
  std::memset(&sequenceHeader, 0, sizeof(sequenceHeader));
  std::memset(&frameHeader, 0, sizeof(frameHeader));
  hasSequenceHeader = false;
  hasFrameHeader = false;
  error[0] = 0;
}

bool State::Parse(const uint8_t* buf, size_t size) {
  if (buf == nullptr) {
    LOGE << "<-# av1::State::Parse buf is nullptr";
    return false;
  }
  if (size == 0) {
    LOGE << "<-# av1::State::Parse size is 0";
    return false;
  }
  obus.clear();
  if (!ParseObus(buf, size, obus)) {
    LOGE << "<-# av1::State::Parse Unable to parse AV1 codec OBU-s. size=" << size;
    return false;
  }
  OBPError err = {error, sizeof(error)};
  for (size_t i = 0; i < obus.size(); ++i) {
    const ParsedObu& obu = obus[i];
    if (obu.type == OBU_SEQUENCE_HEADER) {
      if (obp_parse_sequence_header(obu.pPayload, obu.payloadSize, &sequenceHeader, &err) < 0) {
        LOGE << "<-# av1::State::Parse Unable to parse AV1 Sequence Header obu_cnt=" << i << " "
             << error;
        return false;
      }
      hasSequenceHeader = true;
    } else if (obu.type == OBU_FRAME_HEADER || obu.type == OBU_FRAME) {
      if (!hasSequenceHeader) {
        LOGE << "<-# av1::State::Parse No AV1 Sequence Header found before Frame Header OBU "
                "obu_cnt="
             << i;
        return false;
      }
      if (obp_parse_frame_header(obu.pPayload, obu.payloadSize, &sequenceHeader, &obpState,
                                 obu.temporal_id, obu.spatial_id, &frameHeader, &err) < 0) {
        LOGE << "<-# av1::State::Parse Unable to parse AV1 Frame Header obu_cnt=" << i << " "
             << error;
        return false;
      }
      hasFrameHeader = true;
    }
  }
  return true;
}

bool StripAV1(const uint8_t* buf, size_t size, std::vector<uint8_t>& out) {
  out.clear();
  // Kept per thread, so that a steady stream allocates nothing here.
  thread_local std::vector<ParsedObu> obus;
  obus.clear();
  if (!ParseObus(buf, size, obus)) {
    LOGE << "<-# av1::StripAV1 FAILED! ParseObus() failed";
    return false;
  }
  for (const ParsedObu& obu : obus) {
    const size_t length = obu.headerSize + obu.payloadSize;
    if (obu.type == OBU_TEMPORAL_DELIMITER || length == 0) continue;
    out.insert(out.end(), obu.pHeader, obu.pHeader + length);
  }
  return true;
}

}  // namespace av1
}  // namespace media
}  // namespace ms
