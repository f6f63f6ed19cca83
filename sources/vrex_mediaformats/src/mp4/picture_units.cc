// The NAL unit filter of the plain MP4 writer.
#include "mp4/picture_units.h"

#include "media/av1/av1.h"
#include "media/codec_tags.h"
#include "mediaformats/errors.h"

namespace vrex {
namespace mediaformats {
namespace internal {

namespace {

bool IsH264Picture(uint8_t header) { return (header & 0x1B) == 1; }  // types 1 and 5

bool IsH265Picture(uint8_t header) {
  unsigned type = (header >> 1) & 63;
  return type <= 9 || (type >= 16 && type <= 21);
}

}  // namespace

int KeepPictureUnits(const unsigned char* data, size_t size, uint64_t tag,
                     std::vector<unsigned char>& out) {
  out.clear();
  bool (*keep)(uint8_t);
  if (tag == media::TAG_VH264) {
    keep = IsH264Picture;
  } else if (tag == media::TAG_VH265) {
    keep = IsH265Picture;
  } else if (tag == media::TAG_VAV1) {
    if (!ms::media::av1::StripAV1(data, size, out)) out.clear();
    return 0;
  } else {
    return VREX_ERROR(ERR_MEDIAFORMATS_INCORRECT_PARAMETERS);
  }
  size_t pos = 0;
  while (size - pos >= 5) {
    const unsigned char* unit = data + pos;
    uint32_t length = (uint32_t(unit[0]) << 24) | (uint32_t(unit[1]) << 16) | (uint32_t(unit[2]) << 8) | unit[3];
    if (length > size - pos - 4) break;
    if (length > 0 && keep(unit[4])) out.insert(out.end(), unit, unit + 4 + length);
    pos += 4 + length;
  }
  return 0;
}

}  // namespace internal
}  // namespace mediaformats
}  // namespace vrex
