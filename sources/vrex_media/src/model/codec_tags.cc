// The codec tag table: names as the application spells them, and back.
#include "media/codec_tags.h"

namespace vrex {
namespace media {

namespace {
struct tag_name_t {
  uint64_t tag;
  const char* name;
};

// stringToTag reads every row; tagToCodecName answers with the first row of a tag.
const tag_name_t kNames[] = {
    {TAG_VH264, "h264"},  {TAG_VH265, "h265"},   {TAG_VAV1, "av1"},     {TAG_VVP6, "vp8"},
    {TAG_VVP6, "vp9"},    {TAG_VJPEG, "mjpeg"},  {TAG_APCMLE, "pcm"},   {TAG_AMP3, "mp3"},
    {TAG_AAAC, "aac"},    {TAG_AG711A, "g711a"}, {TAG_AG711U, "g711u"}, {TAG_ASPEEX, "speex"},
    {TAG_AOPUS, "opus"},  {TAG_AC3, "ac3"},      {TAG_SSRT, "srt"},     {TAG_SSUB, "sub"},
    {TAG_IJPEG, "jpeg"},
};
}  // namespace

char tagKind(uint64_t tag) {
  const char kind = static_cast<char>(tag >> 56);
  return (kind == 'V' || kind == 'A' || kind == 'I' || kind == 'S') ? kind : 'U';
}

uint64_t stringToTag(const std::string& name) {
  for (const tag_name_t& row : kNames) {
    if (name == row.name) return row.tag;
  }
  return TAG_UNK;
}

const char* tagToCodecName(uint64_t tag) {
  for (const tag_name_t& row : kNames) {
    if (tag == row.tag) return row.name;
  }
  return "unknown";
}

std::string tagToString(uint64_t tag) {
  std::string text;
  for (int shift = 56; shift >= 0; shift -= 8) {
    const char letter = static_cast<char>((tag >> shift) & 0xFF);
    if (letter == '\0') break;
    text.push_back(letter);
  }
  return text;
}

}  // namespace media
}  // namespace vrex
